"""The messages of a bag."""

from __future__ import annotations

import contextlib
import heapq
import os
import pathlib
import re
from collections import Counter
from collections.abc import Iterable, Iterator
from typing import Any

from ..cdr import Decoder
from .contents import LARGEST, Contents, Raw, Takes
from .mcap import MAGIC, read_mcap
from .sqlite import read_sqlite

_REORDERED = 256  # messages, within which those of MCAP are put in order


class Bag(Contents):
    """The messages of a bag: a folder, or a file of one."""

    def __init__(self, path: str | os.PathLike[str]) -> None:
        super().__init__()
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
        self.read: Counter[str] = Counter()
        """How many messages of each topic were read."""
        self.left_out: Counter[str] = Counter()
        """How many were not, by reason."""
        self._decoders: dict[str, Decoder | None] = {}

    def messages(self, takes: Takes) -> Iterator[tuple[int, str, Any]]:
        """Time of receipt, topic and message, of the topics whose name and type `takes` is true for."""
        for file in self.files:
            with open(file, "rb") as stream:
                magic = stream.read(16)
                if magic.startswith(MAGIC):
                    raw = read_mcap(self, file, stream, takes)
                elif magic == b"SQLite format 3\0":
                    raw = read_sqlite(self, file, takes)
                elif magic.startswith(b"#ROSBAG V"):
                    self.fault(f"{file}: a bag of ROS 1: play it to a node with the parameter record")
                    continue
                else:
                    self.fault(f"{file}: offset 0: neither SQLite nor MCAP begins like this")
                    continue
                for message in _in_order(raw):
                    if (decoded := self._decode(message)) is not None:
                        self.read[message.topic] += 1
                        self.start = message.time if self.start is None else self.start
                        yield message.time, message.topic, decoded

    def _decode(self, raw: Raw) -> Any:
        if raw.kind not in self._decoders:
            self._decoders[raw.kind] = None
            for definition in (self.definitions.get(raw.kind), None):
                with contextlib.suppress(ValueError):
                    self._decoders[raw.kind] = Decoder(raw.kind, definition)
                    break
        decoder = self._decoders[raw.kind]
        if decoder is None:
            self.left_out[f"unknown layout: {raw.kind}"] += 1
            return None
        if len(raw.data) > LARGEST:
            self.left_out[f"messages of more than {LARGEST >> 10} KiB"] += 1
            return None
        try:
            return decoder.decode(raw.data)
        except ValueError as error:
            self.fault(f"{raw.place}: {raw.topic}: {error}")
            return None


def _in_order(messages: Iterable[Raw]) -> Iterator[Raw]:
    """By time, where they are not far out of order."""
    waiting: list[Raw] = []
    for message in messages:
        if len(waiting) < _REORDERED:
            heapq.heappush(waiting, message)
        else:
            yield heapq.heappushpop(waiting, message)
    while waiting:
        yield heapq.heappop(waiting)
