"""Messages of ROS 2 as bags have them: CDR, by layouts in the language of .msg files.

Nothing here trusts its input: a text, a count or a layout that asks for more than there is throws
ValueError before anything of that size is made.
"""

from __future__ import annotations

import re
import struct
from collections.abc import Callable, Mapping
from operator import itemgetter
from typing import Any, TypeAlias

_Read: TypeAlias = Callable[[bytes, int], tuple[Any, int]]
"""Reads a value at a position after the header, and returns where it ends."""

_PRIMITIVES = {
    "bool": "?", "byte": "B", "char": "B", "uint8": "B", "int8": "b", "uint16": "H", "int16": "h",
    "uint32": "I", "int32": "i", "uint64": "Q", "int64": "q", "float32": "f", "float64": "d",
}
_MOST_FIXED = 1 << 16  # bytes that a message has at least
_DEEPEST = 16

LAYOUTS: Mapping[str, str] = {
    "builtin_interfaces/Time": "int32 sec\nuint32 nanosec",
    "std_msgs/Header": "builtin_interfaces/Time stamp\nstring frame_id",
    "std_msgs/String": "string data",
    "geometry_msgs/Vector3": "float64 x\nfloat64 y\nfloat64 z",
    "geometry_msgs/Quaternion": "float64 x\nfloat64 y\nfloat64 z\nfloat64 w",
    "geometry_msgs/Transform": "Vector3 translation\nQuaternion rotation",
    "geometry_msgs/TransformStamped":
        "std_msgs/Header header\nstring child_frame_id\nTransform transform",
    "tf2_msgs/TFMessage": "geometry_msgs/TransformStamped[] transforms",
    "hri_msgs/IdsList": "std_msgs/Header header\nstring[] ids",
    "hri_msgs/Expression":
        "std_msgs/Header header\nstring expression\nfloat32 valence\nfloat32 arousal\nfloat32 confidence",
    "hri_msgs/FacialActionUnits":
        "std_msgs/Header header\nfloat32[99] intensity\nfloat32[99] confidence",
    "hri_msgs/NormalizedPointOfInterest2D": "float32 x\nfloat32 y\nfloat32 c",
    "hri_msgs/FacialLandmarks": "std_msgs/Header header\n"
        "NormalizedPointOfInterest2D[70] landmarks\nuint32 height\nuint32 width",
    "hri_msgs/SoftBiometrics": "std_msgs/Header header\n"
        "uint8 age\nfloat32 age_confidence\nuint8 gender\nfloat32 gender_confidence",
    "hri_msgs/Gaze": "std_msgs/Header header\nstring sender\nstring receiver",
}
"""The messages that are read here, for bags that do not carry their layouts."""

_TYPE = re.compile(r"([A-Za-z]\w*(?:/[A-Za-z]\w*)?)(?:<=\d{1,9})?(?:\[(<=)?(\d{0,9})\])?")
_FIELD = re.compile(r"[A-Za-z]\w*")


def _position_after(data: bytes, size: int, at: int) -> int:
    if at + size > len(data):
        raise ValueError(f"it ends at {len(data)}, where {at + size} bytes belong")
    return at + size


def _run(order: str, codes: str) -> tuple[int, _Read]:
    """Reads numbers in a row, each aligned to its size; the least size comes with it."""
    by_alignment = []
    for start in range(8):
        layout, at = order, start
        for code in codes:
            size = struct.calcsize(order + code)
            gap = -at % size
            layout += f"{gap}x{code}" if gap else code
            at += gap + size
        by_alignment.append(struct.Struct(layout))

    def read(data: bytes, at: int) -> tuple[Any, int]:
        numbers = by_alignment[at & 7]
        end = _position_after(data, numbers.size, at)
        return numbers.unpack_from(data, at), end

    return struct.calcsize(order + codes), read


def _count(order: str) -> Callable[[bytes, int, int], tuple[int, int]]:
    number = struct.Struct(order + "I")

    def read(data: bytes, at: int, least: int) -> tuple[int, int]:
        """A count of things that take `least` bytes each at least, which must be there."""
        at += -at % 4
        end = _position_after(data, 4, at)
        count: int = number.unpack_from(data, at)[0]
        _position_after(data, count * least, end)
        return count, end

    return read


def _text(order: str) -> _Read:
    count_of = _count(order)

    def read(data: bytes, at: int) -> tuple[str, int]:
        count, at = count_of(data, at, 1)
        text = data[at:at + count]
        return text.removesuffix(b"\0").decode("utf-8", "backslashreplace"), at + count

    return read


def _numbers(order: str, code: str, count: int | None) -> _Read:
    size = struct.calcsize(order + code)
    count_of = _count(order)

    def read(data: bytes, at: int) -> tuple[Any, int]:
        number = count
        if number is None:
            number, at = count_of(data, at, size)
        if number:
            at += -at % size
        end = _position_after(data, number * size, at)
        return struct.unpack_from(f"{order}{number}{code}", data, at), end

    return read


def _several(order: str, read_one: _Read, least: int, count: int | None) -> _Read:
    count_of = _count(order)

    def read(data: bytes, at: int) -> tuple[Any, int]:
        number = count
        if number is None:
            number, at = count_of(data, at, least)
        values = []
        for _ in range(number):
            value, at = read_one(data, at)
            values.append(value)
        return values, at

    return read


def _message(kind: str, parts: list[tuple[bool, _Read]], names: list[str]) -> _Read:
    """Reads fields one after the other; a part that is a run gives several of them."""
    # A tuple whose members have names, which may be keywords of Python.
    members: dict[str, Any] = {name: property(itemgetter(index)) for index, name in enumerate(names)}
    make: Any = type(kind, (tuple,), {"__slots__": (), **members})

    def read(data: bytes, at: int) -> tuple[Any, int]:
        values: list[Any] = []
        for is_run, read_part in parts:
            value, at = read_part(data, at)
            if is_run:
                values += value
            else:
                values.append(value)
        return make(values), at

    return read


class _Layouts:
    """Compiles the layouts that a definition consists of, for one byte order."""

    def __init__(self, layouts: Mapping[str, str], order: str) -> None:
        self._layouts, self._order = layouts, order
        self._compiled: dict[str, tuple[int, _Read]] = {}

    def reader(self, kind: str, depth: int = 0) -> tuple[int, _Read]:
        """The least size of a message and what reads it."""
        if kind not in self._compiled:
            if kind not in self._layouts:
                raise ValueError(f"no layout of {kind}")
            if depth > _DEEPEST:
                raise ValueError(f"the layout of {kind} is too deep, or holds itself")
            self._compiled[kind] = self._compile(kind, depth)
        return self._compiled[kind]

    def _compile(self, kind: str, depth: int) -> tuple[int, _Read]:
        names: list[str] = []
        parts: list[tuple[bool, _Read]] = []
        run, least = "", 0
        for line in self._layouts[kind].splitlines():
            # A constant has its "=" after its name; a default value follows a space.
            words = line.partition("#")[0].split(None, 2)
            if len(words) < 2 or "=" in words[1] or (len(words) == 3 and words[2].startswith("=")):
                continue
            if not _FIELD.fullmatch(words[1]):
                raise ValueError(f"the layout of {kind} has no field {words[1][:40]!r}")
            names.append(words[1])
            described = _TYPE.fullmatch(words[0])
            if described is None:
                raise ValueError(f"the layout of {kind} has an unknown type {words[0][:40]!r}")
            name, bounded, count = described[1], described[2], described[3]
            if count is None and name in _PRIMITIVES:
                run += _PRIMITIVES[name]
                least += struct.calcsize("=" + _PRIMITIVES[name])
                continue
            if run:
                parts.append((True, _run(self._order, run)[1]))
                run = ""
            size, read = self._field(kind, name, count, bool(bounded), depth)
            parts.append((False, read))
            least += size
            if least > _MOST_FIXED:
                raise ValueError(f"a message of {kind} would take {least} bytes at least")
        if not names:
            names, run, least = ["structure_needs_at_least_one_member"], "B", 1
        if run:
            parts.append((True, _run(self._order, run)[1]))
        return least, _message(kind, parts, names)

    def _field(self, kind: str, name: str, count: str | None, bounded: bool,
               depth: int) -> tuple[int, _Read]:
        number = int(count) if count and not bounded else None
        times = 1 if count is None else number if number is not None else 0
        if count is not None and name in _PRIMITIVES:
            size = struct.calcsize("=" + _PRIMITIVES[name])
            return (size * times or 4, _numbers(self._order, _PRIMITIVES[name], number))
        if name in ("string", "wstring"):
            if name == "wstring":
                raise ValueError(f"the layout of {kind} has an unknown type 'wstring'")
            size, read = 4, _text(self._order)
        else:
            package = kind.partition("/")[0]
            size, read = self.reader(name if "/" in name else f"{package}/{name}", depth + 1)
        if count is None:
            return size, read
        return size * times or 4, _several(self._order, read, size, number)


def _normal(kind: str) -> str:
    return kind.replace("/msg/", "/")


class Decoder:
    """Reads the messages of one type, like tf2_msgs/msg/TFMessage.

    `definition` is its layout with those of the types that it holds, as bags carry them; without one,
    or with one in another language, the layout is that of LAYOUTS. Throws ValueError without any.
    """

    def __init__(self, kind: str, definition: str | None = None) -> None:
        kind = _normal(kind)
        layouts = LAYOUTS
        if definition is not None:
            own, *others = re.split(r"^=+\s*^MSG: ", definition, flags=re.M)
            layouts = {kind: own}
            for other in others:
                name, _, text = other.partition("\n")
                layouts[_normal(name.strip())] = text
        self._readers = [_Layouts(layouts, order).reader(kind)[1] for order in ("<", ">")]

    def decode(self, data: bytes) -> Any:
        """The message in the bytes; its fields are attributes. Throws ValueError for what is none."""
        if len(data) < 4 or data[0] != 0 or data[1] not in (0, 1):
            raise ValueError("it is not in plain CDR")
        body = data[4:]
        message, end = self._readers[0 if data[1] == 1 else 1](body, 0)
        if len(body) - end >= 8:
            raise ValueError(f"it has {len(body) - end} bytes more than its layout")
        return message
