"""The values of an observation's fields, from what messages say."""

from __future__ import annotations

import math
from collections.abc import Iterable, Mapping, Sequence
from enum import IntEnum
from typing import TypeAlias

from ..transforms import Quaternion, Vector, inverse, product, unit

Estimate: TypeAlias = tuple[float, float]
"""A value and its confidence, each in 0 to 1."""

Landmark: TypeAlias = tuple[float, float, float]
"""x and y, each in 0 to 1 of the picture from its upper left corner, and a confidence."""

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

NUMBERED_EXPRESSIONS = ("neutral", "happy", "sad", "angry", "surprised", "disgusted", "scared")
"""The meaning of the numbers, from 0, that hri_msgs/Expression had in place of names before 0.7.0."""


def expressions_from_name(name: str | int, confidence: float) -> dict[str, Estimate] | None:
    """What a face shows, from the `expression` and the `confidence` of hri_msgs/Expression.

    The expression named has the value 1 and the others 0. None for a name without a counterpart
    (disgusted, scared, pleading, vulnerable, guilty, embarrassed, horrified, skeptical, suspicious,
    rejected, bored, tired, asleep, confused, excited), and for the empty one of a message that
    gives valence and arousal: zorvel makes a valence of what it perceives and takes none.

    The estimator ignores these confidences, so leave out a message that is not to be believed. It
    ignores surprise, too: a face of nothing but surprise is negative to it.
    """
    if isinstance(name, int):
        name = NUMBERED_EXPRESSIONS[name] if 0 <= name < len(NUMBERED_EXPRESSIONS) else ""
    shown = EXPRESSION_NAMES.get(name)
    if shown is None or not math.isfinite(confidence):
        return None
    held = _held(confidence)
    return {
        expression: (1.0 if expression == shown else 0.0, held)
        for expression in ("calm", "anger", "joy", "sorrow", "surprise")
    }


FULL_INTENSITY = 0.6
"""The intensity of a unit from which on it counts in full. This is an assumption, since REP-155 does
not say what intensities mean: 0 to 1 is taken for the five steps A to E of FACS, of which C, "marked",
counts in full, as it does in an import of an OpenFace file."""


def action_units(
    intensities: Iterable[float], confidences: Iterable[float]
) -> dict[int, Estimate]:
    """Intensity and confidence by FACS number, from the two arrays of hri_msgs/FacialActionUnits.

    A unit is in both at its number. One with a confidence of 0 was not measured, which says
    nothing of the face: it is left out. Throws ValueError unless both have the same length.
    """
    return {
        number: (intensity, _held(confidence))
        for number, (intensity, confidence) in enumerate(zip(intensities, confidences, strict=True))
        if math.isfinite(intensity) and 0.0 < confidence < math.inf
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

    None unless the units 1, 2, 4, 5, 6, 7, 12, 15, 23 and 26 are all there. A detector that reports
    only the active ones knows the others to be 0: add them as such. The confidence is that of the unit
    with the least. The arithmetic is that of an OpenFace import, bit for bit, which
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


LANDMARKS_OF_68 = (36, 39, 42, 45, 17, 21, 22, 26, 30, 33, 48, 54)
"""zorvel's facial points by the usual numbering of 68 landmarks from 0, which hri_msgs/FacialLandmarks
has, too. Right is the person's there; in zorvel left and right are the picture's, so that the person's
right eye, 36 to 41, is the left one."""


def facial_points(
    landmarks: Sequence[Landmark], width: float, height: float
) -> dict[int, Landmark] | None:
    """The facial points (x, y, confidence), in pixels, from the usual 68 landmarks in their order.

    More may follow, as the two pupils do in hri_msgs/FacialLandmarks. `width` and `height` are the
    picture's, in pixels. A landmark that is not finite is left out, which the estimator takes for a
    confidence of 0. None when that leaves none. Throws ValueError when there are fewer than 68.
    """
    if len(landmarks) < 68:
        raise ValueError(f"{len(landmarks)} landmarks, where 68 belong")
    used = [landmarks[landmark] for landmark in LANDMARKS_OF_68]
    points = {
        point: (x * width, y * height, _held(confidence))
        for point, (x, y, confidence) in enumerate(used)
        if math.isfinite(x) and math.isfinite(y) and math.isfinite(confidence)
    }
    return points or None


def seen_from_robot(position: Vector, orientation: Quaternion) -> Quaternion:
    """The orientation of a head or a gaze in a frame that looks from there at the robot.

    `position` and `orientation` are those of the frame `face_<id>` or `gaze_<id>` in a frame of the
    robot: x forward, y to the left, z up, with its origin where the robot's eyes would be, such as
    the camera's frame (not its optical frame, whose z is forward). The frame of the result has its
    origin in the face, x towards the robot, y horizontally to the left of somebody who looks along x,
    and z up. In it, a head that faces the robot has the orientation (0, 0, 0, 1).

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
    return product(inverse(product(yaw, pitch)), orientation)


def head_posture(orientation: Quaternion) -> tuple[float, float, float] | None:
    """Yaw, pitch and roll, in degrees, of a head in a frame that looks at the robot.

    Both frames have x forward, y to the left and z up, as REP-103 and `face_<id>` of REP-155 have;
    `seen_from_robot` gives such an orientation. Yaw and pitch say where the nose points, whatever the
    roll. In REP-103 a positive yaw is to the left, a positive pitch is down and a positive roll
    is to the right, so the three angles of the same rotation have the opposite signs there.

    Example: (0, 0, 0.259, 0.966) is a turn by 30° about z, that is to the left: (-30, 0, 0).
    """
    rotation = unit(orientation)
    if rotation is None:
        return None
    x, y, z, w = rotation
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
    rotation = unit(orientation)
    if rotation is None:
        return None
    x, y, z, w = rotation
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


def _held(value: float) -> float:
    return min(max(value, 0.0), 1.0)


def _direction(x: float, y: float, z: float) -> tuple[float, float]:
    """Yaw and pitch of a direction, x forward, y to the left, z up."""
    return -math.degrees(math.atan2(y, x)), math.degrees(math.atan2(z, math.hypot(x, y)))
