"""What a study keeps of a recording, from its replay or from the file beside it."""

from __future__ import annotations

import functools
import hashlib
import json
import os
import tempfile
import zipfile
from collections.abc import Iterator
from dataclasses import dataclass
from typing import Any, TypeAlias

import numpy

from .. import _zorvel
from ..grid import Array
from .columns import QUANTITIES

Path: TypeAlias = str | os.PathLike[str]

#: What a study keeps of a recording's cycles and scopes.
_CYCLES = ("person", "seconds", "visit", "mood", *QUANTITIES, *(f"{name}_confidence" for name in QUANTITIES))
_KNOWN = (*QUANTITIES, *(f"{name}_measured" for name in QUANTITIES))
SCOPES = ("person", "scope", "label", "visit", "begin", "end")


@dataclass
class Replayed:
    """What a study keeps of a recording."""

    cycles: dict[str, Array]
    scopes: dict[str, Array]
    persons: list[dict[str, Any]]
    warnings: list[str]

    def of_person(self) -> Iterator[tuple[int, dict[str, Array]]]:
        """The cycles of each, in the order of time."""
        for person in numpy.unique(self.cycles["person"]):
            rows = self.cycles["person"] == person
            yield int(person), {name: column[rows] for name, column in self.cycles.items()}


def replayed_anew(path: Path) -> tuple[Replayed, BaseException | None]:
    tables, persons, texts, error = _zorvel.replay_for_study(path)
    cycles = {name: tables["timeline"][name] for name in _CYCLES}
    cycles.update({f"{name} known": tables["known"][name] for name in _KNOWN})
    # Texts that need no Python objects can be kept in a file without running what it says.
    scopes = {name: numpy.asarray(tables["scopes"][name]) for name in SCOPES}
    scopes.update({name: scopes[name].astype(str) for name in ("scope", "label")})
    return Replayed(cycles, scopes, persons, texts), error


@functools.lru_cache
def _code() -> str:
    """What makes the numbers: the files of the module and of its libraries, as they are loaded."""
    digest = hashlib.sha256()
    with open("/proc/self/maps", encoding="utf-8", errors="surrogateescape") as maps:
        files = {line.split(maxsplit=5)[5].rstrip("\n") for line in maps if ".so" in line}
    for file in sorted(file for file in files
                       if os.path.basename(file).startswith(("_zorvel.", "libzorvel.", "libku."))):
        digest.update(_digest(file).encode())
    return digest.hexdigest()


def _digest(path: Path) -> str:
    digest = hashlib.sha256()
    with open(path, "rb") as file:
        while piece := file.read(1 << 20):
            digest.update(piece)
    return digest.hexdigest()


def replayed_once(path: Path) -> tuple[Replayed, BaseException | None]:
    """From the file beside the recording, if it was made of the same content; else that is written."""
    beside = f"{os.fsdecode(path)}.study.npz"
    digest = f"{_code()} {_digest(path)}"
    try:
        with open(beside, "rb") as file, numpy.load(file, allow_pickle=False) as kept:
            about = json.loads(str(kept["about"]))
            if about["digest"] == digest:
                cycles = {name: kept[f"cycles.{name}"]
                          for name in (*_CYCLES, *(f"{name} known" for name in _KNOWN))}
                scopes = {name: kept[f"scopes.{name}"] for name in SCOPES}
                return Replayed(cycles, scopes, about["persons"], about["warnings"]), None
    except (OSError, ValueError, KeyError, zipfile.BadZipFile):
        pass
    replayed, error = replayed_anew(path)
    if error is None:
        about = json.dumps({"digest": digest, "persons": replayed.persons, "warnings": replayed.warnings})
        with tempfile.TemporaryDirectory(dir=os.path.dirname(beside) or ".") as folder:
            whole = os.path.join(folder, "study.npz")
            numpy.savez(whole, about=numpy.array(about),
                        **{f"cycles.{name}": column for name, column in replayed.cycles.items()},
                        **{f"scopes.{name}": column for name, column in replayed.scopes.items()})
            os.replace(whole, beside)
    return replayed, error
