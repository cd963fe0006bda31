"""The node without ROS: a clock and messages that a test gives, and what comes of them."""

import math
import os
import pathlib
import sys
from collections.abc import Iterable
from types import SimpleNamespace as Message
from typing import Any

import pytest

import zorvel
from zorvel.cdr import Decoder
from zorvel.node import AMBIANCE, Node

sys.path.insert(0, str(pathlib.Path(__file__).parents[2] / "bench"))
import make_bag as maker  # noqa: E402

SECOND, START = 10**9, maker.START


class Robot:
    def __init__(self, **parameters: Any) -> None:
        self.now = 0
        self.told: list[tuple[str, int, Any]] = []
        self.log: list[str] = []
        self.warnings: list[str] = []
        self.node = Node(lambda: self.now, lambda topic, _, time, values: self.told.append((topic, time, values)),
                         self.log.append, self.warnings.append, **{"robot_frame": "camera_link", **parameters})

    def play(self, messages: Iterable[maker.Message], back: int = 0) -> None:
        for message in messages:
            self.now = message.time - back
            self.say(message.topic, Decoder(message.kind).decode(message.data))

    def say(self, topic: str, message: Any) -> None:
        self.node.receive(topic, message)
        self.node.topics()


def replayed(recording: pathlib.Path, person: int) -> list[tuple[int, Any]]:
    """The states of a person, as messages have them, but for the first of a visit, which announces the topic."""
    table = zorvel.replay(recording).timeline
    names = ("valence", "valence_confidence", "attention", "attention_confidence", "ease", "ease_confidence", "mood")
    rows = [(int(time), {name: table[name][row].item() for name in names})
            for row, time in enumerate(table["time"]) if table["person"][row] == person]
    return [row for before, row in zip(rows, rows[1:]) if row[0] - before[0] < SECOND]


def test_a_node_gives_what_a_bag_gives(tmp_path: pathlib.Path, monkeypatch: pytest.MonkeyPatch) -> None:
    record, imported = tmp_path / "record", tmp_path / "imported"
    scene = list(maker.scene(3.0, 2, every=3))
    # Both have been removed when the second comes back, with the face of the first, and is found to be the first.
    monkeypatch.setattr(maker, "START", START + 9 * SECOND)
    transform, of_first, *others = maker.scene(5.0, 1, every=3)
    scene += [transform, of_first._replace(topic="/humans/persons/p1/face_id"), *others]
    scene.append(maker.text(scene[-1].time, "/humans/persons/p1/alias", "p0"))
    monkeypatch.setattr(maker, "START", scene[-1].time)
    scene += maker.scene(2.0, 1, every=3)
    maker.write_sqlite(tmp_path / "bag.db3", scene)
    zorvel.import_bag(tmp_path / "bag.db3", imported)
    robot = Robot(record=str(record))
    robot.play(scene)
    robot.play([scene[-1]._replace(time=scene[-1].time + SECOND // 10)])
    robot.node.close()
    header, *lines = record.read_text().splitlines()
    assert lines == imported.read_text().splitlines()[1:] and "origin" not in header
    for name, rows in (("p0", replayed(record, 1)), ("p1", replayed(record, 2) + replayed(record, 1)[-20:])):
        told = [row for topic, *row in robot.told if topic == f"/humans/persons/{name}/state"]
        assert [(time, values) for time, values in told] == rows and len(rows) > 70


def test_a_clock_that_is_set_back(tmp_path: pathlib.Path) -> None:
    robot = Robot(record=str(tmp_path / "record"))
    robot.play(maker.scene(2.0, 1))
    for anew in range(2):  # at 0.6 s it is put right, at 1.2 s set back
        robot.now -= SECOND * 6 // 10
        robot.node.advance()
        assert robot.node.begun == anew
    robot.play(maker.scene(2.0, 1), back=100 * SECOND)
    robot.node.close()
    assert robot.node.begun == 2 and "set back by 1.200 s" in robot.warnings[0]
    assert [(time, values) for _, time, values in robot.told] == [
        *replayed(tmp_path / "record", 1), *replayed(tmp_path / "record-3", 1)]


def test_a_pipe_waits_for_its_reader(tmp_path: pathlib.Path, monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.chdir(tmp_path)
    os.mkfifo("pipe")
    robot = Robot(record="pipe")
    robot.play(maker.scene(1.0, 1))
    waiting = f"{tmp_path}/pipe: waiting for somebody to read this pipe"
    assert robot.warnings == [waiting] == [robot.node.diagnose().message] and not robot.told
    reader = os.open("pipe", os.O_RDONLY | os.O_NONBLOCK)
    robot.play(maker.scene(1.0, 1))
    lines = os.read(reader, 1 << 16).splitlines()
    assert robot.node.begun == 1 and len(lines) > len(robot.told) > 5  # each line at once
    os.close(reader)
    robot.play(maker.scene(2.0, 1))
    robot.node.close()
    assert len(robot.told) > 15 and len(robot.warnings) == 2
    assert robot.log == [f"robot frame: camera_link, with x forward; record: {tmp_path}/pipe", "person 1: p0",
                         "20 cycles of 1 person; record: none"]


def test_where_states_are_published() -> None:
    robot = Robot(engagement="level")

    def told_while_seen(*faces: str) -> set[str]:
        del robot.told[:]
        for step in range(50):  # until nobody else is there
            robot.now += SECOND // 10
            robot.say("/humans/faces/tracked", Message(ids=faces))
        return {topic.removeprefix("/humans/") for topic, *_ in robot.told}

    robot.now = START
    robot.say("/humans/persons/ada/face_id", Message(data="a"))
    assert told_while_seen("a") == {"persons/ada/state", "persons/ada/level"}
    assert robot.told[-1][2] == {"level": 0}  # of a face whose direction is not known
    assert robot.node.diagnose().message == "no posture: no transform in /tf is of a frame face_<id>"
    robot.say("/humans/persons/ada/alias", Message(data="bea"))
    assert "persons/bea/state" in told_while_seen("a", "b", "no-topic")
    assert told_while_seen("b", "no-topic") >= {"faces/b/state", "faces/b/level"}
    assert not [topic for topic in robot.node.topics() if "no-topic" in topic or "ada" in topic]
    told_while_seen()
    robot.node.diagnose()
    robot.say("/humans/faces/tracked", Message(ids=[]))
    assert (robot.node.diagnose().level, robot.node.diagnose().level) == (0, 1)


def test_the_room_and_troubles() -> None:
    robot = Robot(robot_frame="nowhere")
    assert robot.node.diagnose().message.startswith("the clock has not begun")
    robot.now = START
    robot.node.advance()
    assert robot.node.diagnose().message == "nothing is received about people"
    robot.play(maker.scene(2.0, 1))
    status = robot.node.diagnose()
    assert status.level == 1 and "is nowhere the robot's frame?" in status.message
    assert status.values["person 1"] == "p0" and "a frame that nothing connects" in "".join(status.values)
    robot.node.activity(math.nan)
    robot.node.movement()
    robot.now += SECOND // 2
    robot.node.activity(0.05)  # times ten, a fifth of the way; the movement adds 0.04
    robot.node.advance()
    assert robot.told[-1] == (AMBIANCE, robot.now, {"agitation": pytest.approx(0.14), "calm": pytest.approx(0.86)})
    robot = Robot(optical=True)
    robot.play(maker.scene(2.0, 1))
    assert "does camera_link have x forward? Then set the parameter optical to false" in robot.node.diagnose().message
    robot = Robot(record="/dev/full")  # states go on without it
    robot.play(maker.scene(2.0, 1))
    assert len(robot.told) > 15 and len(robot.warnings) == 1 and robot.node.diagnose().level == 2
    for name, value in (("robot_frame", ""), ("gaze", "Always"), ("gender_true", "any"), ("engagement", "a/b")):
        with pytest.raises(ValueError, match=name):
            Robot(**{name: value})
