"""What ROS REP-155 (`hri_msgs`) says of people, as observations. Nothing here needs ROS.

`People` makes the events of a recording from the messages of a robot. The functions above it are for
plain values: what one returns is the value of one field of an observation. It is None when the
message cannot give that field: leave the field out then. Numbers that are not finite count as
absent, and confidences are held to 0 to 1.

Angles are in degrees, as everywhere in zorvel: a positive pitch is up, a negative yaw is to the
person's own left, a positive roll brings the head towards the person's own left shoulder. (0, 0)
is straight at the robot.
"""

from __future__ import annotations

import math
import re
from collections import Counter
from collections.abc import Callable, Iterable, Mapping, Sequence
from dataclasses import dataclass, field
from enum import IntEnum
from typing import TYPE_CHECKING, Any, Literal, NamedTuple, TypeAlias

from ._zorvel import Event, Observation, Reading
from .transforms import Quaternion, Transforms, Vector, inverse, product, rotated, unit

if TYPE_CHECKING:
    import numpy

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
"""zorvel's face points by the usual numbering of 68 landmarks from 0, which hri_msgs/FacialLandmarks
has, too. Right is the person's there; in zorvel left and right are the picture's, so that the person's
right eye, 36 to 41, is the left one."""


def facial_points(
    landmarks: Sequence[Landmark], width: float, height: float
) -> dict[int, Landmark] | None:
    """The face points (x, y, confidence), in pixels, from the usual 68 landmarks in their order.

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
        and the one that stays, for `SocialGraph.rename`, or `Event.rename` after the time; None
        where nothing is given up: one of them had no number yet, or both the same, as when a latched
        message comes again. The empty alias of somebody who has none gives None, too.

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
        known = [name for name in (person, alias) if name in self._numbers]
        if len(known) < 2:
            self._numbers[person] = self._numbers[alias] = self.number(known[0] if known else person)
            return None
        older, newer = sorted((self.number(person), self.number(alias)))
        if older == newer:
            return None
        self._numbers = {name: older if number == newer else number
                         for name, number in self._numbers.items()}
        return newer, older

    def drop(self, person: str) -> None:
        """The id is nobody's any more; the others with its number keep it."""
        self._numbers.pop(person, None)

    def known(self, person: str) -> int | None:
        """The number of a person, if the id has one."""
        return self._numbers.get(person)

    def ids(self) -> dict[int, list[str]]:
        """The ids of each number."""
        found: dict[int, list[str]] = {}
        for person, number in self._numbers.items():
            found.setdefault(number, []).append(person)
        return found

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
    a gaze, reaches it."""
    disengaging_below: float = 0.6
    """The attention below which one who is engaged no longer is."""
    engaging_from: float = 0.4
    """The attention from which on one who is disengaged no longer is."""
    disengaged_below: float = 0.3
    """The attention below which a person is disengaged; such a head reaches it at 27°."""
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


def _direction(x: float, y: float, z: float) -> tuple[float, float]:
    """Yaw and pitch of a direction, x forward, y to the left, z up."""
    return -math.degrees(math.atan2(y, x)), math.degrees(math.atan2(z, math.hypot(x, y)))


def topic_pattern(topic: str) -> str:
    """A topic without its id: /humans/faces/<id>/facs."""
    return re.sub(r"^(/humans/(?:faces|bodies|voices|persons))/[^/]+/", r"\1/<id>/", topic)


class _Value(NamedTuple):
    """The last message of a topic."""

    value: Any
    time: int
    """When it was measured."""
    received: int


class _Frame(NamedTuple):
    """A pose that was given to tf, to be looked up when it is needed."""

    stamp: int
    time: int
    received: int


@dataclass
class _Face:
    name: str
    appeared: int
    received: int
    """When anything was last heard of it."""
    is_seen: bool = True
    is_tracked: bool = False
    """/humans/faces lists it; it is not known from a frame alone."""
    values: dict[str, _Value] = field(default_factory=dict)
    frame: _Frame | None = None
    posture: tuple[_Value, _Value] | None = None
    """Head posture and distance, once they are found for `frame`."""
    gaze_frame: _Frame | None = None
    gaze: _Value | None = None
    copies: int = 3
    """How many cycles running the gaze has been that of the head; it is taken to be, at first."""


_SECOND = 1_000_000_000
_MEMORY = 7 * _SECOND
"""What the estimator remembers. A stamp farther from the receipt is of another clock."""
_MOST_IDS = 10_000
"""So many people and faces who are gone keep their numbers."""
_MOST_TRACKED = 1000
_COPIES = 3
_NEW_BY_TIME = ("expressions", "named_expressions", "smile")
"""The estimator takes these for new, and believes them, only if their time is not that of before. When
they are repeated, their time is later by a nanosecond a cycle, which no age shows."""
_FARTHEST = 1e9  # metres
_LATEST_DOUBTFUL = 4_000_000 * _SECOND  # in 1970
_SAME_DIRECTION = math.cos(math.radians(1.0))
_AXES = ((0.0, 0.0, 1.0), (1.0, 0.0, 0.0))
# x forward in a frame that has z forward.
_FORWARD_OF_OPTICAL: Quaternion = (0.5, -0.5, 0.5, 0.5)

_Member = tuple[str, str]


class People:
    """Events of a recording, once a cycle, from the messages of a robot about people.

    Messages are what rospy, rclpy or a bag gives: anything with their attributes, of hri_msgs from
    0.6.0 to 2.0.0. Times are nanoseconds since 1970 and come from the caller; the same messages with
    the same times give the same events. Cycles are at the whole multiples of `cycle` since 1970, and
    give what was received before.

    `robot_frame` is the frame that is to be at the robot's eyes, with x forward; `optical` says that
    it has z forward, as cameras do. Lengths of time are in seconds. What a topic said last is given in
    each cycle, with its own time, until it was received more than `hold` ago. A person not seen for more
    than `removal` is removed. `gaze` says which frames `gaze_<id>` are gazes: "auto" those that are not
    a copy of the head's direction (within 1 degree in three cycles running), "always" or "never".
    `gender_true` is the gender that is true for zorvel; without it, none is given.
    """

    def __init__(self, robot_frame: str, *, optical: bool = False, cycle: float = 0.1,
                 hold: float = 1.0, removal: float = 3.0, full_intensity: float = FULL_INTENSITY,
                 gaze: Literal["auto", "always", "never"] = "auto",
                 gender_true: Gender | None = None) -> None:
        if not (0.001 <= cycle <= 60.0 and 0.0 < hold < 1e6 and 0.0 < removal < 1e6
                and 0.0 < full_intensity < math.inf):
            raise ValueError("a cycle takes from 1 ms to 60 s, and the others are above 0")
        self._cycle_length, self._hold, self._removal = (
            round(seconds * _SECOND) for seconds in (cycle, hold, removal))
        self._full_intensity, self._gaze, self._gender_true = full_intensity, gaze, gender_true
        self._transforms = Transforms(self._hold)
        self._robot_frame = robot_frame.lstrip("/")
        if optical:
            forward = self._robot_frame + " with x forward"
            self._transforms.add(self._robot_frame, forward, 0, (0.0, 0.0, 0.0), _FORWARD_OF_OPTICAL,
                                 fixed=True)
            self._robot_frame = forward
        self._now: int | None = None
        self._next = 0
        self._faces: dict[str, _Face] = {}
        self._faces_are_listed = False
        self._heard: dict[_Member, int] = {}  # bodies and voices, with when they were tracked last
        self._heads: dict[str, _Frame] = {}  # of bodies
        self._owners: dict[_Member, str] = {}  # the persons of faces, bodies and voices
        self._faces_have_owners = False
        self._looks: dict[int, _Value] = {}
        self._numbers = PersonNumbers()
        self._known: dict[int, tuple[int, str]] = {}  # when last seen, and an id
        self._gone: dict[int, str] = {}
        self._renamed: list[tuple[int, int]] = []
        self.left_out: Counter[str] = Counter()
        """What was received and not used, by reason."""
        self.face_frames: Counter[str] = Counter()
        """How many poses of faces were given in each frame."""
        self.fields: Counter[str] = Counter()
        """How many observations have each field."""
        self.rolled = 0
        """In how many of these the head is rolled by more than 45 degrees, as where another axis is forward."""

    @staticmethod
    def takes(topic: str, kind: str) -> bool:
        """Whether messages of a type, like hri_msgs/msg/Gaze, are to be received from a topic."""
        name = kind.rpartition("/")[2]
        return name == "Gaze" or _TOPICS.get(topic_pattern(topic), ("",))[0] == name

    def receive(self, topic: str, message: Any, time: int) -> list[Event]:
        """Takes a message, received at `time`, and returns the events of the cycles before it."""
        events = self.advance(time)
        assert self._now is not None
        pattern = topic_pattern(topic)
        of_whom = topic.split("/")[3] if "<id>" in pattern else ""
        try:
            if pattern in _TOPICS:
                _TOPICS[pattern][1](self, message, of_whom, self._now)
            elif hasattr(message, "sender") and hasattr(message, "receiver"):
                self._receive_gaze(message, self._now)
            else:
                self.left_out[f"no counterpart: {pattern}"] += 1
        except (ArithmeticError, AttributeError, TypeError, ValueError):
            self.left_out[f"not what belongs there: {pattern}"] += 1
        return events

    def advance(self, time: int) -> list[Event]:
        """The events of the cycles up to `time`. Time does not run backwards: the latest one counts."""
        events: list[Event] = []
        if self._now is None:
            self._now = time
            self._next = (time // self._cycle_length + 1) * self._cycle_length
        now = self._now = max(self._now, time)
        while self._next <= now:
            if not (self._known or self._faces or self._heard):
                self._next = (now // self._cycle_length + 1) * self._cycle_length
                break
            events += self._cycle(self._next)
            self._next += self._cycle_length
        return events

    def ids(self) -> dict[int, list[str]]:
        """Who has which number: ids of persons or, where only a face is known, one like "face a1b2c"."""
        return {number: [re.sub("^/", "face ", name) for name in names]
                for number, names in self._numbers.ids().items()}

    def present(self) -> dict[int, list[str]]:
        """The `ids` of those who are not removed."""
        return {number: [re.sub("^/", "face ", name) for name in names]
                for number, names in self._numbers.ids().items() if number in self._known}

    def _time_of(self, message: Any, received: int) -> int:
        """When something was measured: the stamp of its header, where that can be."""
        stamp = _nanoseconds(message.header.stamp) if hasattr(message, "header") else 0
        return self._believed(stamp, received)

    def _believed(self, stamp: int, received: int) -> int:
        if stamp == 0:
            return received
        if abs(stamp - received) > _MEMORY:
            self.left_out["stamps of another clock, in place of which the time of receipt counts"] += 1
            return received
        return min(stamp, received)

    def _face(self, face_id: str, received: int, *, is_tracked: bool) -> _Face:
        face = self._faces.get(face_id)
        if face is None:
            face = self._faces[face_id] = _Face(face_id, received, received)
        face.received, face.is_seen = received, True
        face.is_tracked |= is_tracked
        return face

    def _put(self, message: Any, face_id: str, received: int, **values: Any) -> None:
        """Keeps the values of a face; None takes back what was said before."""
        face = self._face(face_id, received, is_tracked=True)
        time = self._time_of(message, received)
        for name, value in values.items():
            face.values.pop(name, None)
            if value is not None:
                Observation(**{name.removeprefix("named_"): value})  # throws where it does not fit
                face.values[name] = _Value(value, time, received)

    def _receive_transforms(self, message: Any, received: int, *, fixed: bool) -> None:
        for transform in message.transforms:
            stamp = _nanoseconds(transform.header.stamp)
            parent, child = transform.header.frame_id.lstrip("/"), transform.child_frame_id.lstrip("/")
            moved, turned = transform.transform.translation, transform.transform.rotation
            position = (moved.x, moved.y, moved.z)
            usable = self._transforms.add(parent, child, stamp or received, position,
                                          (turned.x, turned.y, turned.z, turned.w), fixed=fixed)
            kind, _, of_whom = child.partition("_")
            if not usable:
                self.left_out["transforms that are not finite, without a rotation, or to themselves"] += 1
            if fixed:  # a frame of the robot, whatever it is called
                continue
            frame = _Frame(stamp or received, self._believed(stamp, received), received)
            if kind == "face" and of_whom:
                face = self._face(of_whom, received, is_tracked=False)
                face.frame = face.posture = None
                self.face_frames[parent] += 1
                if position == (0.0, 0.0, 0.0):
                    self.left_out["poses of faces at 0, 0, 0"] += 1
                elif usable:
                    face.frame = frame
            elif kind == "gaze" and usable and of_whom in self._faces:
                self._faces[of_whom].gaze_frame, self._faces[of_whom].gaze = frame, None
            elif kind == "head" and usable and ("body", of_whom) in self._heard:
                self._heads[of_whom] = frame

    def _receive_faces(self, message: Any, received: int) -> None:
        self._faces_are_listed = True
        ids = dict.fromkeys(_listed(message))
        for face_id in ids:
            self._face(face_id, received, is_tracked=True)
        for face_id, face in self._faces.items():
            if face_id not in ids:
                face.is_seen = False

    def _receive_heard(self, kind: str, message: Any, received: int) -> None:
        self._heard = {member: time for member, time in self._heard.items() if member[0] != kind}
        self._heard.update({(kind, member): received for member in _listed(message)})

    def _receive_expression(self, message: Any, face_id: str, received: int) -> None:
        shown = expressions_from_name(message.expression, message.confidence)
        if shown is None:
            self.left_out["expressions without a counterpart"] += 1
        self._put(message, face_id, received, named_expressions=shown)

    def _receive_action_units(self, message: Any, face_id: str, received: int) -> None:
        units = action_units(message.intensity, message.confidence)
        shown = expressions_from_action_units(units, self._full_intensity)
        if shown is None:
            self.left_out["action units without all that expressions take"] += 1
        self._put(message, face_id, received, expressions=shown,
                  smile=smile_from_action_units(units, self._full_intensity))

    def _receive_landmarks(self, message: Any, face_id: str, received: int) -> None:
        landmarks = [(point.x, point.y, point.c) for point in message.landmarks]
        self._put(message, face_id, received,
                  facial_points=facial_points(landmarks, message.width, message.height))

    def _receive_soft_biometrics(self, message: Any, face_id: str, received: int) -> None:
        which = None
        if self._gender_true is not None:
            which = gender(message.gender, message.gender_confidence, true_for=self._gender_true)
        self._put(message, face_id, received, gender=which,
                  age=age(message.age, message.age_confidence))

    def _receive_gaze(self, message: Any, received: int) -> None:
        sender = self._owners.get(("face", str(message.sender)), str(message.sender))
        number = self._numbers.known(sender) or self._numbers.known(_alone(sender))
        if number is None:
            self.left_out["gazes of nobody who is known"] += 1
        else:
            self._looks[number] = _Value(message.receiver == "", self._time_of(message, received), received)

    def _own(self, kind: str, message: Any, person: str) -> None:
        """Gives a face, body or voice to a person; an empty id takes none away."""
        member = (kind, str(message.data))
        if not message.data or self._owners.get(member) == person:
            return
        self._faces_have_owners |= kind == "face"
        self._owners.pop(member, None)
        self._owners[member] = person
        if len(self._owners) > _MOST_IDS:
            del self._owners[next(iter(self._owners))]
        alone = _alone(member[1])
        if kind == "face" and self._numbers.known(alone):
            self._rename(self._numbers.alias(alone, person))
            self._numbers.drop(alone)

    def _rename(self, numbers: tuple[int, int] | None) -> None:
        if numbers is not None:
            self._renamed.append(numbers)

    def _cycle(self, time: int) -> list[Event]:
        seen: dict[int, list[_Face]] = {}
        ids: dict[int, str] = {}
        bodies: dict[int, str] = {}
        for face_id, face in list(self._faces.items()):
            since = time - face.received
            if since > self._removal:
                del self._faces[face_id]
            elif (face.is_seen and since <= self._hold
                  and (face.is_tracked or not self._faces_are_listed)):
                person = self._owners.get(("face", face_id), _alone(face_id))
                if (self._faces_have_owners and self._numbers.known(person) is None
                        and person[0] == "/" and time - face.appeared <= self._hold):
                    continue  # its person may be named soon
                number = self._numbers.number(person)
                ids[number] = person
                seen.setdefault(number, []).append(face)
        for member, last in list(self._heard.items()):
            if time - last > self._hold:
                del self._heard[member]
                self._heads.pop(member[1], None)
            elif member in self._owners:
                person = self._owners[member]
                number = self._numbers.number(person)
                ids[number] = person
                seen.setdefault(number, [])
                if member[0] == "body":
                    bodies[number] = member[1]

        events: list[Event] = []
        for number, to in self._renamed:
            self._gone.pop(number, None)
            if number in self._known:
                events.append(Event.rename(moment(time), number, to))
                self._known[to] = max(self._known.pop(number), self._known.get(to, (0, "")))
        self._renamed.clear()
        for number in sorted({*self._known, *seen}):
            if number in seen:
                self._known[number] = (time, ids[number])
                self._gone.pop(number, None)
                fields = self._observation(time, number, seen[number], bodies.get(number))
                events.append(Event.observation(moment(time), number, fields))
            elif time - self._known[number][0] <= self._removal:
                events.append(Event.not_seen(moment(time), number))
            else:
                self._gone[number] = self._known.pop(number)[1]
                self._looks.pop(number, None)
                events.append(Event.remove(moment(time), number))
                if len(self._gone) > _MOST_IDS:
                    self._numbers.forget(self._gone.pop(next(iter(self._gone))))
        return events

    def _observation(self, time: int, number: int, faces: list[_Face], body: str | None) -> Observation:
        values: dict[str, _Value] = {}
        for face in sorted(faces, key=lambda face: face.received):
            values.update(face.values)
            self._look_up(face, time)
            if face.posture is not None:
                values["head_posture"], values["distance"] = face.posture
            if face.gaze is not None and (self._gaze == "always" or face.copies < _COPIES):
                values["gaze"] = face.gaze
        if body is not None and body in self._heads and "distance" not in values:
            head = self._heads[body]
            pose = self._transforms.find(f"head_{body}", self._robot_frame, head.stamp)
            if pose is not None and 0.0 < (distance := math.hypot(*pose.position)) < _FARTHEST:
                values["distance"] = _Value(distance, head.time, head.received)
        if number in self._looks:
            values["looking_at_robot"] = self._looks[number]
        held = {}
        for name, value in values.items():
            if time - value.received <= self._hold:
                measured = value.time
                if name in _NEW_BY_TIME:
                    measured += (time - value.received - 1) // self._cycle_length
                held[name] = Reading(value.value, moment(measured))
        if "named_expressions" in held:
            held["expressions"] = held.pop("named_expressions")
        if "expressions" not in held and held.pop("smile", None) is not None:
            self.left_out["smiles without expressions, which would count as negative"] += 1
        if faces:
            held["face_detected"] = Reading(True, moment(time))
        if "head_posture" in held:
            self.rolled += abs(values["head_posture"].value[2]) > 45.0
        self.fields.update(held.keys())
        return Observation(time=moment(time), **held)

    def _look_up(self, face: _Face, time: int) -> None:
        """Finds where the head and the gaze of a face point, as seen from the robot."""
        head, eyes = f"face_{face.name}", f"gaze_{face.name}"
        if (face.frame is not None and face.posture is None
                and time - face.frame.received <= self._hold):
            pose = self._transforms.find(head, self._robot_frame, face.frame.stamp)
            if pose is None:
                self.left_out["cycles with a pose in a frame that nothing connects with the robot's"] += 1
                return
            distance = math.hypot(*pose.position)
            posture = head_posture(seen_from_robot(*pose))
            if posture is None or not 0.0 < distance < _FARTHEST:
                self.left_out["cycles with a face at the place of the robot's frame, or nowhere"] += 1
                return
            face.posture = (_Value(posture, *face.frame[1:]), _Value(distance, *face.frame[1:]))
        if (self._gaze == "never" or face.gaze_frame is None
                or time - face.gaze_frame.received > self._hold):
            return
        stamp = face.gaze_frame.stamp
        if self._gaze == "auto":
            turned = self._transforms.find(eyes, head, stamp)
            # A copy as it stands has x forward, in place of z.
            if turned is None or _SAME_DIRECTION > max(
                    rotated(turned.orientation, axis)[0] for axis in _AXES):
                face.copies = 0
            elif face.copies < _COPIES:
                face.copies += 1
        pose = self._transforms.find(eyes, self._robot_frame, stamp) if face.gaze is None else None
        if pose is not None and (direction := gaze(seen_from_robot(*pose))) is not None:
            face.gaze = _Value(direction, *face.gaze_frame[1:])


# What is read, with the types of messages; Gaze is read on any topic.
_TOPICS: Mapping[str, tuple[str, Callable[[People, Any, str, int], None]]] = {
    "/tf": ("TFMessage", lambda people, message, _, time:
            people._receive_transforms(message, time, fixed=False)),
    "/tf_static": ("TFMessage", lambda people, message, _, time:
                   people._receive_transforms(message, time, fixed=True)),
    "/humans/faces/tracked": ("IdsList", lambda people, message, _, time:
                              people._receive_faces(message, time)),
    "/humans/bodies/tracked": ("IdsList", lambda people, message, _, time:
                               people._receive_heard("body", message, time)),
    "/humans/voices/tracked": ("IdsList", lambda people, message, _, time:
                               people._receive_heard("voice", message, time)),
    "/humans/faces/<id>/expression": ("Expression", People._receive_expression),
    "/humans/faces/<id>/facs": ("FacialActionUnits", People._receive_action_units),
    "/humans/faces/<id>/landmarks": ("FacialLandmarks", People._receive_landmarks),
    "/humans/faces/<id>/softbiometrics": ("SoftBiometrics", People._receive_soft_biometrics),
    "/humans/persons/<id>/face_id": ("String", lambda people, message, person, _:
                                     people._own("face", message, person)),
    "/humans/persons/<id>/body_id": ("String", lambda people, message, person, _:
                                     people._own("body", message, person)),
    "/humans/persons/<id>/voice_id": ("String", lambda people, message, person, _:
                                      people._own("voice", message, person)),
    "/humans/persons/<id>/alias": ("String", lambda people, message, person, _:
                                   people._rename(people._numbers.alias(person, str(message.data)))),
}


def _alone(face_id: str) -> str:
    """The id of a person of whom a face is all that is known; no id of ROS has a slash."""
    return "/" + face_id


def moment(nanoseconds: int) -> int | numpy.datetime64:
    """A time since 1970, for functions that refuse whole numbers which may be meant as seconds. Here
    they are nanoseconds, since the clock of a simulation begins at 0."""
    if _LATEST_DOUBTFUL > nanoseconds >= _SECOND:
        import numpy

        return numpy.datetime64(nanoseconds, "ns")
    return nanoseconds


def _listed(message: Any) -> list[str]:
    """The ids of an IdsList; ValueError for a crowd that no robot sees."""
    if len(message.ids) > _MOST_TRACKED:
        raise ValueError
    return [str(listed) for listed in message.ids]


def _nanoseconds(stamp: Any) -> int:
    """A time of ROS 2, or else of ROS 1."""
    if hasattr(stamp, "nanosec"):
        return int(stamp.sec) * _SECOND + int(stamp.nanosec)
    return int(stamp.secs) * _SECOND + int(stamp.nsecs)
