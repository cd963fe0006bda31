"""The messages of a file of MCAP."""

from __future__ import annotations

import io
import pathlib
import struct
import zlib
from collections.abc import Iterator
from typing import BinaryIO, cast

from .contents import LARGEST, LATEST, LONGEST_DEFINITION, Contents, Raw, Takes

_LARGEST_CHUNK = 1 << 30  # bytes that are unpacked, a piece at a time
_LARGEST_WINDOW = 1 << 23  # bytes that zstd may look back, as its own documents advise
_LONGEST_NAME = 1 << 10
_MOST_TOPICS = 10_000
_PIECE = 1 << 16

MAGIC = b"\x89MCAP0\r\n"
_FOOTER, _SCHEMA, _CHANNEL, _MESSAGE, _CHUNK, _CHUNK_INDEX, _DATA_END = 2, 3, 4, 5, 6, 8, 15


class _Unreadable(Exception):
    """The rest of a file or of a chunk cannot be read."""


def read_mcap(bag: Contents, file: pathlib.Path, stream: BinaryIO, takes: Takes) -> Iterator[Raw]:
    size = file.stat().st_size
    stream.seek(len(MAGIC))
    records = _Records(stream, size, str(file), len(MAGIC))
    channels = _Channels(takes)
    chunks: Iterator[int] | None = None
    while True:
        try:
            yield from _of_records(bag, records, channels, is_chunk=False)
            return
        except _Unreadable as error:
            bag.fault(f"{file}: offset {records.begin}: {error}")
        # The index at the end lists chunks after the damage.
        if chunks is None:
            chunks = iter(_chunks(stream, size))
        behind = next((chunk for chunk in chunks if chunk > records.begin), None)
        if behind is None:
            return
        stream.seek(behind)
        records = _Records(stream, size, str(file), behind)


def _of_records(bag: Contents, records: _Records, channels: _Channels, *,
                is_chunk: bool) -> Iterator[Raw]:
    while (record := records.next()) is not None:
        code, length = record
        if code == _SCHEMA:
            number, name = records.number("H"), records.text()
            channels.schemas[number] = name
            if records.text() == "ros2msg":
                bag.define(name, records.text(LONGEST_DEFINITION))
        elif code == _CHANNEL:
            number, kind = records.number("H"), channels.schemas.get(records.number("H"), "")
            topic, encoding = records.text(), records.text()
            if len(bag.topics) < _MOST_TOPICS:
                bag.topics[topic] = kind
            channels.add(number, topic, kind, encoding)
        elif code == _MESSAGE:
            number, _, time, _ = struct.unpack("<HIQQ", records.take(22))
            place = f"{records.place}: offset {records.begin}"
            if number not in channels.taken:
                bag.fault(f"{place}: a message of an unknown channel")
            elif (taken := channels.taken[number]) and bag.is_usable(time, place):
                data = records.take(min(length - 22, LARGEST + 1))
                channels.messages += 1
                yield Raw(time, channels.messages, *taken, data, place)
            if bag.start is None and time <= LATEST:
                bag.start = time
        elif code == _CHUNK and not is_chunk:
            yield from _of_chunk(bag, records, channels)
        elif code in (_DATA_END, _FOOTER) and not is_chunk:
            return
    if not is_chunk:
        raise _Unreadable("it is cut off")


def _of_chunk(bag: Contents, records: _Records, channels: _Channels) -> Iterator[Raw]:
    start, _, size, checksum = struct.unpack("<QQQI", records.take(28))
    compression, count = records.text(), records.number("Q")
    data = records.take(count, may_be_cut=True)
    if bag.start is None and 0 < start <= LATEST:
        bag.start = start
    place = f"{records.place}: chunk at offset {records.begin}"
    try:
        if size > _LARGEST_CHUNK:
            raise _Unreadable(f"it would take {size} bytes")
        if checksum and len(data) == count and checksum != _checksum(compression, data, size):
            raise _Unreadable("its checksum differs")
        inner = _Records(_unpacked(compression, data), size, place)
        yield from _of_records(bag, inner, channels, is_chunk=True)
    except _Unreadable as error:
        bag.fault(f"{place}: {error}")


class _Channels:
    """What is known of the channels of a file of MCAP."""

    def __init__(self, takes: Takes) -> None:
        self._takes = takes
        self.schemas: dict[int, str] = {}
        self.taken: dict[int, tuple[str, str] | None] = {}
        """Topic and type of those to be read, by number; None for the others."""
        self.messages = 0

    def add(self, number: int, topic: str, kind: str, encoding: str) -> None:
        is_taken = encoding == "cdr" and self._takes(topic, kind)
        self.taken[number] = (topic, kind) if is_taken else None


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
