"""The messages of a database of SQLite."""

from __future__ import annotations

import contextlib
import itertools
import os
import pathlib
import shutil
import sqlite3
import tempfile
from collections.abc import Iterator
from typing import Any

from .contents import LARGEST, LATEST, LONGEST_DEFINITION, Contents, Raw, Takes

_STEPS_PER_BYTE = 10  # of SQLite's own machine; a row of 50 bytes takes less than 100
_STEPS = 1000

# What SQLite says may quote a name that is not UTF-8.
_SQLITE_ERRORS = (sqlite3.Error, UnicodeDecodeError)


def read_sqlite(bag: Contents, file: pathlib.Path, takes: Takes) -> Iterator[Raw]:
    with _whole_pages(file) as whole:
        yield from _of_database(bag, file, whole, takes)


def _of_database(bag: Contents, file: pathlib.Path, whole: pathlib.Path,
                 takes: Takes) -> Iterator[Raw]:
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
            bag.fault(f"{file}: {error}")
            return
        bag.topics |= dict(topics.values())
        if "message_definitions" in tables:
            with contextlib.suppress(*_SQLITE_ERRORS):
                for kind, text in database.execute(
                        "SELECT topic_type, encoded_message_definition FROM message_definitions "
                        "WHERE encoding = 'ros2msg' "
                        f"AND length(encoded_message_definition) < {LONGEST_DEFINITION}"):
                    bag.define(str(kind), str(text))
        if bag.start is None:
            with contextlib.suppress(*_SQLITE_ERRORS):
                first, = database.execute("SELECT MIN(timestamp) FROM messages").fetchone()
                if isinstance(first, int) and abs(first) <= LATEST:
                    bag.start = first
        wanted = [number for number, topic in topics.items()
                  if isinstance(number, int) and takes(*topic)]
        for row in _rows(bag, file, database, wanted):
            yield from _row(bag, file, topics, row)


def _rows(bag: Contents, file: pathlib.Path, database: sqlite3.Connection,
          wanted: list[int]) -> Iterator[tuple[Any, ...]]:
    columns = (f"SELECT timestamp, id, topic_id, CASE WHEN length(data) <= {LARGEST} THEN data "
               f"ELSE zeroblob({LARGEST + 1}) END FROM messages "
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
        bag.fault(f"{file}: {place}: {error}")
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


def _row(bag: Contents, file: pathlib.Path, topics: dict[Any, tuple[str, str]],
         row: tuple[Any, ...]) -> Iterator[Raw]:
    time, number, topic, data = row
    place = f"{file}: message {number}"
    if not isinstance(number, int) or not isinstance(data, bytes):
        bag.fault(f"{place}: it has no number or no bytes")
    elif bag.is_usable(time, place):
        yield Raw(time, number, *topics[topic], data, place)


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
