"""Bags of ROS 2, whole and damaged. bench/make_bag.py makes them, and shares no code with what reads them."""

from __future__ import annotations

import json
import pathlib
import random
import struct
import subprocess
import sys
import tracemalloc
from typing import Any

import pytest

import zorvel

ROOT = pathlib.Path(__file__).parents[2]
sys.path[:0] = [str(ROOT / "bench"), str(ROOT / "fuzz")]
import make_bag as maker  # noqa: E402
import bag_fuzzer  # noqa: E402

SECOND = 10**9


def lines(path: pathlib.Path) -> list[dict[str, Any]]:
    return [json.loads(line) for line in path.read_text().splitlines()]


def command(*arguments: str | pathlib.Path) -> subprocess.CompletedProcess[str]:
    return subprocess.run([sys.executable, "-m", "zorvel", "import-bag", *arguments],
                          capture_output=True, text=True, timeout=60)


def test_every_way_of_writing_a_bag_gives_the_same(tmp_path: pathlib.Path) -> None:
    scene = list(maker.scene(3.0, 2, every=3))
    folder = tmp_path / "session"
    folder.mkdir()
    maker.write_sqlite(folder / "session_2.db3", scene[:100])
    maker.write_sqlite(folder / "session_10.db3", scene[100:])
    late = [*scene[3:200], *scene[:3], *scene[200:]]  # out of order, as far as a cache does that
    maker.write_sqlite(tmp_path / "one.db3", late, maker.DEFINITIONS)
    for compression in ("", "zstd", "lz4"):
        maker.write_mcap(tmp_path / f"{compression or 'plain'}.mcap", late, maker.DEFINITIONS, compression)
    maker.write_mcap(tmp_path / "undefined.mcap", scene, per_chunk=7)
    recordings = set()
    for bag in sorted(tmp_path.iterdir()):
        output = tmp_path / "out.jsonl"
        facts = zorvel.import_bag(bag, output)
        assert (facts.people, facts.observations, facts.robot_frame) == (2, 62, "camera_link"), bag
        assert [topic.messages for topic in facts.topics] == [60, 60, 60, 60, 90, 2, 360, 1], facts.topics
        recordings.add(output.read_text())
        output.unlink()
    recording, = recordings
    header, first, *_, last = map(json.loads, recording.splitlines())
    assert last["smile"]["value"] == pytest.approx(0.87)  # of the last picture but two, 87 from 0
    assert header["origin"] == maker.START
    # The last of three pictures before 0.1 s, 66.7 ms after the start. The person is 0.4 m to the left.
    assert first["time"] == maker.START + SECOND // 10
    assert first["distance"] == {"value": pytest.approx((0.4**2 + 0.1**2 + 1.2**2) ** 0.5),
                                 "time": maker.START + 66_666_667}
    assert "gaze" not in recording


def test_the_robots_frame(tmp_path: pathlib.Path) -> None:
    bag, output = tmp_path / "bag.db3", tmp_path / "out.jsonl"
    # Straight ahead of a camera whose z is forward, a head that looks back at it.
    maker.write_sqlite(bag, [maker.transforms(
        maker.START + step * SECOND // 10,
        ("cam", "face_a", (0.0, 0.0, 2.0, 0.5, 0.5, -0.5, 0.5)), ("map", "cam", (0.0,) * 6 + (1.0,)),
        order=">") for step in range(10)])
    refused: list[tuple[list[str], str]] = [
            ([], "cam (1 faces, 10 poses), map (0 faces)"),
            (["--robot-frame", "base"], "10 in cam"),
            (["--robot-frame", "cam"], "--optical-frame"),
            (["--robot-frame", "cam", "--optical-frame", "map"], "one frame")]
    for options, told in refused:
        assert told in command(bag, "-o", output, *options).stderr
    assert command(bag, "-o", output, "--optical-frame", "cam").stderr.splitlines() == [
        "0.900 s, 1 person, 10 observations, 10 with a posture in cam",
        "person 1: face a",
        "/tf: 10 messages, 11.1 a second"]
    posture = lines(output)[1]["headPosture"]
    assert [posture[angle] for angle in ("yaw", "pitch", "roll")] == pytest.approx([0, 0, 0])
    bag.write_bytes(b"#ROSBAG V2.0\n")
    assert f"{bag}: a bag of ROS 1: play it to a node" in command(bag, "-o", output).stderr


def test_what_is_left_of_a_damaged_bag_is_read(tmp_path: pathlib.Path) -> None:
    scene, bag, output = list(maker.scene(20.0, 1)), tmp_path / "bag", tmp_path / "out.jsonl"
    for is_mcap in (True, False):
        bag.unlink(missing_ok=True)
        if is_mcap:
            maker.write_mcap(bag, scene, per_chunk=500)
        else:
            maker.write_sqlite(bag, scene)
        zorvel.import_bag(bag, output, robot_frame="camera_link")
        whole, everything = bag.read_bytes(), output.read_text()
        at = len(whole) // 8192 * 4096  # a page of SQLite
        if is_mcap:
            at = 8
            for _ in range(2):  # the second chunk, after the header and the first
                at += 9 + int.from_bytes(whole[at + 1:at + 9], "little")
        for damaged, is_cut in ((whole[:at + 400], True),
                                (whole[:at + 1] + b"\xff" * 5 + whole[at + 6:], False),  # its length
                                (whole[:at + 200] + b"\xff" * 5 + whole[at + 205:], False))[:2 + is_mcap]:
            bag.write_bytes(damaged)
            result = command(bag, "--robot-frame", "camera_link", "-o", output)
            assert result.returncode == 1 and str(bag) in result.stderr.splitlines()[0], result.stderr
            assert not is_cut or all(line in everything for line in output.read_text().splitlines()[:-1])
            seconds = [(line["time"] - maker.START) / SECOND for line in lines(output)[1:]
                       if line["event"] == "observation"]
            assert 50 < len(seconds) and (seconds[-1] < 15.0) == is_cut, result.stderr


def chunk(claimed: int, compression: str, data: bytes, checksum: int = 0) -> Any:
    content = (struct.pack("<QQQI", 1, 1, claimed, checksum) + maker._text(compression)
               + struct.pack("<Q", len(data)) + data)
    return b"\x89MCAP0\r\n" + maker._record(6, content)


def defined(text: str) -> Any:
    return lambda path: maker.write_sqlite(path, maker.scene(1.0, 1), {
        **maker.DEFINITIONS, "hri_msgs/msg/IdsList": text})


def listed(data: bytes, time: int = maker.START) -> Any:
    message = maker.Message(time, "/humans/faces/tracked", "hri_msgs/msg/IdsList", data)
    return lambda path: maker.write_sqlite(path, [*maker.scene(1.0, 1), message])


IDS = maker.ids(1, "", "a").data
ZEROS = maker._pack("zstd", bytes(1 << 26))  # 64 MiB in 2 KiB


@pytest.mark.parametrize("made, told", [
    (b"SQLite format 3\0" + bytes(1 << 17), "not a database"), (b"rosbag", "offset 0: neither SQLite nor MCAP"),
    (b"\x89MCAP0\r\n", "offset 8: it is cut off"), (chunk(1 << 30, "zstd", ZEROS), "no record"),
    (chunk(1 << 26, "zstd", ZEROS, 7), "checksum"), (chunk(99, "lz4", b"nothing"), "chunk at offset 8"),
    (chunk(1 << 62, "zstd", ZEROS), "it would take 4611686018427387904 bytes"),
    (chunk(99, "rar", b""), "packed by 'rar'"),
    # Layouts that cannot be: the one that is known here counts.
    (defined("string[] ids\nIdsList inside"), "11 {}"), (defined("float64[400000000] many"), "11 {}"),
    (defined("float64[4000] many"), "it ends at"), (listed(IDS[:20] + b"\xff" * 4), "17179869200 bytes belong"),
    (listed(IDS[:24] + b"\xff" * 4), "bytes belong"), (listed(b"\0\7\0\0"), "not in plain CDR"),
    (listed(IDS + bytes(9)), "bytes more than its layout"), (listed(IDS, (1 << 63) - 1), "its time is out of"),
    (listed(bytes(1 << 20)), "more than 256 KiB"),
])
def test_hostile_bags(made: Any, told: str, tmp_path: pathlib.Path) -> None:
    made(tmp_path / "bag") if callable(made) else (tmp_path / "bag").write_bytes(made)
    tracemalloc.start()
    try:
        facts = zorvel.import_bag(tmp_path / "bag", tmp_path / "out.jsonl", robot_frame="camera_link")
        outcome = f"{facts.observations} {facts.left_out}"
    except zorvel.DataError as error:
        outcome = str(error)
    assert told in outcome
    assert tracemalloc.get_traced_memory()[1] < 8 << 20
    tracemalloc.stop()


def test_damage_of_every_kind(tmp_path: pathlib.Path) -> None:
    chance = random.Random(1)
    for _ in range(60):
        bag_fuzzer.fuzz(chance, tmp_path)
