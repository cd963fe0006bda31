"""Bags of ROS 2, in SQLite and in MCAP, read without ROS.

A bag may be cut off, damaged or made to harm: what can be read is read, what cannot is named with
its place, and nothing takes memory out of proportion to the file.
"""

from __future__ import annotations

import contextlib
import heapq
import io
import itertools
import os
import pathlib
import re
import shutil
import sqlite3
import struct
import tempfile
import zlib
from collections import Counter
from collections.abc import Callable, Iterable, Iterator
from typing import Any, BinaryIO, NamedTuple, cast

from .cdr import LAYOUTS, Decoder

_LARGEST = 1 << 18  # bytes of a message; those about people have some hundred
_LARGEST_CHUNK = 1 << 30  # bytes that are unpacked, a piece at a time
_LARGEST_WINDOW = 1 << 23  # bytes that zstd may look back, as its own documents advise
_LONGEST_NAME = 1 << 10
_LONGEST_DEFINITION = 1 << 16
_MOST_DEFINITIONS = 100
_MOST_TOPICS = 10_000
_PIECE = 1 << 16
_MOST_FAULTS = 20
_LATEST = (1 << 62) - (1 << 40)  # of the times in a recording, with room for a cycle after it
_REORDERED = 256  # messages, within which those of MCAP are put in order

_STEPS_PER_BYTE = 10  # of SQLite's own machine; a row of 50 bytes takes less than 100
_STEPS = 1000

_TYPES = {kind.rpartition("/")[2] for kind in LAYOUTS}

_MAGIC = b"\x89MCAP0\r\n"
_FOOTER, _SCHEMA, _CHANNEL, _MESSAGE, _CHUNK, _CHUNK_INDEX, _DATA_END = 2, 3, 4, 5, 6, 8, 15

# What SQLite says may quote a name that is not UTF-8.
_SQLITE_ERRORS = (sqlite3.Error, UnicodeDecodeError)


class _Raw(NamedTuple):
    time: int
    number: int  # in the order of the file, for messages of one time
    topic: str
    kind: str
    data: bytes
    place: str


class _Unreadable(Exception):
    """The rest of a file or of a chunk cannot be read."""


class Bag:
    """The messages of a bag: a folder, or a file of one."""

    def __init__(self, path: str | os.PathLike[str]) -> None:
        given = pathlib.Path(os.fsdecode(path))
        self.files = [given]
        if given.is_dir():
            self.files = sorted((file for file in given.iterdir() if file.suffix in (".db3", ".mcap")),
                                key=lambda file: [int(part) if part.isdecimal() else part
                                                  for part in re.split(r"(\d+)", file.name)])
        elif not given.exists():
            raise FileNotFoundError(2, "No such file or directory", os.fspath(given))
        if not self.files:
            raise ValueError(f"{given}: there is no file .db3 or .mcap in it")
        self.start: int | None = None
        """When the bag begins, once anything was read."""
        self.topics: dict[str, str] = {}
        """The type of each topic that was found."""
        self.read: Counter[str] = Counter()
        """How many messages of each topic were read."""
        self.left_out: Counter[str] = Counter()
        """How many were not, by reason."""
        self.faults: list[str] = []
        """What could not be read, with its place."""
        self._fault_count = 0
        self._definitions: dict[str, str] = {}
        self._decoders: dict[str, Decoder | None] = {}

    def messages(self, takes: Callable[[str, str], bool]) -> Iterator[tuple[int, str, Any]]:
        """Time of receipt, topic and message, of the topics whose name and type `takes` is true for."""
        for file in self.files:
            with open(file, "rb") as stream:
                magic = stream.read(16)
                if magic.startswith(_MAGIC):
                    raw = self._of_mcap(file, stream, takes)
                elif magic == b"SQLite format 3\0":
                    raw = self._of_sqlite(file, takes)
                elif magic.startswith(b"#ROSBAG V"):
                    self._fault(f"{file}: a bag of ROS 1: play it to a node with the parameter record")
                    continue
                else:
                    self._fault(f"{file}: offset 0: neither SQLite nor MCAP begins like this")
                    continue
                for message in _in_order(raw):
                    if (decoded := self._decode(message)) is not None:
                        self.read[message.topic] += 1
                        self.start = message.time if self.start is None else self.start
                        yield message.time, message.topic, decoded

    def _fault(self, text: str) -> None:
        self._fault_count += 1
        if self._fault_count <= _MOST_FAULTS:
            self.faults.append(text)
        else:
            self.faults[_MOST_FAULTS:] = [f"and {self._fault_count - _MOST_FAULTS} more"]

    def _define(self, kind: str, definition: str) -> None:
        if kind.rpartition("/")[2] in _TYPES and len(self._definitions) < _MOST_DEFINITIONS:
            self._definitions[kind] = definition

    def _decode(self, raw: _Raw) -> Any:
        if raw.kind not in self._decoders:
            self._decoders[raw.kind] = None
            for definition in (self._definitions.get(raw.kind), None):
                with contextlib.suppress(ValueError):
                    self._decoders[raw.kind] = Decoder(raw.kind, definition)
                    break
        decoder = self._decoders[raw.kind]
        if decoder is None:
            self.left_out[f"unknown layout: {raw.kind}"] += 1
            return None
        if len(raw.data) > _LARGEST:
            self.left_out[f"messages of more than {_LARGEST >> 10} KiB"] += 1
            return None
        try:
            return decoder.decode(raw.data)
        except ValueError as error:
            self._fault(f"{raw.place}: {raw.topic}: {error}")
            return None

    def _is_usable(self, time: object, place: str) -> bool:
        if isinstance(time, int) and -_LATEST <= time <= _LATEST:
            return True
        self._fault(f"{place}: its time is out of a recording's range")
        return False

    # SQLite.

    def _of_sqlite(self, file: pathlib.Path, takes: Callable[[str, str], bool]) -> Iterator[_Raw]:
        with _whole_pages(file) as whole:
            yield from self._of_database(file, whole, takes)

    def _of_database(self, file: pathlib.Path, whole: pathlib.Path,
                     takes: Callable[[str, str], bool]) -> Iterator[_Raw]:
        # Without its log, a database can be read where nothing can be written.
        alone = "" if pathlib.Path(f"{file}-wal").exists() else "&immutable=1"
        with contextlib.closing(sqlite3.connect(f"{whole.absolute().as_uri()}?mode=ro{alone}",
                                                uri=True)) as database:
            database.text_factory = lambda text: text.decode("utf-8", "backslashreplace")
            size = file.stat().st_size
            database.setlimit(sqlite3.SQLITE_LIMIT_LENGTH, max(size, 1 << 20))
            # In a damaged database, pages may lead back to each other.
            steps = itertools.count()
            most_steps = 1000 + size * _STEPS_PER_BYTE // _STEPS
            database.set_progress_handler(lambda: next(steps) > most_steps, _STEPS)
            try:
                database.execute("PRAGMA trusted_schema = OFF")
                database.execute("PRAGMA writable_schema = ON")  # or a file that is cut off is refused
                tables = {name for name, in database.execute(
                    "SELECT name FROM sqlite_master WHERE type = 'table' AND sql NOT LIKE '%VIRTUAL%'")}
                if not {"topics", "messages"} <= tables:
                    raise sqlite3.DatabaseError("there are no tables of topics and messages")
                topics = {number: (str(name), str(kind)) for number, name, kind in database.execute(
                    "SELECT id, name, type FROM topics")}
            except _SQLITE_ERRORS as error:
                self._fault(f"{file}: {error}")
                return
            self.topics |= dict(topics.values())
            if "message_definitions" in tables:
                with contextlib.suppress(*_SQLITE_ERRORS):
                    for kind, text in database.execute(
                            "SELECT topic_type, encoded_message_definition FROM message_definitions "
                            "WHERE encoding = 'ros2msg' "
                            f"AND length(encoded_message_definition) < {_LONGEST_DEFINITION}"):
                        self._define(str(kind), str(text))
            if self.start is None:
                with contextlib.suppress(*_SQLITE_ERRORS):
                    first, = database.execute("SELECT MIN(timestamp) FROM messages").fetchone()
                    if isinstance(first, int) and abs(first) <= _LATEST:
                        self.start = first
            wanted = [number for number, topic in topics.items()
                      if isinstance(number, int) and takes(*topic)]
            for row in self._rows(file, database, wanted):
                yield from self._row(file, topics, row)

    def _rows(self, file: pathlib.Path, database: sqlite3.Connection,
              wanted: list[int]) -> Iterator[tuple[Any, ...]]:
        columns = (f"SELECT timestamp, id, topic_id, CASE WHEN length(data) <= {_LARGEST} THEN data "
                   f"ELSE zeroblob({_LARGEST + 1}) END FROM messages "
                   f"WHERE topic_id IN ({','.join(str(number) for number in wanted)})")
        behind = "(timestamp, id) > (?, ?)"
        last: tuple[Any, ...] = (-(1 << 63), -(1 << 63))
        try:
            for row in database.execute(f"{columns} ORDER BY timestamp, id"):
                last = row[:2]
                yield row
            return
        except _SQLITE_ERRORS as error:
            place = "messages" if last[1] < 0 else f"after message {last[1]}"
            self._fault(f"{file}: {place}: {error}")
        # Where the table is damaged, the index still lists what is after the damage; where the index
        # is, the table itself has what is before.
        try:
            for last in database.execute(
                    f"SELECT timestamp, id FROM messages WHERE {behind} ORDER BY timestamp, id", last):
                with contextlib.suppress(*_SQLITE_ERRORS):
                    yield from database.execute(f"{columns} AND id = ?", last[1:])
            return
        except _SQLITE_ERRORS:
            pass
        with contextlib.suppress(*_SQLITE_ERRORS):
            yield from database.execute(f"{columns} AND {behind} ORDER BY id", last)

    def _row(self, file: pathlib.Path, topics: dict[Any, tuple[str, str]],
             row: tuple[Any, ...]) -> Iterator[_Raw]:
        time, number, topic, data = row
        place = f"{file}: message {number}"
        if not isinstance(number, int) or not isinstance(data, bytes):
            self._fault(f"{place}: it has no number or no bytes")
        elif self._is_usable(time, place):
            yield _Raw(time, number, *topics[topic], data, place)

    # MCAP.

    def _of_mcap(self, file: pathlib.Path, stream: BinaryIO,
                 takes: Callable[[str, str], bool]) -> Iterator[_Raw]:
        size = file.stat().st_size
        stream.seek(len(_MAGIC))
        records = _Records(stream, size, str(file), len(_MAGIC))
        channels = _Channels(takes)
        chunks: Iterator[int] | None = None
        while True:
            try:
                yield from self._of_records(records, channels, is_chunk=False)
                return
            except _Unreadable as error:
                self._fault(f"{file}: offset {records.begin}: {error}")
            # The index at the end lists chunks after the damage.
            if chunks is None:
                chunks = iter(_chunks(stream, size))
            behind = next((chunk for chunk in chunks if chunk > records.begin), None)
            if behind is None:
                return
            stream.seek(behind)
            records = _Records(stream, size, str(file), behind)

    def _of_records(self, records: _Records, channels: _Channels, *,
                    is_chunk: bool) -> Iterator[_Raw]:
        while (record := records.next()) is not None:
            code, length = record
            if code == _SCHEMA:
                number, name = records.number("H"), records.text()
                channels.schemas[number] = name
                if records.text() == "ros2msg":
                    self._define(name, records.text(_LONGEST_DEFINITION))
            elif code == _CHANNEL:
                number, kind = records.number("H"), channels.schemas.get(records.number("H"), "")
                topic, encoding = records.text(), records.text()
                if len(self.topics) < _MOST_TOPICS:
                    self.topics[topic] = kind
                channels.add(number, topic, kind, encoding)
            elif code == _MESSAGE:
                number, _, time, _ = struct.unpack("<HIQQ", records.take(22))
                place = f"{records.place}: offset {records.begin}"
                if number not in channels.taken:
                    self._fault(f"{place}: a message of an unknown channel")
                elif (taken := channels.taken[number]) and self._is_usable(time, place):
                    data = records.take(min(length - 22, _LARGEST + 1))
                    channels.messages += 1
                    yield _Raw(time, channels.messages, *taken, data, place)
                if self.start is None and time <= _LATEST:
                    self.start = time
            elif code == _CHUNK and not is_chunk:
                yield from self._of_chunk(records, channels)
            elif code in (_DATA_END, _FOOTER) and not is_chunk:
                return
        if not is_chunk:
            raise _Unreadable("it is cut off")

    def _of_chunk(self, records: _Records, channels: _Channels) -> Iterator[_Raw]:
        start, _, size, checksum = struct.unpack("<QQQI", records.take(28))
        compression, count = records.text(), records.number("Q")
        data = records.take(count, may_be_cut=True)
        if self.start is None and 0 < start <= _LATEST:
            self.start = start
        place = f"{records.place}: chunk at offset {records.begin}"
        try:
            if size > _LARGEST_CHUNK:
                raise _Unreadable(f"it would take {size} bytes")
            if checksum and len(data) == count and checksum != _checksum(compression, data, size):
                raise _Unreadable("its checksum differs")
            inner = _Records(_unpacked(compression, data), size, place)
            yield from self._of_records(inner, channels, is_chunk=True)
        except _Unreadable as error:
            self._fault(f"{place}: {error}")


class _Channels:
    """What is known of the channels of a file of MCAP."""

    def __init__(self, takes: Callable[[str, str], bool]) -> None:
        self._takes = takes
        self.schemas: dict[int, str] = {}
        self.taken: dict[int, tuple[str, str] | None] = {}
        """Topic and type of those to be read, by number; None for the others."""
        self.messages = 0

    def add(self, number: int, topic: str, kind: str, encoding: str) -> None:
        is_taken = encoding == "cdr" and self._takes(topic, kind)
        self.taken[number] = (topic, kind) if is_taken else None


@contextlib.contextmanager
def _whole_pages(file: pathlib.Path) -> Iterator[pathlib.Path]:
    """A database, without the last page where that is cut off: SQLite would read its missing rest as 0."""
    with open(file, "rb") as stream:
        page = int.from_bytes(stream.read(18)[16:], "big")
        size = file.stat().st_size
        cut = size % (page if page > 1 else 1 << 16)
        if cut == 0:
            yield file
            return
        with tempfile.TemporaryDirectory() as folder:
            whole = pathlib.Path(folder) / "whole.db3"
            shutil.copyfile(file, whole)
            os.truncate(whole, size - cut)
            yield whole


def _in_order(messages: Iterable[_Raw]) -> Iterator[_Raw]:
    """By time, where they are not far out of order."""
    waiting: list[_Raw] = []
    for message in messages:
        if len(waiting) < _REORDERED:
            heapq.heappush(waiting, message)
        else:
            yield heapq.heappushpop(waiting, message)
    while waiting:
        yield heapq.heappop(waiting)


class _Records:
    """The records of a file or a chunk, one after the other; what is not taken of one is skipped."""

    def __init__(self, stream: BinaryIO, size: int, place: str, at: int = 0) -> None:
        self._stream, self._size, self.place, self._at = stream, size, place, at
        self.begin = at
        self._end = at
        self._is_cut = False

    def next(self) -> tuple[int, int] | None:
        """Code and length of the next; None at the end."""
        while self._at < self._end:  # what was not taken of the last
            self.take(min(self._end - self._at, _PIECE))
        if self._is_cut:
            raise _Unreadable("it is cut off")
        self.begin = self._at
        if self._at == self._size:
            return None
        self._end = min(self._at + 9, self._size)
        code, length = struct.unpack("<BQ", self.take(9))
        if code == 0:
            raise _Unreadable("here is no record")
        self._is_cut = length > self._size - self._at
        self._end = min(self._at + length, self._size)
        return code, length

    def take(self, count: int, *, may_be_cut: bool = False) -> bytes:
        """The next bytes of a record."""
        if count > self._end - self._at and not may_be_cut:
            raise _Unreadable(f"{count} bytes belong where {self._end - self._at} are left")
        data = b""
        while missing := min(count, self._end - self._at) - len(data):
            try:
                piece = self._stream.read(missing)
            except Exception as error:  # each library that unpacks has errors of its own
                raise _Unreadable(str(error)) from None
            if not piece:
                raise _Unreadable("it is cut off")
            data += piece
        self._at += len(data)
        return data

    def pieces(self) -> Iterator[bytes]:
        """All that there is, records or not."""
        self._end = self._size
        while self._at < self._end:
            yield self.take(min(self._end - self._at, _PIECE))

    def number(self, code: str) -> int:
        value, = struct.unpack("<" + code, self.take(struct.calcsize("<" + code)))
        return int(value)

    def text(self, longest: int = _LONGEST_NAME) -> str:
        length = self.number("I")
        if length > longest:
            raise _Unreadable(f"a text of {length} bytes")
        return self.take(length).decode("utf-8", "backslashreplace")


def _unpacked(compression: str, data: bytes) -> BinaryIO:
    """What a chunk holds, unpacked as it is read."""
    packed = io.BytesIO(data)
    try:
        if compression == "zstd":
            import zstandard

            unpacker = zstandard.ZstdDecompressor(max_window_size=_LARGEST_WINDOW)
            return cast(BinaryIO, unpacker.stream_reader(packed))
        if compression == "lz4":
            import lz4.frame

            return cast(BinaryIO, lz4.frame.open(packed))
    except ImportError:
        name = "python3-zstandard" if compression == "zstd" else "python3-lz4"
        raise _Unreadable(f"unpacking it takes Debian's package {name}") from None
    if compression:
        raise _Unreadable(f"it is packed by {compression[:40]!r}")
    return packed


def _checksum(compression: str, data: bytes, size: int) -> int:
    pieces = _Records(_unpacked(compression, data), size, "")
    checksum = 0
    for piece in pieces.pieces():
        checksum = zlib.crc32(piece, checksum)
    return checksum


def _chunks(stream: BinaryIO, size: int) -> list[int]:
    """Where the chunks of a file begin, by its summary."""
    found: list[int] = []
    try:
        stream.seek(max(size - 37, 0))
        code, _, summary = struct.unpack("<BQQ", stream.read(17))
        if code == _FOOTER and 0 < summary < size:
            stream.seek(summary)
            records = _Records(stream, size, "", summary)
            while (record := records.next()) is not None and record[0] != _FOOTER:
                if record[0] == _CHUNK_INDEX:
                    found.append(struct.unpack("<QQQ", records.take(24))[2])
    except (_Unreadable, struct.error):
        pass
    return sorted(chunk for chunk in found if chunk < size)
