"""The node of ROS 1 among a core and a robot that publishes a scene: what is told is what its record replays to,
and the record is what a bag of the same messages becomes."""

from __future__ import annotations

import contextlib
import json
import os
import pathlib
import pickle
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
import unittest
from collections.abc import Iterator
from typing import Any

import zorvel
from zorvel import rep155
from zorvel.cdr import Decoder

ROOT = pathlib.Path(__file__).parents[2]
sys.path.insert(0, str(ROOT / "bench"))
import make_bag as maker  # noqa: E402

# Of the messages that robots have.
FACIAL_ACTION_UNITS = {"0.6.0": "7872c889685bdf665183ddf7f24a1dd9", "0.9.0": "51deeb0e003e99c3f3ea2a5073d9d710"}
NAMES = ("valence", "valence_confidence", "attention", "attention_confidence", "ease", "ease_confidence", "mood")
LOGGED = """
import pickle, runpy, sys
from zorvel import rep155
receive, log = rep155.People.receive, open(sys.argv[1], "wb")
def logged(people, topic, message, time):
    pickle.dump((time, topic, message), log)
    return receive(people, topic, message, time)
rep155.People.receive = logged
del sys.argv[:2]
runpy.run_path(sys.argv[0], run_name="__main__")
"""


def generate(package: str, definitions: pathlib.Path, folder: pathlib.Path) -> None:
    generator: list[Any] = [sys.executable, "/usr/lib/genpy/genmsg_py.py", "-p", package, "-o", folder / package / "msg"]
    subprocess.run([*generator, "-Istd_msgs:/usr/share/std_msgs/msg", f"-I{package}:{definitions}",
                    *definitions.glob("*.msg")], check=True)
    subprocess.run([*generator, "--initpy"], check=True)
    (folder / package / "__init__.py").touch()


@contextlib.contextmanager
def running(*command: Any, **options: Any) -> Iterator[subprocess.Popen[bytes]]:
    process = subprocess.Popen(command, **options)
    try:
        yield process
    finally:
        process.send_signal(signal.SIGTERM)
        process.wait(20)


def stamped(topic: str, message: Any) -> tuple[str, int, str]:
    """What makes a message of the scene the one it is."""
    message = message.transforms[0] if hasattr(message, "transforms") else message
    stamp = rep155._nanoseconds(message.header.stamp) if hasattr(message, "header") else 0
    return topic, stamp, getattr(message, "child_frame_id", "")


@unittest.skipUnless(shutil.which("rosmaster"), "scripts/test --ros installs what this takes")
class Ros1Test(unittest.TestCase):
    def test_a_scene(self) -> None:
        for version, checksum in FACIAL_ACTION_UNITS.items():
            with self.subTest(version), tempfile.TemporaryDirectory() as name:
                self.play(version, checksum, pathlib.Path(name))

    def play(self, version: str, checksum: str, folder: pathlib.Path) -> None:
        generate("hri_msgs", ROOT / "tests/ros/messages" / version, folder)
        generate("zorvel_msgs", ROOT / "ros/zorvel_msgs/msg", folder)
        self.assertIn(checksum, (folder / "hri_msgs/msg/_FacialActionUnits.py").read_text())
        with socket.create_server(("127.0.0.1", 0)) as free:
            port = str(free.getsockname()[1])
        environment = {**os.environ, "ROS_MASTER_URI": f"http://127.0.0.1:{port}", "ROS_IP": "127.0.0.1",
                       "ROS_HOME": str(folder), "PYTHONPATH": f"{folder}:{os.environ['PYTHONPATH']}"}
        options: dict[str, Any] = {"env": environment, "cwd": folder}
        record, log = folder / "record.jsonl", folder / "received"
        with running("rosmaster", "--core", "-p", port, **options, stdout=subprocess.DEVNULL):
            while socket.socket().connect_ex(("127.0.0.1", int(port))):
                time.sleep(0.1)
            with running(sys.executable, "-c", LOGGED, log, ROOT / "ros/zorvel_ros/scripts/zorvel_rospy.py",
                         "_robot_frame:=camera_link", f"_record:={record}", **options) as node:
                subprocess.run([sys.executable, ROOT / "bench/play_ros1.py", "--seconds", "12", "--people", "2",
                                "--stay", "5", "--states", "states"], check=True, timeout=60, **options)
        self.assertEqual(node.returncode, 0)
        self.compare_states(folder / "states", record)
        if version == "0.9.0":  # others have other layouts than bags of ROS 2
            sys.path.insert(0, str(folder))
            with log.open("rb") as file, contextlib.suppress(EOFError):
                received = []
                while True:
                    received.append(pickle.load(file))
            self.compare_with_a_bag(received, record, folder)

    def compare_states(self, states: pathlib.Path, record: pathlib.Path) -> None:
        told: dict[str, dict[int, Any]] = {}
        for line in map(json.loads, states.read_text().splitlines()):
            told.setdefault(line["topic"], {})[line["time"]] = [line[name] for name in NAMES]
        # Three follow each other, twice. One whose person is told of late has the face's topic before.
        self.assertEqual(len([topic for topic in told if topic.startswith("/humans/persons/")]), 6)
        table = zorvel.replay(record).timeline
        visits: dict[int, dict[int, dict[int, Any]]] = {}
        for row, (person, visit, at) in enumerate(zip(table["person"], table["visit"], table["time"])):
            of_visit = visits.setdefault(int(person), {}).setdefault(int(visit), {})
            of_visit[int(at)] = [table[name][row].item() for name in NAMES]
        for topic, of in told.items():
            person = next(person for person, all_of in visits.items()
                          if any(min(of) in visit for visit in all_of.values()) and of.items() <= {
                              at: state for visit in all_of.values() for at, state in visit.items()}.items())
            for visit in visits[person].values():
                if here := [at for at in visit if at in of]:  # from the first to the last, none is lost
                    self.assertEqual(here, [at for at in visit if here[0] <= at <= here[-1]], topic)

    def compare_with_a_bag(self, received: list[Any], record: pathlib.Path, folder: pathlib.Path) -> None:
        maker.START = next(stamped(topic, message)[1] for _, topic, message in received if topic == "/tf_static")
        scene = {stamped(sent.topic, Decoder(sent.kind).decode(sent.data)): sent
                 for sent in maker.scene(12.0, 2, every=3, stay=5.0)}
        maker.write_sqlite(folder / "bag.db3", [
            scene[stamped(topic, message)]._replace(time=at) for at, topic, message in received])
        zorvel.import_bag(folder / "bag.db3", folder / "imported.jsonl", robot_frame="camera_link")
        imported = (folder / "imported.jsonl").read_text().splitlines()[1:]
        self.assertGreater(len(imported), 200)
        self.assertEqual(record.read_text().splitlines()[1:len(imported) + 1], imported)


if __name__ == "__main__":
    unittest.main()
