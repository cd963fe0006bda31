"""Recordings of bags of ROS 2, without ROS."""

from __future__ import annotations

import contextlib
import os
from collections import Counter, defaultdict
from dataclasses import dataclass
from typing import TYPE_CHECKING, Any, Literal

from . import _zorvel
from .recordings import raise_with

if TYPE_CHECKING:
    from . import rep155
    from .rosbag2 import Bag

ROBOT_FRAMES = ("sellion_link", "eyes_link", "head_front_camera_link", "head_camera_link",
                "CameraTop_frame", "camera_link")
"""Frames with x forward that are looked for, in this order: those of a robot's eyes, of a camera in its
head, and of its only camera."""

_SECOND = 1_000_000_000
_SEARCHED = 10 * _SECOND  # after the first face; the rest only if no usual frame is there
_OF_PEOPLE = ("face", "gaze", "head", "body", "voice", "person")
_MOST_TOLD = 50


@dataclass(frozen=True)
class BagTopic:
    """A topic, or all topics that differ only in an id."""

    #: With <id> in place of an id.
    name: str
    messages: int
    #: Messages a second.
    rate: float


@dataclass(frozen=True)
class BagFacts:
    """What an import of a bag made."""

    #: From the bag's start to the last message that was read.
    seconds: float
    #: The robot's frame.
    robot_frame: str
    #: What was read.
    topics: list[BagTopic]
    #: How many people there are.
    people: int
    #: By the number of each, who it is in the bag: ids of persons, or one like "face a1b2c".
    ids: dict[int, list[str]]
    #: How many observations.
    observations: int
    #: How many of these have each field, spelt in Python's way.
    fields: dict[str, int]
    #: How much was received and not used, by reason.
    left_out: dict[str, int]
    #: Topics about people that have no counterpart.
    unread_topics: list[str]
    #: What looks wrong, a sentence each.
    doubts: list[str]
    #: What could not be read, with its place.
    faults: list[str]


class _Frames:
    """The frames of a bag, and which of them faces are in."""

    def __init__(self) -> None:
        self._links: dict[str, set[str]] = defaultdict(set)
        self._faces: dict[str, Counter[str]] = defaultdict(Counter)
        self.first_face: int | None = None

    def add(self, time: int, topic: str, message: Any) -> None:
        for transform in message.transforms:
            parent, child = transform.header.frame_id.lstrip("/"), transform.child_frame_id.lstrip("/")
            self._links[parent].add(child)
            self._links[child].add(parent)
            if topic == "/tf" and child.startswith("face_"):
                self._faces[parent][child] += 1
                self.first_face = time if self.first_face is None else self.first_face

    def usual(self) -> str | None:
        """The first of ROBOT_FRAMES that is connected with a face."""
        found = set(self._faces)
        waiting = list(found)
        while waiting:
            new = self._links[waiting.pop()] - found
            found |= new
            waiting += new
        return next((frame for frame in ROBOT_FRAMES if frame in found), None)

    def __str__(self) -> str:
        of_robot = [frame for frame in sorted(self._links) if frame.partition("_")[0] not in _OF_PEOPLE]
        told = [f"{frame} ({len(self._faces[frame])} faces, {self._faces[frame].total()} poses)"
                if frame in self._faces else f"{frame} (0 faces)"
                for frame in sorted(of_robot, key=lambda frame: frame not in self._faces)[:_MOST_TOLD]]
        return ", ".join(told)


def _find_robot_frame(path: str | os.PathLike[str]) -> str:
    """A frame of a usual name; "" where no face has a pose, which takes none."""
    from .rosbag2 import Bag

    frames = _Frames()
    has_looked = False
    for time, topic, message in Bag(path).messages(
            lambda topic, kind: topic in ("/tf", "/tf_static") and kind.endswith("/TFMessage")):
        with contextlib.suppress(AttributeError, TypeError):  # its layout may be anything
            frames.add(time, topic, message)
        if not has_looked and frames.first_face is not None and time > frames.first_face + _SEARCHED:
            has_looked = True
            if usual := frames.usual():
                return usual
    if frames.first_face is None:
        return ""
    if usual := frames.usual():
        return usual
    raise _zorvel.DataError(
        f"{os.fsdecode(path)}: which is the robot's frame? Faces are connected with none of the usual "
        f"names ({', '.join(ROBOT_FRAMES)}). Name one at its eyes: --robot-frame where x is forward, "
        f"--optical-frame where z is. There are: {frames}")


def _write(source: Bag, people: rep155.People, output: str | os.PathLike[str],
           cycle: float) -> tuple[set[int], int, int]:
    """Writes the recording, unless nobody is in it: its persons, how many observations, and the last time."""
    from .rep155 import moment

    persons: set[int] = set()
    observations = latest = 0
    recording: _zorvel.Recording | None = None
    with contextlib.ExitStack() as stack:

        def write(events: list[_zorvel.Event]) -> None:
            nonlocal observations, recording
            if events and recording is None:
                recording = stack.enter_context(_zorvel.Recording(
                    output, "bag", None if source.start is None else moment(source.start)))
            for event in events:
                assert recording is not None and event.person is not None
                recording.write(event)
                if event.kind == "observation":
                    observations += 1
                    persons.add(event.person)
                elif event.kind == "rename":
                    persons.discard(event.person)

        for time, topic, message in source.messages(people.takes):
            latest = max(time, latest)
            write(people.receive(topic, message, time))
        if source.read:
            write(people.advance(latest + round(cycle * _SECOND)))
    return persons, observations, latest


def import_bag(bag: str | os.PathLike[str], output: str | os.PathLike[str], *,
               robot_frame: str | None = None, optical_frame: str | None = None, cycle: float = 0.1,
               hold: float = 1.0, removal: float = 3.0,
               full_intensity: float | None = None,
               gaze: Literal["auto", "always", "never"] = "auto",
               gender_true: rep155.Gender | None = None) -> BagFacts:
    """Turns what REP-155 says of people in a bag of ROS 2, a folder or a file, into a recording.

    `robot_frame` is the frame at the robot's eyes, which has x forward; without it, one of ROBOT_FRAMES
    is looked for. `optical_frame`, in its place, is one with z forward, like that of a camera's
    picture. The rest is as for rep155.People. Second 0 is the bag's start. When something cannot be
    read, a DataError is raised after the rest is imported, with the BagFacts as its `results`.
    """
    if robot_frame is not None and optical_frame not in (None, robot_frame):
        raise ValueError("the robot has one frame: robot_frame or optical_frame")
    from . import rep155
    from .rosbag2 import Bag

    source = Bag(bag)
    _zorvel.require_distinct([os.fspath(file) for file in source.files], output)
    frame = optical_frame or robot_frame or _find_robot_frame(bag)
    people = rep155.People(frame, optical=optical_frame is not None, cycle=cycle, hold=hold,
                           removal=removal, full_intensity=full_intensity or rep155.FULL_INTENSITY,
                           gaze=gaze, gender_true=gender_true)
    persons, observations, latest = _write(source, people, output, cycle)
    if not observations:
        why = "".join(f"\n{fault}" for fault in source.faults)
        raise _zorvel.DataError(f"{os.fsdecode(bag)}: nobody was found in it{why}")

    start = source.start or 0
    seconds = (latest - start) / _SECOND
    by_pattern: Counter[str] = Counter()
    for topic, count in source.read.items():
        by_pattern[rep155.topic_pattern(topic)] += count
    unread = {rep155.topic_pattern(topic) for topic, kind in source.topics.items()
              if topic.startswith("/humans/") and not people.takes(topic, kind)}
    is_optical = optical_frame is not None
    facts = BagFacts(
        seconds, frame, [BagTopic(name, count, count / seconds if seconds > 0.0 else 0.0)
                         for name, count in sorted(by_pattern.items())],
        len(persons), {number: ids for number, ids in people.ids().items() if number in persons},
        observations, dict(people.fields),
        dict(source.left_out + people.left_out), sorted(unread),
        doubts(frame, people.face_frames, people.fields["head_posture"], people.rolled,
               optical=is_optical, advice=f"Then it is {'a --robot-frame' if is_optical else 'an --optical-frame'}"),
        source.faults)
    if facts.faults:
        raise_with(_zorvel.DataError("\n".join(facts.faults)), facts)
    return facts


def doubts(frame: str, face_frames: Counter[str], postures: int, rolled: int, *, optical: bool,
           advice: str) -> list[str]:
    """What looks wrong with the robot's frame, from what People counted; advice where another axis is forward."""
    found = []
    if not face_frames:
        found.append("no posture: no transform in /tf is of a frame face_<id>")
    elif not postures:
        told = ", ".join(f"{count} in {parent}" for parent, count in face_frames.most_common(5))
        found.append(f"no posture: is {frame} the robot's frame? Poses of faces were given {told}")
    if 2 * rolled > postures:
        found.append(f"{rolled} of {postures} heads are rolled by more than 45°: "
                     f"does {frame} have {'x' if optical else 'z'} forward? {advice}")
    return found
