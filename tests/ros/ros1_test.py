"""The node of ROS 1 with a core and a robot that plays a scene: it publishes what its record replays to."""

import json
import os
import pathlib
import shutil
import socket
import subprocess
import sys
import tempfile
import time
import unittest
from typing import Any

import zorvel

ROOT = pathlib.Path(__file__).parents[2]
# Of FacialActionUnits, as robots have it; messages/ has the fields and constants of these versions of hri_msgs.
CHECKSUMS = {"0.6.0": "7872c889685bdf665183ddf7f24a1dd9", "0.9.0": "51deeb0e003e99c3f3ea2a5073d9d710"}
NAMES = ("valence", "valence_confidence", "attention", "attention_confidence", "ease", "ease_confidence", "mood")


@unittest.skipUnless(shutil.which("rosmaster"), "scripts/test --ros installs what this takes")
class Ros1Test(unittest.TestCase):
    def test_a_scene(self) -> None:
        for version in CHECKSUMS:
            with self.subTest(version), tempfile.TemporaryDirectory() as folder:
                self.play(version, pathlib.Path(folder))

    def start(self, *command: Any, **options: Any) -> subprocess.Popen[bytes]:
        process = subprocess.Popen(command, **options)
        self.addCleanup(process.wait)
        self.addCleanup(process.terminate)
        return process

    def play(self, version: str, folder: pathlib.Path) -> None:
        for package, definitions in {"hri_msgs": f"tests/ros/messages/{version}",
                                     "zorvel_msgs": "ros/zorvel_msgs/msg"}.items():
            generator = [sys.executable, "/usr/lib/genpy/genmsg_py.py", "-p", package, "-o", f"{folder}/{package}/msg"]
            subprocess.run([*generator, "-Istd_msgs:/usr/share/std_msgs/msg", f"-I{package}:{ROOT / definitions}",
                            *(ROOT / definitions).glob("*.msg")], check=True)
            subprocess.run([*generator, "--initpy"], check=True)
        self.assertIn(CHECKSUMS[version], (folder / "hri_msgs/msg/_FacialActionUnits.py").read_text())
        with socket.create_server(("127.0.0.1", 0)) as free:
            port = free.getsockname()[1]
        options: dict[str, Any] = {"cwd": folder, "env": {
            **os.environ, "ROS_MASTER_URI": f"http://127.0.0.1:{port}", "ROS_IP": "127.0.0.1",
            "ROS_HOME": str(folder), "PYTHONPATH": f"{folder}:{os.environ['PYTHONPATH']}"}}
        self.start("rosmaster", "--core", "-p", str(port), **options, stdout=subprocess.DEVNULL)
        while socket.socket().connect_ex(("127.0.0.1", port)):
            time.sleep(0.1)
        node = self.start(sys.executable, ROOT / "ros/zorvel_ros/scripts/zorvel_rospy.py", "_robot_frame:=camera_link",
                          "_removal:=10", f"_record:={folder}/record", **options)
        subprocess.run([sys.executable, ROOT / "bench/play_ros1.py", "--seconds", "12", "--people", "2", "--stay", "5",
                        "--states", "states"], check=True, timeout=60, **options)
        node.terminate()
        self.assertEqual(node.wait(20), 0)

        table = zorvel.replay(folder / "record").timeline
        visits: dict[Any, dict[int, Any]] = {}
        for row, (person, visit, at) in enumerate(zip(table["person"], table["visit"], table["time"])):
            visits.setdefault((person, visit), {})[int(at)] = [table[name][row].item() for name in NAMES]
        told: dict[str, dict[int, Any]] = {}
        for line in map(json.loads, (folder / "states").read_text().splitlines()):
            told.setdefault(line["topic"], {})[line["time"]] = [line[name] for name in NAMES]
        self.assertEqual(len([topic for topic in told if topic.startswith("/humans/persons/")]), 6)
        for topic, of in told.items():  # from the first to the last, none is lost
            self.assertIn(of, [{at: state for at, state in visit.items() if min(of) <= at <= max(of)}
                               for visit in visits.values()], topic)
