"""What makes recordings, and what is in one."""

from __future__ import annotations

import contextlib
import json
import os
import warnings
from collections.abc import Iterable, Iterator, Mapping
from dataclasses import dataclass
from typing import TYPE_CHECKING, Any, TypeAlias

from . import _zorvel
from .html import table

if TYPE_CHECKING:
    import pandas

    _Table: TypeAlias = str | os.PathLike[str] | pandas.DataFrame


@dataclass(frozen=True)
class ImportedField:
    """What became of one of the fields that a file can give."""

    #: As a recording calls it.
    name: str
    #: Why it is not there, or not all of it; empty when nothing is in the way.
    obstacle: str
    #: How many observations have it.
    observations: int


@dataclass(frozen=True)
class ImportFacts:
    """What an import made."""

    #: Rows of the file.
    rows: int
    #: Times in the file.
    frames: int
    #: How many people there are.
    people: int
    #: Rows with a face.
    observations: int
    #: From the first frame to the last.
    seconds: float
    #: What became of each field.
    fields: list[ImportedField]
    #: Which last row was left out, and why; empty when none was.
    cut_off_row: str
    #: Which times look wrong, a sentence each.
    doubtful_times: list[str]

    def _repr_html_(self) -> str:
        facts: dict[str, object] = {
            "rows": self.rows, "frames": self.frames, "people": self.people,
            "observations": self.observations, "seconds": self.seconds,
            **{field.name: f"{field.observations} {field.obstacle}" for field in self.fields}}
        wrong = [("warning", text) for text in (self.cut_off_row, *self.doubtful_times) if text]
        return table([], [*facts.items(), *wrong])


def _import_facts(facts: dict[str, Any]) -> ImportFacts:
    fields = [ImportedField(*field) for field in facts.pop("fields")]
    return ImportFacts(fields=fields, **facts)


@contextlib.contextmanager
def _file_of(data: _Table) -> Iterator[str | os.PathLike[str]]:
    """The path of a table; a data frame has one while the block lasts."""
    if isinstance(data, (str, os.PathLike)):
        yield data
        return
    import tempfile

    with tempfile.NamedTemporaryFile("w", suffix=".csv", newline="", encoding="utf-8") as file:
        data.to_csv(file, index=False)
        file.flush()
        try:
            yield file.name
        except _zorvel.DataError as error:
            if error.file == file.name:
                error.file = None
            error.args = (str(error).replace(file.name, "data frame"),)
            raise


def import_openface(file: _Table, output: str | os.PathLike[str], *,
                    start: _zorvel.Time | None = None, gap: float = 3.0, fps: float | None = None,
                    mirrored: bool = False, full_intensity: float = 3.0) -> ImportFacts:
    """Turns what OpenFace 2.x writes, a file or a data frame of it, into a recording.

    `start` is when the file begins, by default 2000-01-01 in UTC; a person unseen for longer than `gap` seconds
    is removed; `fps` is for image sequences, in which every timestamp is 0; `full_intensity` is the
    intensity of an action unit that counts as full. A DataError names the line of the file; a data
    frame's first row is line 2.
    """
    with _file_of(file) as path:
        return _import_facts(_zorvel.import_openface_file(
            path, output, start, gap, fps, mirrored, full_intensity))


def import_pyfeat(file: _Table, output: str | os.PathLike[str], *, fps: float,
                  start: _zorvel.Time | None = None, gap: float = 3.0,
                  mirrored: bool = False) -> ImportFacts:
    """Turns what py-feat writes, a file or a data frame of it, into a recording.

    `fps` is the film's frames per second. The rest is as for import_openface.
    """
    with _file_of(file) as path:
        return _import_facts(_zorvel.import_pyfeat_file(path, output, fps, start, gap, mirrored))


def info(recording: str | os.PathLike[str]) -> dict[str, Any]:
    """What is in a recording, and what looks wrong with it: what `zorvel info --json` writes.

    A DataError has what the lines before the fault hold as its `results`.
    """
    text, error = _zorvel.info_of_file(recording)
    facts: dict[str, Any] = json.loads(text)
    raise_with(error, facts)
    return facts


def cut(recording: str | os.PathLike[str], output: str | os.PathLike[str], *,
        begin: _zorvel.Duration | None = None, end: _zorvel.Duration | None = None,
        lead_in: _zorvel.Duration | None = None, person: int | None = None,
        every: _zorvel.Duration | None = None, rename: dict[int, int] | None = None,
        keep_state: bool = False) -> None:
    """Cuts the span from `begin` to `end`, since second 0, out of a recording, as `zorvel cut` does.

    `lead_in` is how much to keep of what comes before; `person` keeps only the lines about this person;
    `every` keeps one observation and one not_seen of each person in each interval of this length.
    `rename` gives people other numbers, where a tracker gave one person several: `{3: 1}`.
    `keep_state` begins the cut with everybody's state, so that its states are those of the whole.
    Times and lengths are seconds as a float, nanoseconds as an int, or a timedelta.
    """
    _zorvel.cut_file(recording, output, begin, end, lead_in, person, every, rename or {}, keep_state)


def annotate(recording: str | os.PathLike[str], scopes: _Table, output: str | os.PathLike[str], *,
             offset: _zorvel.Duration | None = None, tiers: Iterable[str] = (),
             subjects: Mapping[str, int | None] | None = None, person: int | None = None) -> None:
    """Puts the scopes of a table, a file or a data frame, into a recording, as `zorvel annotate` does.

    The table has the columns person, scope, begin and end, or is what raters made: a file of ELAN
    (.eaf), events that BORIS exports, or the events.tsv of BIDS. Its seconds count from `offset` after
    second 0: seconds as a float, nanoseconds as an int, or a timedelta. Of raters' files, `tiers` and
    `subjects` choose what is taken, by default all; the number of a subject is the person, None where
    the subject's name is that number; `person` is the person of annotations without a subject. When a
    scope does not fit, nothing is written. Warnings say which annotations are left out, and which rows
    are split by removals and renamings.
    """
    with _file_of(scopes) as path:
        texts = _zorvel.annotate_file(recording, path, output, offset, list(tiers),
                                      dict(subjects or {}), person)
    warn(scopes if isinstance(scopes, (str, os.PathLike)) else "data frame", texts)


def export_elan(recording: str | os.PathLike[str], output: str | os.PathLike[str], *,
                film: str | os.PathLike[str] | None = None,
                series: str | os.PathLike[str] | None = None, person: int | None = None) -> None:
    """Writes scopes, moods and visits as tiers of ELAN, as `zorvel export elan` does.

    `film` is what the document (.eaf) names as its film; `series` is a CSV file to write for the viewer
    of time series, with each cycle of one person; `person` chooses one. When a line is bad, the files
    have everything up to it, and the DataError is raised after they are written.
    """
    text, error = _zorvel.export_elan_files(recording, output, film, series, person)
    warn(recording, [text] if text else [])
    raise_with(error, None)


def warn(file: str | os.PathLike[str], texts: list[str]) -> None:
    """What the tool says of a file on standard error; for functions that users call."""
    for text in texts:
        warnings.warn(f"{os.fsdecode(file)}: {text}", stacklevel=3)


def raise_with(error: BaseException | None, results: object) -> None:
    """Raises an error, if there is one, with what came before it."""
    if error is None:
        return
    if isinstance(error, _zorvel.DataError):
        error.results = results
    raise error


def raise_all(errors: Iterable[_zorvel.DataError | OSError], results: object) -> None:
    """Raises one error for all the files that failed, if there are any, with what came of the others."""
    lines = [f"{error.filename}: {error.strerror}" if isinstance(error, OSError) else str(error)
             for error in errors]
    raise_with(_zorvel.DataError("\n".join(lines)) if lines else None, results)
