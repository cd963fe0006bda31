"""Events of a recording, from the messages of a robot about people."""

from __future__ import annotations

import math
import re
from collections import Counter
from typing import TYPE_CHECKING, Any, Literal

from .._zorvel import Event, Observation, Reading
from ..transforms import Quaternion, Transforms, rotated
from .fields import FULL_INTENSITY, Gender, gaze, head_posture, seen_from_robot
from .messages import COPIES, MOST_IDS, SECOND, TOPICS, Face, Messages, Sighting, Value, topic_pattern

if TYPE_CHECKING:
    import numpy

_NEW_BY_TIME = ("expressions", "named_expressions", "smile")
"""The estimator takes these for new, and believes them, only if their time is not that of before. When
they are repeated, their time is later by a nanosecond a cycle, which no age shows."""
_FARTHEST = 1e9  # metres
_LATEST_DOUBTFUL = 4_000_000 * SECOND  # in 1970
_SAME_DIRECTION = math.cos(math.radians(1.0))
_AXES = ((0.0, 0.0, 1.0), (1.0, 0.0, 0.0))
# x forward in a frame that has z forward.
_FORWARD_OF_OPTICAL: Quaternion = (0.5, -0.5, 0.5, 0.5)


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
            round(seconds * SECOND) for seconds in (cycle, hold, removal))
        self._gaze = gaze
        self._transforms = Transforms(self._hold)
        self._robot_frame = robot_frame.lstrip("/")
        if optical:
            forward = self._robot_frame + " with x forward"
            self._transforms.add(self._robot_frame, forward, 0, (0.0, 0.0, 0.0), _FORWARD_OF_OPTICAL,
                                 fixed=True)
            self._robot_frame = forward
        self._now: int | None = None
        self._next = 0
        self._known: dict[int, tuple[int, str]] = {}  # when last seen, and an id
        self._gone: dict[int, str] = {}
        self._messages = Messages(self._transforms, self._hold, self._removal, full_intensity, gender_true)
        self.left_out = self._messages.left_out
        """What was received and not used, by reason."""
        self.face_frames = self._messages.face_frames
        """How many poses of faces were given in each frame."""
        self.fields: Counter[str] = Counter()
        """How many observations have each field."""
        self.rolled = 0
        """In how many of these the head is rolled by more than 45 degrees, as where another axis is forward."""

    @staticmethod
    def takes(topic: str, kind: str) -> bool:
        """Whether messages of a type, like hri_msgs/msg/Gaze, are to be received from a topic."""
        name = kind.rpartition("/")[2]
        return name == "Gaze" or TOPICS.get(topic_pattern(topic), ("",))[0] == name

    def receive(self, topic: str, message: Any, time: int) -> list[Event]:
        """Takes a message, received at `time`, and returns the events of the cycles before it."""
        events = self.advance(time)
        assert self._now is not None
        self._messages.receive(topic, message, self._now)
        return events

    def advance(self, time: int) -> list[Event]:
        """The events of the cycles up to `time`. Time does not run backwards: the latest one counts."""
        events: list[Event] = []
        if self._now is None:
            self._now = time
            self._next = (time // self._cycle_length + 1) * self._cycle_length
        now = self._now = max(self._now, time)
        while self._next <= now:
            if not (self._known or self._messages.anybody()):
                self._next = (now // self._cycle_length + 1) * self._cycle_length
                break
            events += self._cycle(self._next)
            self._next += self._cycle_length
        return events

    def ids(self) -> dict[int, list[str]]:
        """Who has which number: ids of persons or, where only a face is known, one like "face a1b2c"."""
        return {number: [re.sub("^/", "face ", name) for name in names]
                for number, names in self._messages.ids().items()}

    def present(self) -> dict[int, list[str]]:
        """The `ids` of those who are not removed."""
        return {number: names for number, names in self.ids().items() if number in self._known}

    def _cycle(self, time: int) -> list[Event]:
        seen = self._messages.sightings(time)
        events: list[Event] = []
        for number, to in self._messages.take_renamed():
            self._gone.pop(number, None)
            if number in self._known:
                events.append(Event.rename(moment(time), number, to))
                self._known[to] = max(self._known.pop(number), self._known.get(to, (0, "")))
        for number in sorted({*self._known, *seen}):
            if number in seen:
                self._known[number] = (time, seen[number].person)
                self._gone.pop(number, None)
                fields = self._observation(time, seen[number])
                events.append(Event.observation(moment(time), number, fields))
            elif time - self._known[number][0] <= self._removal:
                events.append(Event.not_seen(moment(time), number))
            else:
                self._gone[number] = self._known.pop(number)[1]
                events.append(Event.remove(moment(time), number))
                self._messages.lose(number)
                if len(self._gone) > MOST_IDS:
                    self._messages.forget(self._gone.pop(next(iter(self._gone))))
        return events

    def _observation(self, time: int, sighting: Sighting) -> Observation:
        values: dict[str, Value] = {}
        for face in sorted(sighting.faces, key=lambda face: face.received):
            values.update(face.values)
            self._look_up(face, time)
            if face.posture is not None:
                values["head_posture"], values["distance"] = face.posture
            if face.gaze is not None and (self._gaze == "always" or face.copies < COPIES):
                values["gaze"] = face.gaze
        if (head := sighting.head) is not None and "distance" not in values:
            pose = self._transforms.find(f"head_{sighting.body}", self._robot_frame, head.stamp)
            if pose is not None and 0.0 < (distance := math.hypot(*pose.position)) < _FARTHEST:
                values["distance"] = Value(distance, head.time, head.received)
        if sighting.look is not None:
            values["looking_at_robot"] = sighting.look
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
        if sighting.faces:
            held["face_detected"] = Reading(True, moment(time))
        if "head_posture" in held:
            self.rolled += abs(values["head_posture"].value[2]) > 45.0
        self.fields.update(held.keys())
        return Observation(time=moment(time), **held)

    def _look_up(self, face: Face, time: int) -> None:
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
            face.posture = (Value(posture, *face.frame[1:]), Value(distance, *face.frame[1:]))
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
            elif face.copies < COPIES:
                face.copies += 1
        pose = self._transforms.find(eyes, self._robot_frame, stamp) if face.gaze is None else None
        if pose is not None and (direction := gaze(seen_from_robot(*pose))) is not None:
            face.gaze = Value(direction, *face.gaze_frame[1:])


def moment(nanoseconds: int) -> int | numpy.datetime64:
    """A time since 1970, for functions that refuse whole numbers which may be meant as seconds. Here
    they are nanoseconds, since the clock of a simulation begins at 0."""
    if _LATEST_DOUBTFUL > nanoseconds >= SECOND:
        import numpy

        return numpy.datetime64(nanoseconds, "ns")
    return nanoseconds
