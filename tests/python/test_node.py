"""The node without ROS: a clock and messages that a test gives, and what comes of them."""

from __future__ import annotations

import math
import pathlib
import re
import sys
from collections.abc import Mapping
from types import SimpleNamespace as Message
from typing import Any

import pytest

import zorvel
from zorvel.cdr import Decoder
from zorvel.node import AMBIANCE, PARAMETERS, Node

ROOT = pathlib.Path(__file__).parents[2]
sys.path.insert(0, str(ROOT / "bench"))
import make_bag as maker  # noqa: E402

SECOND = 10**9
START = maker.START


class Robot:
    """A node with a clock that is set by hand, and all that it published."""

    def __init__(self, **parameters: Any) -> None:
        self.now = 0
        self.told: list[tuple[str, str, int, dict[str, Any]]] = []
        self.warnings: list[str] = []
        self.node = Node(lambda: self.now, self._publish, self.warnings.append,
                         **{"robot_frame": "camera_link", **parameters})

    def _publish(self, topic: str, kind: str, time: int, values: Mapping[str, Any]) -> None:
        self.told.append((topic, kind, time, dict(values)))

    def play(self, messages: list[maker.Message], back: int = 0) -> None:
        for message in messages:
            self.now = message.time - back
            self.node.receive(message.topic, Decoder(message.kind).decode(message.data))
            self.node.topics()

    def say(self, topic: str, **fields: Any) -> None:
        self.node.receive(topic, Message(**fields))
        self.node.topics()


def replayed(recording: pathlib.Path, person: int) -> list[tuple[int, dict[str, Any]]]:
    """The states of a person, as messages have them."""
    table = zorvel.replay(recording).timeline
    names = ("valence", "valence_confidence", "attention", "attention_confidence", "ease", "ease_confidence", "mood")
    return [(int(time), {name: table[name][row].item() for name in names})
            for row, time in enumerate(table["time"]) if table["person"][row] == person]


def test_a_node_gives_what_a_bag_gives(tmp_path: pathlib.Path, monkeypatch: pytest.MonkeyPatch) -> None:
    record, imported = tmp_path / "record.jsonl", tmp_path / "imported.jsonl"
    scene = list(maker.scene(3.0, 2, every=3))
    # Both have been removed when the second comes back, with the face of the first, and is found to be the first.
    monkeypatch.setattr(maker, "START", START + 9 * SECOND)
    transform, of_first, *others = maker.scene(5.0, 1, every=3)
    scene += [transform, of_first._replace(topic="/humans/persons/p1/face_id"), *others]
    scene.append(maker.text(scene[-1].time, "/humans/persons/p1/alias", "p0"))
    monkeypatch.setattr(maker, "START", scene[-1].time)
    scene += list(maker.scene(2.0, 1, every=3))
    maker.write_sqlite(tmp_path / "bag.db3", scene)
    zorvel.import_bag(tmp_path / "bag.db3", imported)
    robot = Robot(record=str(record))
    robot.play(scene)
    robot.now += SECOND // 10
    robot.node.advance()
    robot.node.close()
    assert record.read_text().splitlines()[1:] == imported.read_text().splitlines()[1:]
    assert "origin" not in record.read_text()
    rows = {person: replayed(record, person) for person in (1, 2)}
    told = {person: [(time, values) for topic, _, time, values in robot.told
                     if topic == f"/humans/persons/p{person - 1}/state"] for person in rows}
    # The first of each visit tells of the topic.
    visits = [index for index, (time, _) in enumerate(rows[1]) if time - rows[1][index - 1][0] != SECOND // 10]
    assert told[1] == [row for index, row in enumerate(rows[1]) if index not in visits] and len(visits) == 2
    assert all(row in rows[1] + rows[2] for row in told[2]) and told[2][-10:] == rows[1][-10:]


def test_a_clock_that_is_set_back(tmp_path: pathlib.Path) -> None:
    robot = Robot(record=str(tmp_path / "record"))
    scene = list(maker.scene(2.0, 1))
    robot.play(scene)
    before = len(robot.told)
    for anew in range(2):  # at 0.6 s it is put right, at 1.2 s set back
        robot.now -= SECOND * 6 // 10
        robot.node.advance()
        assert robot.node.begun == anew
    robot.play(scene, back=100 * SECOND)
    robot.node.close()
    assert robot.node.begun == 2 and "set back by 1.200 s" in robot.warnings[0]
    rounds = [(time, values) for _, _, time, values in robot.told]
    assert rounds[:before] == replayed(tmp_path / "record", 1)[1:]
    assert rounds[before:] == replayed(tmp_path / "record-3", 1)[1:]


def test_states_go_on_when_the_record_cannot() -> None:
    robot = Robot(record="/dev/full")
    robot.play(list(maker.scene(2.0, 1)))
    assert len(robot.told) > 15 and len(robot.warnings) == 1
    assert robot.node.diagnose().level == 2


def test_who_is_told_of_where() -> None:
    robot = Robot(engagement="level")

    def told_while_seen(face: str) -> set[str]:
        del robot.told[:]
        for step in range(20):
            robot.now += SECOND // 10
            robot.say("/humans/faces/tracked", ids=[face])
        return {topic for topic, *_ in robot.told}

    robot.now = START
    robot.say("/humans/persons/ada/face_id", data="a")
    assert told_while_seen("a") == {"/humans/persons/ada/state", "/humans/persons/ada/level"}
    levels = [values for _, kind, _, values in robot.told if kind == "hri_msgs/msg/EngagementLevel"]
    assert levels[-1] == {"level": 0}  # of a face whose direction nothing tells
    assert robot.node.diagnose().message == "no posture: no transform in /tf is of a frame face_<id>"
    robot.say("/humans/persons/ada/alias", data="bea")
    assert {"/humans/persons/ada/state", "/humans/persons/bea/state"} <= told_while_seen("a")
    assert "/humans/faces/b/state" in told_while_seen("b")
    assert not [topic for topic in told_while_seen("no-topic") if "no-topic" in topic]
    for _ in range(4):
        robot.now += SECOND
        robot.node.advance()
    assert robot.node.topics() == {AMBIANCE: "zorvel_msgs/msg/Ambiance"}
    robot.node.diagnose()
    robot.say("/humans/faces/tracked", ids=[])
    assert (robot.node.diagnose().level, robot.node.diagnose().level) == (0, 1)


def test_the_document_has_every_parameter() -> None:
    text = (ROOT / "docs" / "ros.md").read_text().split("| parameter |")[1].split("\n\n")[0]
    shown = {"": "none", False: "false", 1.0: "1", 3.0: "3", "auto": "`auto`"}
    assert dict(re.findall(r"^\| `(\w+)` \| (\S+) \|", text, re.M)) == {
        name: shown.get(default, str(default)) for name, default in PARAMETERS.items()}


@pytest.mark.parametrize("name, value", [
    ("robot_frame", ""), ("gaze", "Always"), ("gender_true", "any"), ("engagement", "state"),
    ("engagement", "a/b"), ("cycle", 0.0)])
def test_parameters_that_cannot_be(name: str, value: Any) -> None:
    with pytest.raises(ValueError, match=name):
        Robot(**{name: value})


def test_the_room() -> None:
    robot = Robot()
    robot.play(list(maker.scene(1.0, 1)))
    robot.now += SECOND // 4
    robot.node.activity(math.nan)
    robot.node.movement()
    robot.now += SECOND // 4
    robot.node.activity(0.05)  # times ten, a fifth of the way; the movement adds 0.04
    robot.node.advance()
    assert [time for _, _, time, _ in robot.told] == sorted(time for _, _, time, _ in robot.told)
    assert robot.told[-1] == (AMBIANCE, "zorvel_msgs/msg/Ambiance", robot.now, {
        "agitation": pytest.approx(0.14), "calm": pytest.approx(0.86)})


def test_what_is_said_of_troubles() -> None:
    robot = Robot(robot_frame="nowhere")
    robot.say("/humans/faces/tracked", ids=[])
    assert robot.node.diagnose().message.startswith("the clock has not begun")
    robot.now = START
    robot.node.advance()
    assert robot.node.diagnose().message == "nothing is received about people"
    robot.play(list(maker.scene(2.0, 1)))
    status = robot.node.diagnose()
    assert status.level == 1 and "is nowhere the robot's frame? Poses of faces were given 60 in optical" in status.message
    assert status.values["person 1"] == "p0"
    assert "a frame that nothing connects" in "".join(status.values)
