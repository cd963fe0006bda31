"""What the messages of a robot about people said last, by face, body, voice and frame."""

from __future__ import annotations

import re
from collections import Counter
from collections.abc import Callable, Mapping
from dataclasses import dataclass, field
from typing import Any, NamedTuple

from .._zorvel import Observation
from ..transforms import Transforms
from .fields import (
    Gender,
    action_units,
    age,
    expressions_from_action_units,
    expressions_from_name,
    facial_points,
    gender,
    smile_from_action_units,
)
from .person_numbers import PersonNumbers

SECOND = 1_000_000_000
_MEMORY = 7 * SECOND
"""What the estimator remembers. A stamp farther from the receipt is of another clock."""
MOST_IDS = 10_000
"""So many people and faces who are gone keep their numbers."""
_MOST_TRACKED = 1000
COPIES = 3
"""In so many cycles running a gaze is that of the head, and then it is a copy."""

_Member = tuple[str, str]


def topic_pattern(topic: str) -> str:
    """A topic without its id: /humans/faces/<id>/facs."""
    return re.sub(r"^(/humans/(?:faces|bodies|voices|persons))/[^/]+/", r"\1/<id>/", topic)


class Value(NamedTuple):
    """The last message of a topic."""

    value: Any
    time: int
    """When it was measured."""
    received: int


class Frame(NamedTuple):
    """A pose that was given to tf, to be looked up when it is needed."""

    stamp: int
    time: int
    received: int


@dataclass
class Face:
    name: str
    appeared: int
    received: int
    """When anything was last heard of it."""
    is_seen: bool = True
    is_tracked: bool = False
    """/humans/faces lists it; it is not known from a frame alone."""
    values: dict[str, Value] = field(default_factory=dict)
    frame: Frame | None = None
    posture: tuple[Value, Value] | None = None
    """Head posture and distance, once they are found for `frame`."""
    gaze_frame: Frame | None = None
    gaze: Value | None = None
    copies: int = COPIES
    """How many cycles running, up to `COPIES`, the gaze has been that of the head."""


@dataclass
class Sighting:
    """What there is of a person in a cycle."""

    person: str
    faces: list[Face] = field(default_factory=list)
    body: str | None = None
    head: Frame | None = None
    """Of the body."""
    look: Value | None = None
    """Whether the person looks at the robot."""


class Messages:
    """What was said last, from which `People` makes events; times are those of receipt."""

    def __init__(self, transforms: Transforms, hold: int, removal: int, full_intensity: float,
                 gender_true: Gender | None) -> None:
        self._full_intensity, self._gender_true = full_intensity, gender_true
        self._hold, self._removal = hold, removal
        self._transforms = transforms
        self._faces: dict[str, Face] = {}
        self._faces_are_listed = False
        self._heard: dict[_Member, int] = {}  # bodies and voices, with when they were tracked last
        self._heads: dict[str, Frame] = {}  # of bodies
        self._owners: dict[_Member, str] = {}  # the persons of faces, bodies and voices
        self._faces_have_owners = False
        self._looks: dict[int, Value] = {}
        self._numbers = PersonNumbers()
        self._renamed: list[tuple[int, int]] = []
        self.left_out: Counter[str] = Counter()
        """What was received and not used, by reason."""
        self.face_frames: Counter[str] = Counter()
        """How many poses of faces were given in each frame."""

    def receive(self, topic: str, message: Any, received: int) -> None:
        """Takes a message."""
        pattern = topic_pattern(topic)
        of_whom = topic.split("/")[3] if "<id>" in pattern else ""
        try:
            if pattern in TOPICS:
                TOPICS[pattern][1](self, message, of_whom, received)
            elif hasattr(message, "sender") and hasattr(message, "receiver"):
                self._receive_gaze(message, received)
            else:
                self.left_out[f"no counterpart: {pattern}"] += 1
        except (ArithmeticError, AttributeError, TypeError, ValueError):
            self.left_out[f"not what belongs there: {pattern}"] += 1

    def anybody(self) -> bool:
        """Whether there is a face, a body or a voice."""
        return bool(self._faces or self._heard)

    def sightings(self, time: int) -> dict[int, Sighting]:
        """What there is at this time, by number of the person."""
        seen: dict[int, Sighting] = {}

        def sighting(person: str) -> Sighting:
            number = self._numbers.number(person)
            found = seen.setdefault(number, Sighting(person, look=self._looks.get(number)))
            found.person = person
            return found

        for face_id, face in list(self._faces.items()):
            since = time - face.received
            if since > self._removal:
                del self._faces[face_id]
            elif (face.is_seen and since <= self._hold
                  and (face.is_tracked or not self._faces_are_listed)):
                person = self._owners.get(("face", face_id), unnamed_person(face_id))
                may_be_named_soon = (
                    self._faces_have_owners and person[0] == "/"
                    and self._numbers.known(person) is None and time - face.appeared <= self._hold)
                if not may_be_named_soon:
                    sighting(person).faces.append(face)
        for (kind, member), last in list(self._heard.items()):
            if time - last > self._hold:
                del self._heard[kind, member]
                if kind == "body":
                    self._heads.pop(member, None)
            elif (owner := self._owners.get((kind, member))) is not None:
                found = sighting(owner)
                if kind == "body":
                    found.body, found.head = member, self._heads.get(member)
        return seen

    def take_renamed(self) -> list[tuple[int, int]]:
        """The numbers that people had and have, of those who got another since the last call."""
        renamed, self._renamed = self._renamed, []
        return renamed

    def ids(self) -> dict[int, list[str]]:
        """The ids of each number."""
        return self._numbers.ids()

    def lose(self, number: int) -> None:
        """Somebody has gone; what they were looking at says nothing any more."""
        self._looks.pop(number, None)

    def forget(self, person: str) -> None:
        """Somebody has been gone for so long that they would get another number."""
        self._numbers.forget(person)

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

    def _face(self, face_id: str, received: int, *, is_tracked: bool) -> Face:
        face = self._faces.get(face_id)
        if face is None:
            face = self._faces[face_id] = Face(face_id, received, received)
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
                face.values[name] = Value(value, time, received)

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
            frame = Frame(stamp or received, self._believed(stamp, received), received)
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
        listed = {(kind, member): received for member in _listed(message)}
        self._heard = {member: last for member, last in self._heard.items() if member[0] != kind} | listed
        self._heads = {body: head for body, head in self._heads.items() if ("body", body) in self._heard}

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
        number = self._numbers.known(sender) or self._numbers.known(unnamed_person(sender))
        if number is None:
            self.left_out["gazes of nobody who is known"] += 1
        else:
            self._looks[number] = Value(message.receiver == "", self._time_of(message, received), received)

    def _own(self, kind: str, message: Any, person: str) -> None:
        """Gives a face, body or voice to a person; an empty id takes none away."""
        member = (kind, str(message.data))
        if not message.data or self._owners.get(member) == person:
            return
        self._faces_have_owners |= kind == "face"
        self._owners.pop(member, None)
        self._owners[member] = person
        if len(self._owners) > MOST_IDS:
            del self._owners[next(iter(self._owners))]
        alone = unnamed_person(member[1])
        if kind == "face" and self._numbers.known(alone):
            self._rename(self._numbers.alias(alone, person))
            self._numbers.drop(alone)

    def _rename(self, numbers: tuple[int, int] | None) -> None:
        if numbers is not None:
            self._renamed.append(numbers)


# What is read, with the types of messages; Gaze is read on any topic.
TOPICS: Mapping[str, tuple[str, Callable[[Messages, Any, str, int], None]]] = {
    "/tf": ("TFMessage", lambda messages, message, _, time:
            messages._receive_transforms(message, time, fixed=False)),
    "/tf_static": ("TFMessage", lambda messages, message, _, time:
                   messages._receive_transforms(message, time, fixed=True)),
    "/humans/faces/tracked": ("IdsList", lambda messages, message, _, time:
                              messages._receive_faces(message, time)),
    "/humans/bodies/tracked": ("IdsList", lambda messages, message, _, time:
                               messages._receive_heard("body", message, time)),
    "/humans/voices/tracked": ("IdsList", lambda messages, message, _, time:
                               messages._receive_heard("voice", message, time)),
    "/humans/faces/<id>/expression": ("Expression", Messages._receive_expression),
    "/humans/faces/<id>/facs": ("FacialActionUnits", Messages._receive_action_units),
    "/humans/faces/<id>/landmarks": ("FacialLandmarks", Messages._receive_landmarks),
    "/humans/faces/<id>/softbiometrics": ("SoftBiometrics", Messages._receive_soft_biometrics),
    "/humans/persons/<id>/face_id": ("String", lambda messages, message, person, _:
                                     messages._own("face", message, person)),
    "/humans/persons/<id>/body_id": ("String", lambda messages, message, person, _:
                                     messages._own("body", message, person)),
    "/humans/persons/<id>/voice_id": ("String", lambda messages, message, person, _:
                                      messages._own("voice", message, person)),
    "/humans/persons/<id>/alias": ("String", lambda messages, message, person, _:
                                   messages._rename(messages._numbers.alias(person, str(message.data)))),
}


def unnamed_person(face_id: str) -> str:
    """The id of a person of whom a face is all that is known; no id of ROS has a slash."""
    return "/" + face_id


def _listed(message: Any) -> list[str]:
    """The ids of an IdsList; ValueError for a crowd that no robot sees."""
    if len(message.ids) > _MOST_TRACKED:
        raise ValueError
    return [str(listed) for listed in message.ids]


def _nanoseconds(stamp: Any) -> int:
    """A time of ROS 2, or else of ROS 1."""
    if hasattr(stamp, "nanosec"):
        return int(stamp.sec) * SECOND + int(stamp.nanosec)
    return int(stamp.secs) * SECOND + int(stamp.nsecs)
