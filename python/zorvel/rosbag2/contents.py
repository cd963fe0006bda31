"""What is found in a bag, of either format."""

from __future__ import annotations

from collections.abc import Callable
from typing import NamedTuple, TypeAlias

from ..cdr import LAYOUTS

Takes: TypeAlias = Callable[[str, str], bool]
"""Whether messages of a topic are read, by its name and its type."""

LARGEST = 1 << 18  # bytes of a message; those about people have some hundred
LONGEST_DEFINITION = 1 << 16
_MOST_DEFINITIONS = 100
_MOST_FAULTS = 20
LATEST = (1 << 62) - (1 << 40)  # of the times in a recording, with room for a cycle after it

_TYPES = {kind.rpartition("/")[2] for kind in LAYOUTS}


class Raw(NamedTuple):
    time: int
    number: int  # in the order of the file, for messages of one time
    topic: str
    kind: str
    data: bytes
    place: str


class Contents:
    """What is known of a bag besides its messages."""

    def __init__(self) -> None:
        self.start: int | None = None
        """When the bag begins, once anything was read."""
        self.topics: dict[str, str] = {}
        """The type of each topic that was found."""
        self.faults: list[str] = []
        """What could not be read, with its place."""
        self._fault_count = 0
        self.definitions: dict[str, str] = {}

    def fault(self, text: str) -> None:
        self._fault_count += 1
        if self._fault_count <= _MOST_FAULTS:
            self.faults.append(text)
        else:
            self.faults[_MOST_FAULTS:] = [f"and {self._fault_count - _MOST_FAULTS} more"]

    def define(self, kind: str, definition: str) -> None:
        if kind.rpartition("/")[2] in _TYPES and len(self.definitions) < _MOST_DEFINITIONS:
            self.definitions[kind] = definition

    def is_usable(self, time: object, place: str) -> bool:
        if isinstance(time, int) and -LATEST <= time <= LATEST:
            return True
        self.fault(f"{place}: its time is out of a recording's range")
        return False
