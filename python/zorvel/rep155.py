"""The vocabulary of ROS REP-155 (`hri_msgs`) and zorvel's, on plain values: nothing here needs ROS.

What a function returns is the value of one field of an observation. It is None when the message
cannot give that field: leave the field out then. Numbers that are not finite count as absent, and
confidences are held to 0 to 1.

Angles are in degrees, as everywhere in zorvel: a positive pitch is up, a negative yaw is to the
person's own left, a positive roll brings the head towards the person's own left shoulder. (0, 0)
is straight at the robot.
"""

from __future__ import annotations

import math
from collections.abc import Iterable, Mapping, Sequence
from dataclasses import dataclass, field
from enum import IntEnum
from typing import TypeAlias

Estimate: TypeAlias = tuple[float, float]
"""A value and its confidence, each in 0 to 1."""

Landmark: TypeAlias = tuple[float, float, float]
"""x and y, each in 0 to 1 of the picture from its upper left corner, and a confidence."""

Vector: TypeAlias = tuple[float, float, float]
"""x forward, y to the left, z up (REP-103), in metres."""

Quaternion: TypeAlias = tuple[float, float, float, float]
"""A rotation as (x, y, z, w), the order of geometry_msgs/Quaternion; of any length but 0."""


EXPRESSION_NAMES: Mapping[str, str] = {
    "neutral": "calm",
    "angry": "anger",
    "annoyed": "anger",
    "furious": "anger",
    "happy": "joy",
    "sad": "sorrow",
    "despaired": "sorrow",
    "disappointed": "sorrow",
    "surprised": "surprise",
    "amazed": "surprise",
}
"""The names of hri_msgs/Expression that are one of zorvel's expressions, or a degree of it."""


def expressions_from_name(name: str, confidence: float) -> dict[str, Estimate] | None:
    """What a face shows, from the `expression` and the `confidence` of hri_msgs/Expression.

    The expression named has the value 1 and the others 0. None for a name without a counterpart
    (disgusted, scared, pleading, vulnerable, guilty, embarrassed, horrified, skeptical, suspicious,
    rejected, bored, tired, asleep, confused, excited), and for the empty one of a message that
    gives valence and arousal: zorvel makes a valence of what it perceives and takes none.

    The estimator ignores these confidences, so leave out a message that is not to be believed. It
    ignores surprise, too: a face of nothing but surprise is negative to it.
    """
    shown = EXPRESSION_NAMES.get(name)
    if shown is None or not math.isfinite(confidence):
        return None
    held = _held(confidence)
    return {
        expression: (1.0 if expression == shown else 0.0, held)
        for expression in ("calm", "anger", "joy", "sorrow", "surprise")
    }


FULL_INTENSITY = 0.6
"""The intensity of a unit from which on it counts in full. 0 to 1 is taken for the five steps A to
E of FACS, of which C, "marked", counts in full, as it does in an import of an OpenFace file."""


def action_units(
    numbers: Iterable[int], intensities: Iterable[float], confidences: Iterable[float]
) -> dict[int, Estimate]:
    """Intensity and confidence by FACS number, from the lists of hri_msgs/FacialActionUnits.

    Throws ValueError unless all three have the same length.
    """
    return {
        number: (intensity, _held(confidence))
        for number, intensity, confidence in zip(numbers, intensities, confidences, strict=True)
        if math.isfinite(intensity) and math.isfinite(confidence)
    }


def smile_from_action_units(
    units: Mapping[int, Estimate], full_intensity: float = FULL_INTENSITY
) -> Estimate | None:
    """How much a face smiles: unit 12, the lip corner puller. None without it."""
    if 12 not in units:
        return None
    intensity, confidence = units[12]
    return _held(intensity / full_intensity), confidence


def expressions_from_action_units(
    units: Mapping[int, Estimate], full_intensity: float = FULL_INTENSITY
) -> dict[str, Estimate] | None:
    """What a face shows, by the published emotion prototypes (EMFACS, Ekman and Friesen).

    None unless the units 1, 2, 4, 5, 6, 7, 12, 15, 23 and 26 are all there. A detector that lists
    only the active ones knows the others to be 0: add them as such. The confidence is that of the
    unit with the least. The arithmetic is that of an OpenFace import, bit for bit, which
    `full_intensity=3` gives for OpenFace's own intensities from 0 to 5.
    """
    used = (1, 2, 4, 5, 6, 7, 12, 15, 23, 26)
    if any(number not in units for number in used):
        return None
    a1, a2, a4, a5, a6, a7, a12, a15, a23, a26 = (
        _held(units[number][0] / full_intensity) for number in used
    )
    # Not sum(), which rounds differently from Python 3.12 on.
    joy = (a6 + a12) / 2.0
    anger = (a4 + a5 + a7 + a23) / 4.0
    sorrow = (a1 + a4 + a15) / 3.0
    surprise = (a1 + a2 + a5 + a26) / 4.0
    calm = 1.0 - max(joy, anger, sorrow, surprise)
    least = min(units[number][1] for number in used)
    return {
        "calm": (calm, least),
        "anger": (anger, least),
        "joy": (joy, least),
        "sorrow": (sorrow, least),
        "surprise": (surprise, least),
    }


LANDMARK_NAMES: Mapping[str, int] = {
    "RIGHT_EYE_OUTSIDE": 0,
    "RIGHT_EYE_INSIDE": 1,
    "LEFT_EYE_INSIDE": 2,
    "LEFT_EYE_OUTSIDE": 3,
    "RIGHT_EYEBROW_OUTSIDE": 4,
    "RIGHT_EYEBROW_INSIDE": 5,
    "LEFT_EYEBROW_INSIDE": 6,
    "LEFT_EYEBROW_OUTSIDE": 7,
    "NOSE": 8,
    "NOSTRIL_3": 9,
    "MOUTH_OUTER_RIGHT": 10,
    "MOUTH_OUTER_LEFT": 11,
}
"""zorvel's face points by the constants of hri_msgs/FacialLandmarks. Right is the person's there;
in zorvel left and right are the picture's, so that the person's right eye is the left one."""

LANDMARKS_OF_68 = (36, 39, 42, 45, 17, 21, 22, 26, 30, 33, 48, 54)
"""The same, in the order of zorvel's points, by the usual numbering of 68 landmarks from 0."""


def facial_points(
    landmarks: Mapping[str, Landmark], width: float, height: float
) -> dict[int, Landmark] | None:
    """The face points (x, y, confidence), in pixels, from landmarks by their names in hri_msgs.

    `width` and `height` are the picture's, in pixels. A landmark that is not there, or is not
    finite, is left out, which the estimator takes for a confidence of 0. None when that leaves
    none. Landmarks of other names are not used.

    >>> facial_points({"RIGHT_EYE_OUTSIDE": (0.25, 0.5, 0.9)}, 640, 480)
    {0: (160.0, 240.0, 0.9)}
    """
    points = {
        LANDMARK_NAMES[name]: (x * width, y * height, _held(confidence))
        for name, (x, y, confidence) in landmarks.items()
        if name in LANDMARK_NAMES and _all_finite((x, y, confidence))
    }
    return points or None


def facial_points_from_68(
    landmarks: Sequence[Landmark], width: float, height: float
) -> dict[int, Landmark] | None:
    """The same from the usual 68 landmarks, in their order; hri_msgs numbers its own differently.

    More may follow, such as two pupils. Throws ValueError when there are fewer than 68.
    """
    if len(landmarks) < 68:
        raise ValueError(f"{len(landmarks)} landmarks, where 68 belong")
    named = {name: landmarks[LANDMARKS_OF_68[point]] for name, point in LANDMARK_NAMES.items()}
    return facial_points(named, width, height)


def seen_from_robot(position: Vector, orientation: Quaternion) -> Quaternion:
    """The orientation of a head or a gaze in a frame that looks from there at the robot.

    `position` and `orientation` are those of the frame `face_<id>` or `gaze_<id>` in a frame of the
    robot: x forward, y to the left, z up, with its origin where the robot's eyes would be, such as
    the camera's frame (not its optical frame, whose z is forward). The frame of the result has its
    origin in the face, x towards the robot, y horizontally to the left of who looks along x, and z
    up. In it, a head that faces the robot has the orientation (0, 0, 0, 1).

    Example: a face 1 m ahead of the robot and 1 m to its left, (1, 1, 0), which looks back along
    the robot's x axis, (0, 0, 1, 0), passes the robot: it would have to turn 45° to its own left.
    So it is turned 45° to its right in the new frame: (0, 0, -0.383, 0.924), or all four with the
    other sign, which is the same rotation.
    """
    x, y, z = position
    half_yaw = math.atan2(-y, -x) / 2.0
    half_pitch = math.atan2(z, math.hypot(x, y)) / 2.0
    yaw: Quaternion = (0.0, 0.0, math.sin(half_yaw), math.cos(half_yaw))
    pitch: Quaternion = (0.0, math.sin(half_pitch), 0.0, math.cos(half_pitch))
    rx, ry, rz, rw = _product(yaw, pitch)
    return _product((-rx, -ry, -rz, rw), orientation)


def head_posture(orientation: Quaternion) -> tuple[float, float, float] | None:
    """Yaw, pitch and roll, in degrees, of a head in a frame that looks at the robot.

    Both frames have x forward, y to the left and z up, as REP-103 and `face_<id>` of REP-155 have;
    `seen_from_robot` gives such an orientation. Yaw and pitch tell where the nose points, whatever
    the roll. In REP-103 a positive yaw is to the left, a positive pitch is down and a positive roll
    is to the right, so the three angles of the same rotation have the opposite signs there.

    Example: (0, 0, 0.259, 0.966) is a turn by 30° about z, that is to the left: (-30, 0, 0).
    """
    unit = _unit(orientation)
    if unit is None:
        return None
    x, y, z, w = unit
    yaw, pitch = _direction(1.0 - 2.0 * (y * y + z * z), 2.0 * (x * y + z * w),
                            2.0 * (x * z - y * w))
    roll = -math.degrees(math.atan2(2.0 * (y * z + x * w), 1.0 - 2.0 * (x * x + y * y)))
    return yaw, pitch, roll


def gaze(orientation: Quaternion) -> tuple[float, float] | None:
    """Yaw and pitch, in degrees, of a gaze in a frame that looks at the robot.

    That frame has x forward, y to the left and z up, as for `head_posture`. The frame of the gaze,
    `gaze_<id>` of REP-155, is optical: z is where the eyes look, x to the right and y down. For a
    gaze whose frame has x forward, take the first two angles of `head_posture`.

    Example: (-0.5, 0.5, -0.5, 0.5), the optical frame that looks along x, gives (0, 0), straight
    at the robot. (-0.579, 0.579, -0.406, 0.406), the same turned by 20° about the y of that frame,
    which is downwards, gives (0, -20).
    """
    unit = _unit(orientation)
    if unit is None:
        return None
    x, y, z, w = unit
    return _direction(2.0 * (x * z + y * w), 2.0 * (y * z - x * w), 1.0 - 2.0 * (x * x + y * y))


class Gender(IntEnum):
    """The genders of hri_msgs/SoftBiometrics."""

    UNDEFINED = 0
    FEMALE = 1
    MALE = 2
    OTHER = 3


def age(years: int, confidence: float) -> tuple[int, float] | None:
    """Age in years and its confidence. None at a confidence of 0, that of an unset message."""
    if years < 0 or not 0.0 < confidence < math.inf:
        return None
    return years, _held(confidence)


def gender(value: int, confidence: float, *, true_for: Gender) -> tuple[bool, float] | None:
    """The gender and its confidence. None at a confidence of 0, and unless it is female or male.

    zorvel keeps a truth value that it does not interpret; `true_for` says which of the two the rest
    of the robot takes for true.
    """
    if value not in (Gender.FEMALE, Gender.MALE) or not 0.0 < confidence < math.inf:
        return None
    return value == true_for, _held(confidence)


class PersonNumbers:
    """Numbers for the persons of `/humans/persons`, whose ids are texts in REP-155.

    A person gets the next number, from 1 on, when its id first appears. No number is given twice.
    """

    def __init__(self) -> None:
        self._numbers: dict[str, int] = {}
        self._count = 0

    def number(self, person: str) -> int:
        """The number of a person, which is a new one for an id that has none."""
        if person not in self._numbers:
            self._count += 1
            self._numbers[person] = self._count
        return self._numbers[person]

    def alias(self, person: str, alias: str) -> tuple[int, int] | None:
        """Makes one person of two, when `/humans/persons/<person>/alias` says that it is `alias`.

        Both ids have the older of the two numbers from then on. Returns the number that is given up
        and the one that stays, for `SocialGraph.rename`, or `Event.rename` behind the time; None
        where the two ids have one number already, as when a latched message comes again. The empty
        alias of somebody who has none gives None, too.

        >>> numbers = PersonNumbers()
        >>> numbers.number("anonymous_7"), numbers.number("ada")
        (1, 2)
        >>> numbers.alias("anonymous_7", "ada")
        (2, 1)
        >>> numbers.number("ada")
        1
        """
        if not alias:
            return None
        older, newer = sorted((self.number(person), self.number(alias)))
        if older == newer:
            return None
        self._numbers = {name: older if number == newer else number
                         for name, number in self._numbers.items()}
        return newer, older

    def forget(self, person: str) -> None:
        """The person is given up: the ids with its number have none any more."""
        gone = self._numbers.get(person)
        self._numbers = {name: number for name, number in self._numbers.items() if number != gone}


class EngagementLevel(IntEnum):
    """The levels of hri_msgs/EngagementLevel."""

    UNKNOWN = 0
    DISENGAGED = 1
    ENGAGING = 2
    ENGAGED = 3
    DISENGAGING = 4


@dataclass
class Engagement:
    """The engagement of one person, from the attention that zorvel estimates.

    Each level is left at another value than it was reached at, so that an attention that trembles
    does not make it flicker. Between the levels a person who was engaged is disengaging, and
    everyone else is engaging. Throws ValueError for thresholds out of order.
    """

    engaged_from: float = 0.7
    """The attention from which on a person is engaged; a head that stays turned 18° aside, without
    a gaze, comes to it."""
    disengaging_below: float = 0.6
    """The attention below which one who is engaged no longer is."""
    engaging_from: float = 0.4
    """The attention from which on one who is disengaged no longer is."""
    disengaged_below: float = 0.3
    """The attention below which a person is disengaged; such a head comes to it at 27°."""
    known_from: float = 0.4
    """The confidence of the attention from which on an unknown level becomes known."""
    unknown_below: float = 0.1
    """The confidence below which a known level becomes unknown. Two cycles in which a person is not
    seen bring any confidence below it."""
    level: EngagementLevel = field(default=EngagementLevel.UNKNOWN, init=False)
    """The level of the last update; unknown at first."""

    def __post_init__(self) -> None:
        attentions = (self.disengaged_below, self.engaging_from, self.disengaging_below,
                      self.engaged_from)
        if list(attentions) != sorted(attentions) or self.unknown_below > self.known_from:
            raise ValueError("a level would be left before it is reached")

    def update(self, attention: float, confidence: float) -> EngagementLevel:
        """The level after one more state, of an attention and its confidence, each in 0 to 1.

        What is not a number is unknown.
        """
        level = self.level
        was_unknown = level is EngagementLevel.UNKNOWN
        was_engaged = level is EngagementLevel.ENGAGED
        was_disengaged = level is EngagementLevel.DISENGAGED or was_unknown
        least_confidence = self.known_from if was_unknown else self.unknown_below
        if math.isnan(attention) or not confidence >= least_confidence:
            level = EngagementLevel.UNKNOWN
        elif attention >= (self.disengaging_below if was_engaged else self.engaged_from):
            level = EngagementLevel.ENGAGED
        elif attention < (self.engaging_from if was_disengaged else self.disengaged_below):
            level = EngagementLevel.DISENGAGED
        elif was_engaged:
            level = EngagementLevel.DISENGAGING
        elif was_disengaged:
            level = EngagementLevel.ENGAGING
        self.level = level
        return level


def _held(value: float) -> float:
    return min(max(value, 0.0), 1.0)


def _all_finite(values: Iterable[float]) -> bool:
    return all(math.isfinite(value) for value in values)


def _unit(orientation: Quaternion) -> Quaternion | None:
    length = math.hypot(*orientation)
    if length == 0.0 or not math.isfinite(length):
        return None
    x, y, z, w = orientation
    return x / length, y / length, z / length, w / length


def _product(left: Quaternion, right: Quaternion) -> Quaternion:
    """The rotation `right`, followed by `left`."""
    x1, y1, z1, w1 = left
    x2, y2, z2, w2 = right
    return (
        w1 * x2 + x1 * w2 + y1 * z2 - z1 * y2,
        w1 * y2 - x1 * z2 + y1 * w2 + z1 * x2,
        w1 * z2 + x1 * y2 - y1 * x2 + z1 * w2,
        w1 * w2 - x1 * x2 - y1 * y2 - z1 * z2,
    )


def _direction(x: float, y: float, z: float) -> tuple[float, float]:
    """Yaw and pitch of a direction, x forward, y to the left, z up."""
    return -math.degrees(math.atan2(y, x)), math.degrees(math.atan2(z, math.hypot(x, y)))
