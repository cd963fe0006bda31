"""Makes a bag of ROS 2 as a robot would record it: bench/make_bag.py hour.db3 --seconds 3600 --people 6

Without ROS, and without a line of what reads bags.
"""

from __future__ import annotations

import argparse
import math
import pathlib
import sqlite3
import struct
import zlib
from collections.abc import Iterable, Iterator
from typing import Any, NamedTuple

START = 1_700_000_000_000_000_000


class Message(NamedTuple):
    time: int
    topic: str
    kind: str
    data: bytes


class Cdr:
    """Writes a message, each number aligned to its size after a header of 4 bytes."""

    def __init__(self, order: str = "<") -> None:
        self._order = order
        self.data = b"\0\1\0\0" if order == "<" else b"\0\0\0\0"

    def put(self, codes: str, *numbers: Any) -> Cdr:
        for code, number in zip(codes, numbers, strict=True):
            size = struct.calcsize("=" + code)
            self.data += bytes(-(len(self.data) - 4) % size) + struct.pack(self._order + code, number)
        return self

    def text(self, text: str) -> Cdr:
        data = text.encode() + b"\0"
        self.put("I", len(data)).data += data
        return self

    def header(self, stamp: int, frame: str = "") -> Cdr:
        return self.put("iI", *divmod(stamp, 10**9)).text(frame)


def transforms(time: int, *moved: tuple[str, str, tuple[float, ...]], topic: str = "/tf",
               stamp: int | None = None, order: str = "<") -> Message:
    """Of parents, children, and x, y, z with the quaternion."""
    cdr = Cdr(order).put("I", len(moved))
    for parent, child, numbers in moved:
        cdr.header(time if stamp is None else stamp, parent).text(child).put("d" * 7, *numbers)
    return Message(time, topic, "tf2_msgs/msg/TFMessage", cdr.data)


def ids(time: int, topic: str, *listed: str, order: str = "<") -> Message:
    cdr = Cdr(order).header(time).put("I", len(listed))
    for one in listed:
        cdr.text(one)
    return Message(time, topic, "hri_msgs/msg/IdsList", cdr.data)


def shown(time: int, face: str, joy: float) -> Iterator[Message]:
    """What recognisers say of a face that smiles so much."""
    told = {"expression": ("Expression", Cdr().header(time).text("happy").put("fff", 0.5, 0.0, joy)),
            "facs": ("FacialActionUnits", Cdr().header(time).put(
                "f" * 198, *(0.6 * joy if unit in (6, 12) else 0.1 for unit in range(99)), *[0.9] * 99)),
            "landmarks": ("FacialLandmarks", Cdr().header(time).put(
                "f" * 210, *(number for point in range(70) for number in (point / 70, 0.5, 0.9))
            ).put("II", 480, 640)),
            "softbiometrics": ("SoftBiometrics", Cdr().header(time).put("BfBf", 34, 0.5, 1, 0.5))}
    for topic, (kind, cdr) in told.items():
        yield Message(time, f"/humans/faces/{face}/{topic}", f"hri_msgs/msg/{kind}", cdr.data)


def text(time: int, topic: str, value: str) -> Message:
    return Message(time, topic, "std_msgs/msg/String", Cdr().text(value).data)


def scene(seconds: float, people: int, rate: float = 30.0, every: int = 0,
          stay: float = math.inf) -> Iterator[Message]:
    """People who look about in front of a camera; each frame has all of them, with their gazes. What their
    faces show is sent in every so many frames. After so many seconds, each gives way to somebody new."""
    optical = (-0.5, 0.5, -0.5, 0.5)
    yield transforms(START, ("camera_link", "optical", (0.0, 0.0, 0.0, *optical)), topic="/tf_static")
    names = [""] * people
    for frame in range(round(seconds * rate)):
        time = START + round((frame + 1) / rate * 1e9)
        for person in range(people):
            visit = int(frame / rate / stay + person / people)
            name = f"f{person + people * visit:04}"
            if name != names[person]:
                names[person] = name
                yield text(time if visit else START, f"/humans/persons/p{person + people * visit}/face_id", name)
        for person, name in enumerate(names):
            # From the optical frame: first x to the robot and z up, then the turn about z.
            turn = math.radians(40.0 * math.sin(0.1 * frame / rate + person)) / 2.0
            c, s = math.cos(turn) / 2.0, math.sin(turn) / 2.0
            place = (0.4 * (person - people / 2.0), -0.1, 1.2)
            yield transforms(time, ("optical", f"face_{name}", (*place, c + s, c - s, s - c, c + s)))
            yield transforms(time, (f"face_{name}", f"gaze_{name}", (0.0, 0.0, 0.0, *optical)))
            if every and frame % every == 0:
                yield from shown(time, name, frame % 100 / 100)
        yield ids(time, "/humans/faces/tracked", *names)


_HELD = """
MSG: std_msgs/Header
builtin_interfaces/Time stamp
string frame_id
MSG: builtin_interfaces/Time
int32 sec
uint32 nanosec
MSG: geometry_msgs/TransformStamped
# where a frame is in another
std_msgs/Header header
string child_frame_id # the frame
Transform transform
MSG: geometry_msgs/Transform
Vector3 translation
Quaternion rotation
MSG: geometry_msgs/Vector3
float64 x
float64 y
float64 z
MSG: geometry_msgs/Quaternion
float64 x 0
float64 y 0
float64 z 0
float64 w 1
MSG: hri_msgs/NormalizedPointOfInterest2D
float32 x
float32 y
float32 c
"""
DEFINITIONS = {kind: text + _HELD.replace("MSG", "=" * 80 + "\nMSG") for kind, text in {
    "hri_msgs/msg/IdsList": "int8 UNUSED=3\nstd_msgs/Header header\nstring[] ids",
    "std_msgs/msg/String": "string data",
    "tf2_msgs/msg/TFMessage": "geometry_msgs/TransformStamped[] transforms",
    "hri_msgs/msg/Expression": "std_msgs/Header header\nstring NEUTRAL=\"neutral\"\nstring expression\n"
                               "float32 valence\nfloat32 arousal\nfloat32 confidence",
    "hri_msgs/msg/FacialActionUnits":
        "std_msgs/Header header\nfloat32[99] intensity\nfloat32[99] confidence",
    "hri_msgs/msg/FacialLandmarks": "std_msgs/Header header\nNormalizedPointOfInterest2D[70] landmarks\n"
                                    "uint32 height\nuint32 width",
    "hri_msgs/msg/SoftBiometrics": "std_msgs/Header header\nuint8 age\nfloat32 age_confidence\n"
                                   "uint8 gender # see there\nfloat32 gender_confidence",
}.items()}
"""Layouts as bags carry them."""


def write_sqlite(path: pathlib.Path, messages: Iterable[Message],
                 definitions: dict[str, str] | None = None) -> None:
    database = sqlite3.connect(path)
    database.execute("CREATE TABLE topics(id INTEGER PRIMARY KEY, name TEXT NOT NULL, type TEXT NOT NULL, "
                     "serialization_format TEXT NOT NULL)")
    database.execute("CREATE TABLE messages(id INTEGER PRIMARY KEY, topic_id INTEGER NOT NULL, "
                     "timestamp INTEGER NOT NULL, data BLOB NOT NULL)")
    database.execute("CREATE INDEX timestamp_idx ON messages (timestamp ASC)")
    if definitions is not None:
        database.execute("CREATE TABLE message_definitions(id INTEGER PRIMARY KEY, topic_type TEXT NOT NULL, "
                         "encoding TEXT NOT NULL, encoded_message_definition TEXT NOT NULL)")
        database.executemany("INSERT INTO message_definitions(topic_type, encoding, "
                             "encoded_message_definition) VALUES (?, 'ros2msg', ?)", definitions.items())
    topics: dict[str, int] = {}
    for message in messages:
        if message.topic not in topics:
            topics[message.topic] = len(topics) + 1
            database.execute("INSERT INTO topics VALUES (?, ?, ?, 'cdr')",
                             (topics[message.topic], message.topic, message.kind))
        database.execute("INSERT INTO messages(topic_id, timestamp, data) VALUES (?, ?, ?)",
                         (topics[message.topic], message.time, message.data))
    database.commit()
    database.close()


def _record(code: int, content: bytes) -> bytes:
    return struct.pack("<BQ", code, len(content)) + content


def _text(value: str) -> bytes:
    return struct.pack("<I", len(value.encode())) + value.encode()


def _pack(compression: str, data: bytes) -> bytes:
    if compression == "zstd":
        import zstandard

        return zstandard.compress(data)
    if compression == "lz4":
        import lz4.frame

        packed: bytes = lz4.frame.compress(data)
        return packed
    return data


def write_mcap(path: pathlib.Path, messages: Iterable[Message],
               definitions: dict[str, str] | None = None, compression: str = "",
               per_chunk: int = 1000, checksums: bool = True) -> None:
    """In chunks, with an index of them at the end."""
    channels: dict[str, int] = {}
    index = b""

    with open(path, "wb") as file:
        file.write(b"\x89MCAP0\r\n" + _record(1, _text("ros2") + _text("")))

        def write_chunk(chunk: list[Message]) -> None:
            nonlocal index
            records = b""
            for message in chunk:
                if message.topic not in channels:
                    number = channels[message.topic] = len(channels) + 1
                    definition = (definitions or {}).get(message.kind)
                    records += _record(3, struct.pack("<H", number) + _text(message.kind)
                                       + _text("ros2idl" if definition is None else "ros2msg")
                                       + _text(definition or ""))
                    records += _record(4, struct.pack("<HH", number, number) + _text(message.topic)
                                       + _text("cdr") + _text(""))
                records += _record(5, struct.pack("<HIQQ", channels[message.topic], 0, message.time,
                                                  message.time) + message.data)
            packed = _pack(compression, records)
            times = [message.time for message in chunk]
            begin = file.tell()
            file.write(_record(6, struct.pack("<QQQI", min(times), max(times), len(records),
                                              zlib.crc32(records) if checksums else 0)
                               + _text(compression) + struct.pack("<Q", len(packed)) + packed))
            index += _record(8, struct.pack("<QQQQIQ", min(times), max(times), begin, file.tell() - begin, 0, 0)
                             + _text(compression) + struct.pack("<QQ", len(packed), len(records)))

        chunk: list[Message] = []
        for message in messages:
            chunk.append(message)
            if len(chunk) == per_chunk:
                write_chunk(chunk)
                chunk = []
        if chunk:
            write_chunk(chunk)
        file.write(_record(15, bytes(4)))
        summary = file.tell()
        file.write(index + _record(2, struct.pack("<QQI", summary, 0, 0)) + b"\x89MCAP0\r\n")


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("bag", type=pathlib.Path, help="a file .db3 or .mcap")
    parser.add_argument("--seconds", type=float, default=60.0)
    parser.add_argument("--people", type=int, default=6)
    parser.add_argument("--faces", type=int, default=0, help="every so many frames, what faces show")
    parser.add_argument("--compression", choices=("", "zstd", "lz4"), default="")
    options = parser.parse_args()
    messages = scene(options.seconds, options.people, every=options.faces)
    if options.bag.suffix == ".mcap":
        write_mcap(options.bag, messages, compression=options.compression)
    else:
        write_sqlite(options.bag, messages)


if __name__ == "__main__":
    main()
