"""A robot's node, but for its plumbing: messages of REP-155 in, states of people out. Nothing here needs ROS.

The programs in `ros/` give a `Node` what rospy or rclpy receives and publish what it makes of that.
"""

from __future__ import annotations

import contextlib
import errno
import os
import pathlib
import threading
import time
from collections import Counter
from collections.abc import Callable, Iterable, Mapping
from dataclasses import dataclass
from typing import Any

from . import _zorvel
from .bags import doubts
from .rep155 import FULL_INTENSITY, Engagement, Gender, People, moment, topic_pattern

PARAMETERS: Mapping[str, Any] = {
    "robot_frame": "",
    "optical": False,
    "cycle": 0.1,
    "hold": 1.0,
    "removal": 3.0,
    "full_intensity": FULL_INTENSITY,
    "gaze": "auto",
    "gender_true": "",
    "engagement": "",
    "record": "",
}
"""What can be set, with defaults: what `People` takes, and what the Node publishes and records."""

AMBIANCE = "/humans/ambiance"

Publish = Callable[[str, str, int, Mapping[str, Any]], None]
"""Publishes a message: its topic, its type, the time of its header, its fields."""

_SECOND = 1_000_000_000
_SET_BACK = _SECOND  # a step less far is a clock that is put right
_LEGAL = frozenset("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_")


@dataclass(frozen=True)
class Status:
    """How it goes, for diagnostic_msgs/DiagnosticStatus."""

    #: 0 when all is well, 1 for a warning, 2 for an error.
    level: int
    message: str
    values: dict[str, str]


def _people(count: int) -> str:
    return f"{count} {'person' if count == 1 else 'people'}"


class Node:
    """The people of one robot: takes its messages, publishes and records their states.

    `clock` is the time of ROS in nanoseconds. It is 0 until there is one, and may be set back: then
    everybody begins anew. `publish`, `log` and `warn` are called under the node's lock. The `parameters`
    are those of PARAMETERS. A record may be a pipe: until somebody reads it, the node takes nothing.
    The methods may be called from any thread. Raises ValueError for an invalid parameter, and
    OSError or DataError when the record cannot be begun.
    """

    def __init__(self, clock: Callable[[], int], publish: Publish, log: Callable[[str], object],
                 warn: Callable[[str], object], **parameters: Any) -> None:
        self._clock, self._publish, self._log, self._warn = clock, publish, log, warn
        self._parameters = {**PARAMETERS, **parameters}
        self._check()
        self._lock = threading.Lock()
        self._latest = 0
        self._record_name = "none"
        self._recording: _zorvel.Recording | None = None
        self._waits = False
        self._fault = ""
        self._last_told = time.monotonic()
        self._received: Counter[str] = Counter()
        self.begun = 0
        """How often everybody began anew. Latched messages are to be received again then."""
        self._begin()
        self._log(f"robot frame: {self._parameters['robot_frame']}, with "
                  f"{'z' if self._parameters['optical'] else 'x'} forward; record: {self._record_name}")
        if self._waits:
            self._warn(self._waiting())

    def _check(self) -> None:
        of = self._parameters
        if not of["robot_frame"]:
            raise ValueError("robot_frame is missing: the frame at the robot's eyes")
        if of["gaze"] not in ("auto", "always", "never"):
            raise ValueError(f"gaze must be auto, always or never, not {of['gaze']}")
        if of["gender_true"] not in ("", "female", "male"):
            raise ValueError(f"gender_true must be female or male, not {of['gender_true']}")
        if of["engagement"] == "state" or not _LEGAL.issuperset(of["engagement"]):
            raise ValueError(f"engagement cannot be called {of['engagement']}")

    def _begin(self) -> None:
        of = self._parameters
        self._people = People(
            of["robot_frame"], optical=of["optical"], cycle=of["cycle"], hold=of["hold"],
            removal=of["removal"], full_intensity=of["full_intensity"], gaze=of["gaze"],
            gender_true=Gender[of["gender_true"].upper()] if of["gender_true"] else None)
        self._graph, self._room = _zorvel.SocialGraph(), _zorvel.Ambiance()
        self._levels: dict[int, Engagement] = {}
        self._topics: dict[int, list[str]] = {}
        self._named: dict[int, list[str]] = {}
        self._cycles, self._persons = 0, set[int]()
        self._counted: tuple[Counter[str], Counter[str], int] = (Counter(), Counter(), 0)
        if of["record"] and not self._fault:
            whole = os.path.abspath(of["record"])
            self._record_name, number = whole, 1
            while os.path.isfile(self._record_name):  # of this node, or of one before
                number += 1
                self._record_name = f"{whole}-{number}"
            self._begin_recording()

    def _begin_recording(self) -> None:
        """A pipe without a reader is tried again later: its opening would wait, and no signal would end that."""
        self._waits = False
        with contextlib.ExitStack() as stack:
            if pathlib.Path(self._record_name).is_fifo():
                try:
                    stack.callback(os.close, os.open(self._record_name, os.O_WRONLY | os.O_NONBLOCK))
                except OSError as error:
                    self._waits = error.errno == errno.ENXIO
            if not self._waits:
                self._recording = _zorvel.Recording(self._record_name, "ros")

    def _waiting(self) -> str:
        return f"{self._record_name}: waiting for somebody to read this pipe"

    def receive(self, topic: str, message: Any) -> None:
        """Takes a message, of a topic that `People.takes`, at this moment."""
        with self._lock:
            if now := self._now():
                self._received[topic_pattern(topic)] += 1
                self._play(self._people.receive(topic, message, now))

    def movement(self) -> None:
        """Something moved in the room."""
        self._receive_of_room(_zorvel.Event.movement)

    def activity(self, value: float) -> None:
        """A measurement of the room's activity."""
        self._receive_of_room(lambda now: _zorvel.Event.activity(now, value))

    def _receive_of_room(self, event: Callable[[_zorvel.Time], _zorvel.Event]) -> None:
        with self._lock:
            if now := self._now():
                told = self._people.advance(now)
                try:
                    told.append(event(moment(now)))
                except ValueError:
                    self._people.left_out["activities that are not numbers"] += 1
                self._play(told)

    def advance(self) -> None:
        """Plays the cycles that are over. To be called about as often as there are cycles."""
        with self._lock:
            if now := self._now():
                self._play(self._people.advance(now))

    def topics(self) -> dict[str, str]:
        """The topics to publish on now, each with its type. A person's ids may change, so call this
        several times a second; states are published only on topics that it returned."""
        with self._lock:
            endings = {"state": "zorvel_msgs/msg/PersonState"}
            if self._parameters["engagement"]:
                endings[self._parameters["engagement"]] = "hri_msgs/msg/EngagementLevel"
            present = self._people.present()
            for number, names in present.items():
                if names != self._named.get(number):
                    self._log(f"person {number}: {', '.join(names)}")
            self._named = present
            self._topics = {
                number: [f"/humans/faces/{name[5:]}/" if name.startswith("face ") else f"/humans/persons/{name}/"
                         for name in names if _LEGAL.issuperset(name.removeprefix("face "))]
                for number, names in present.items()}
            return {AMBIANCE: "zorvel_msgs/msg/Ambiance",
                    **{topic + ending: kind for topics in self._topics.values() for topic in topics
                       for ending, kind in endings.items()}}

    def close(self) -> None:
        """Ends the record, which then gets its name."""
        with self._lock:
            self._end_recording()

    def diagnose(self) -> Status:
        """How it has gone since this was last asked."""
        with self._lock:
            now = time.monotonic()
            seconds, self._last_told = max(now - self._last_told, 1e-9), now
            rates = {topic: count / seconds for topic, count in sorted(self._received.items())}
            self._received = Counter(dict.fromkeys(self._received, 0))
            people, (fields, frames, rolled) = self._people, self._counted
            self._counted = people.fields.copy(), people.face_frames.copy(), people.rolled
            since = people.fields - fields
            is_optical = self._parameters["optical"]
            doubtful = doubts(
                self._parameters["robot_frame"], people.face_frames - frames, since["head_posture"],
                people.rolled - rolled, optical=is_optical,
                advice=f"Then set the parameter optical to {'false' if is_optical else 'true'}",
            ) if since["face_detected"] else []
            present = {str(number): ", ".join(names) for number, names in people.present().items()}
            level, message = 0, _people(len(present))
            if self._fault:
                level, message = 2, self._fault
            elif self._waits:
                level, message = 1, self._waiting()
            elif not self._latest:
                level, message = 1, "the clock has not begun: nothing comes on /clock"
            elif not any(rates.values()):
                level, message = 1, "nothing is received about people"
            elif doubtful:
                level, message = 1, doubtful[0]
            return Status(level, message, {
                "robot frame": self._parameters["robot_frame"],
                "record": self._record_name if self._recording is not None or self._waits else "none",
                **{f"person {number}": names for number, names in present.items()},
                **{f"{topic}, messages a second": f"{rate:.1f}" for topic, rate in rates.items()},
                **{f"left out: {reason}": str(count) for reason, count in people.left_out.items()}})

    def _now(self) -> int:
        """The time; 0 before there is one, or while the record waits."""
        if self._waits:
            self._guard(self._begin_recording)
            if self._waits:
                return 0
            self.begun += 1
        now = self._clock()
        if now < self._latest - _SET_BACK:
            self._warn(f"the clock was set back by {(self._latest - now) / _SECOND:.3f} s; everybody begins anew")
            self._end_recording()
            self._latest = 0
            self.begun += 1
            self._guard(self._begin)
        self._latest = max(now, self._latest)
        return self._latest

    def _play(self, events: Iterable[_zorvel.Event]) -> None:
        for event in events:
            if self._recording is not None:
                recording = self._recording
                self._guard(lambda: recording.write(event))
            with _zorvel.SimulatedClock(moment(event.time)):
                self._apply(event)

    def _apply(self, event: _zorvel.Event) -> None:
        person = event.person
        if event.kind in ("observation", "not_seen"):
            assert person is not None
            self._cycles += 1
            self._persons.add(person)
        if person is None:
            if event.value is None:
                self._room.movement()
            else:
                self._room.update(event.value)
                self._publish(AMBIANCE, "zorvel_msgs/msg/Ambiance", event.time,
                              {"agitation": self._room.agitation, "calm": self._room.calm})
        elif event.kind == "remove":
            self._graph.remove(person)
            self._levels.pop(person, None)
        elif event.to is not None:
            self._graph.rename(person, event.to)
            self._persons.discard(person)
            self._levels.pop(person, None)
        elif event.fields is not None:
            self._tell(event.time, self._graph.update(person, event.fields))
        else:
            self._tell(event.time, self._graph.not_seen(person))

    def _tell(self, at: int, state: _zorvel.PersonState) -> None:
        engagement = self._parameters["engagement"]
        told = {"state": ("zorvel_msgs/msg/PersonState", {
            name + ending: number for name in ("valence", "attention", "ease")
            for ending, number in zip(("", "_confidence"), getattr(state, name))} | {"mood": state.mood})}
        if engagement:
            level = self._levels.setdefault(state.person, Engagement()).update(*state.attention)
            told[engagement] = ("hri_msgs/msg/EngagementLevel", {"level": int(level)})
        for topic in self._topics.get(state.person, ()):
            for ending, (kind, values) in told.items():
                self._publish(topic + ending, kind, at, values)

    def _guard(self, step: Callable[[], None]) -> None:
        """States go on where the record cannot."""
        try:
            step()
        except (OSError, _zorvel.DataError) as error:
            what = f"{self._record_name}: its reader has gone" if isinstance(error, BrokenPipeError) else error
            self._fault = f"{what}; the record ends there"
            self._recording = None
            self._warn(self._fault)

    def _end_recording(self) -> None:
        if self._recording is not None:
            self._guard(self._recording.close)
        record = self._record_name if self._recording is not None else "none"
        self._log(f"{self._cycles} cycles of {_people(len(self._persons))}; record: {record}")
        self._recording = None
