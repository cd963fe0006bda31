"""Whole recordings: what a replay gives, as arrays; explanations and reports."""

from __future__ import annotations

import json
import os
import warnings
from collections.abc import Iterable, Iterator, Mapping, Sequence
from typing import TYPE_CHECKING, Any

from . import _zorvel

if TYPE_CHECKING:
    import matplotlib.figure
    import numpy
    import pandas


class Table(Mapping[str, "numpy.ndarray[Any, Any]"]):
    """A table of results: a mapping from the name of each column to a NumPy array.

    The columns are those of the CSV file, in its order. Where that has none of the name, `seconds`,
    the time since second 0, follows.
    """

    def __init__(self, columns: dict[str, numpy.ndarray[Any, Any]]) -> None:
        self._columns = columns

    def __getitem__(self, name: str) -> numpy.ndarray[Any, Any]:
        return self._columns[name]

    def __iter__(self) -> Iterator[str]:
        return iter(self._columns)

    def __len__(self) -> int:
        """How many columns there are."""
        return len(self._columns)

    @property
    def rows(self) -> int:
        """How many rows there are."""
        return len(self._columns["time"])

    def __repr__(self) -> str:
        return f"<Table of {self.rows} rows: {', '.join(self)}>"

    def to_pandas(self) -> pandas.DataFrame:
        """The table as a pandas data frame; ImportError without pandas."""
        import pandas

        return pandas.DataFrame(self._columns)


class Results:
    """What a replay gives: the tables of the tool's CSV files."""

    def __init__(self, tables: dict[str, dict[str, numpy.ndarray[Any, Any]]]) -> None:
        #: The state of a person after each cycle.
        self.timeline = Table(tables["timeline"])
        #: The scopes, where they were closed.
        self.scopes = Table(tables["scopes"])
        #: The room, after each measurement.
        self.ambiance = Table(tables["ambiance"])
        #: Everything that moved a state, in order; None unless it was asked for.
        self.forces = Table(tables["forces"]) if "forces" in tables else None
        #: Whether each value of the timeline's rows is known, or not measured.
        self._known = tables["known"]

    def plot(self, persons: Iterable[int] | int | None = None, *, begin: float | None = None,
             end: float | None = None, quantities: Sequence[str] | str | None = None,
             width: float = 178.0, grey: bool = False) -> matplotlib.figure.Figure:
        """Draws the timeline with matplotlib, one axis for each quantity; returns the figure.

        A band shows how much confidence is missing: half as tall as the axis at confidence 0, none at
        1; it is not a range in which the value lies. Where a person had no cycles, the curve has a
        gap. Where nothing measured moved the value for more than a second, hatching says "not
        measured" instead of a curve. Scopes are bars below. By default everybody and everything is
        drawn; `begin` and `end` are in seconds since second 0, `width` is in millimetres, and `grey`
        is for print.
        """
        from .figure import draw

        if isinstance(quantities, str):
            quantities = [quantities]
        if persons is not None:
            persons = [int(person) for person in
                       (persons if isinstance(persons, Iterable) else [persons])]
        return draw(self, persons, begin, end, quantities, width, grey)


def _raise(error: BaseException | None, results: object) -> None:
    if error is None:
        return
    if isinstance(error, _zorvel.DataError):
        error.results = results
    raise error


def _warn(recording: str | os.PathLike[str], texts: list[str]) -> None:
    """What the tool says on standard error."""
    for text in texts:
        warnings.warn(f"{os.fsdecode(recording)}: {text}", stacklevel=3)


def replay(recording: str | os.PathLike[str] | Iterable[_zorvel.Event],
           forces: bool = False) -> Results:
    """Replays a recording, a path or events, on a clock that its events set.

    Its seconds count from its origin, as `zorvel info` tells; of events other than a RecordingReader,
    from the first.

    The numbers are those of `zorvel replay`, to the bit. With `forces`, the results have the table
    of what moved the states. A DataError has what came before the fault as its `results`. What looks
    wrong in a file is told by warnings.
    """
    if isinstance(recording, (str, bytes, os.PathLike)):
        tables, texts, error = _zorvel.replay_file(recording, forces)
        _warn(recording, texts)
    else:
        tables, error = _zorvel.replay_events(recording, forces)
    results = Results(tables)
    _raise(error, results)
    return results


def summarize(recording: str | os.PathLike[str]) -> list[dict[str, Any]]:
    """What a recording adds up to: a dict for each person, by the columns of a summary table.

    Times are in seconds since second 0, shares in [0, 1]. NaN is what there is not: of a
    quantity that was never measured, a greatest change, the deviation of one cycle. What looks wrong
    in the file is told by warnings.
    """
    rows, _, texts, error = _zorvel.summarize_file(recording, "")
    _warn(recording, texts)
    _raise(error, rows)
    return rows


def summary_csv(recording: str | os.PathLike[str], name: str) -> str:
    """The same as lines of a CSV file, under SUMMARY_HEADER; `name` is what they call the recording.

    A recording in which nobody has a cycle has one line, with empty cells.
    """
    _, lines, texts, error = _zorvel.summarize_file(recording, name)
    _warn(recording, texts)
    _raise(error, lines)
    return lines


def explain(recording: str | os.PathLike[str], *, person: int | None = None,
            at: _zorvel.Duration | None = None, begin: _zorvel.Duration | None = None,
            end: _zorvel.Duration | None = None) -> dict[int, dict[str, Any]]:
    """Why each person's state is what it is, by person: what `zorvel explain --json` writes.

    `at` is a moment since second 0, whose last cycle is explained; else it is the span
    from `begin` to `end`, by default the whole recording. All three are a float of seconds, an int of
    nanoseconds or a timedelta. A DataError when nobody has a cycle there.
    """
    lines, error = _zorvel.explain_file(recording, person, at, begin, end)
    explained = [json.loads(line) for line in lines.splitlines()]
    results = {reasons.pop("person"): reasons for reasons in explained}
    _raise(error, results)
    return results


def greatest_changes(recording: str | os.PathLike[str], most: int = 3, *,
                     person: int | None = None) -> list[dict[str, Any]]:
    """The greatest changes of the valence and of the attention within a second, and why.

    As many of each, over all persons or of one: what `zorvel explain --greatest --json` writes.
    """
    lines, error = _zorvel.greatest_changes_of_file(recording, person, most)
    changes = [json.loads(line) for line in lines.splitlines()]
    _raise(error, changes)
    return changes


def report(recording: str | os.PathLike[str],
           output: str | os.PathLike[str] = "report.html") -> list[str]:
    """Shows a recording, replayed, on one page for a browser, as `zorvel report` does.

    Returns what looks wrong in the recording, a sentence each, which warnings tell, too. When a line
    is bad, the page shows everything up to it, and the DataError is raised after it is written.
    """
    texts, error = _zorvel.report_file(recording, output)
    _warn(recording, texts)
    _raise(error, texts)
    return texts
