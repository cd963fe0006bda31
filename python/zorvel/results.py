"""Whole recordings: what a replay gives, as arrays; explanations and reports."""

from __future__ import annotations

import json
import os
from collections.abc import Iterable, Mapping, Sequence
from typing import TYPE_CHECKING, Any

from . import _zorvel
from .recordings import raise_all, raise_with, warn
from .tables import Tables

if TYPE_CHECKING:
    import matplotlib.axes
    import matplotlib.figure


class Results(Tables):
    """What a replay gives: the tables of the tool's CSV files."""

    def plot(self, persons: Iterable[int] | int | None = None, *, begin: float | None = None,
             end: float | None = None, quantities: Sequence[str] | str | None = None,
             width: float = 178.0, grey: bool = False,
             axes: matplotlib.axes.Axes | Sequence[matplotlib.axes.Axes] | None = None
             ) -> matplotlib.figure.Figure:
        """Draws the timeline with matplotlib, one axis for each quantity; returns the figure.

        A band shows how much confidence is missing: half as tall as the axis at confidence 0, none at
        1; it is not a range in which the value lies. Where a person had no cycles, the curve has a
        gap. Where nothing measured moved the value for more than a second, hatching says "not
        measured" instead of a curve. Scopes are bars below. By default everybody is drawn, with
        valence, attention and ease; "mood" is a quantity, too. `begin` and `end` are in seconds since
        second 0, `width` is in millimetres, and `grey` is for print. Your own `axes` are one for each
        quantity, and perhaps one more for the scopes.
        """
        return plot({"": self}, persons, begin=begin, end=end, quantities=quantities, width=width,
                    grey=grey, axes=axes)


def plot(recordings: Mapping[str, Results] | Iterable[str | os.PathLike[str]],
         persons: Iterable[int] | int | None = None, *, begin: float | None = None,
         end: float | None = None, quantities: Sequence[str] | str | None = None,
         width: float = 178.0, grey: bool = False,
         axes: matplotlib.axes.Axes | Sequence[matplotlib.axes.Axes] | None = None
         ) -> matplotlib.figure.Figure:
    """Draws several recordings over each other, as Results.plot draws one.

    They are given as paths, or as replays by the name that the figure calls them.
    """
    from .figure import draw

    replays: Mapping[str, Results] = (
        recordings if isinstance(recordings, Mapping) else
        {os.fsdecode(path): replay(path) for path in recordings})
    if persons is not None:
        persons = [int(person) for person in
                   (persons if isinstance(persons, Iterable) else [persons])]
    if axes is not None:
        axes = list(axes) if isinstance(axes, Iterable) else [axes]
    return draw(replays, persons, begin, end,
                [quantities] if isinstance(quantities, str) else quantities, width, grey, axes)


def _plain(value: Any) -> object:
    """A number of NumPy as Python's."""
    if not hasattr(value, "tolist"):
        raise TypeError(f"{value!r} is not something that a recording holds")
    return value.tolist()


def _line_of(entry: object) -> str:
    if not isinstance(entry, Mapping):
        raise TypeError(f"recording: must give events, dicts or lines, not {type(entry).__name__}")
    return json.dumps(dict(entry), default=_plain)


def replay(
        recording: str | os.PathLike[str] | Iterable[_zorvel.Event | Mapping[str, Any] | str | bytes],
        forces: bool = False) -> Results:
    """Replays a recording, a path or an iterable of its events, on a clock that its events set.

    An event may be an Event, a line of a recording, or such a line as a dict. Seconds count from the
    recording's origin, which `zorvel info` shows; without a header that has one, from the first event.

    The numbers are those of `zorvel replay`, to the bit. With `forces`, the results have the table
    of what moved the states. A DataError has what came before the fault as its `results`. Warnings say
    what looks wrong in a file.
    """
    if isinstance(recording, (str, bytes, os.PathLike)):
        tables, texts, error = _zorvel.replay_file(recording, forces)
        warn(recording, texts)
    else:
        tables, error = _zorvel.replay_events(recording, _line_of, forces)
    results = Results(tables)
    raise_with(error, results)
    return results


def summarize(recording: str | os.PathLike[str] | Iterable[str | os.PathLike[str]]
              ) -> list[dict[str, Any]]:
    """What a recording adds up to: a dict for each person, by the columns of a summary table.

    Times are in seconds since second 0, shares in [0, 1]. NaN stands for what is missing, such as the
    mean of a quantity that was never measured, or the deviation of one cycle. Warnings say what looks
    wrong in a file. With several recordings, each dict names its `recording` first; when some fail, the
    DataError is raised after the others are done, which are its `results`.
    """
    if isinstance(recording, (str, bytes, os.PathLike)):
        rows, _, texts, error = _zorvel.summarize_file(recording, "")
        warn(recording, texts)
        raise_with(error, rows)
        return rows
    every: list[dict[str, Any]] = []
    errors: list[_zorvel.DataError | OSError] = []
    for path in recording:
        try:
            rows, _, texts, error = _zorvel.summarize_file(path, "")
            warn(path, texts)
            raise_with(error, rows)
            every += [{"recording": os.fsdecode(path), **row} for row in rows]
        except (_zorvel.DataError, OSError) as failed:
            errors.append(failed)
    raise_all(errors, every)
    return every


def summary_csv(recording: str | os.PathLike[str], name: str) -> str:
    """The same as lines of a CSV file, under SUMMARY_HEADER; `name` is the recording's name in them.

    A recording in which nobody has a cycle has one line, with empty cells.
    """
    _, lines, texts, error = _zorvel.summarize_file(recording, name)
    warn(recording, texts)
    raise_with(error, lines)
    return lines


def explain(recording: str | os.PathLike[str], *, person: int | None = None,
            at: _zorvel.Duration | None = None, begin: _zorvel.Duration | None = None,
            end: _zorvel.Duration | None = None) -> dict[int, dict[str, Any]]:
    """Why each person's state is what it is, by person: what `zorvel explain --json` writes.

    `at` is a moment since second 0: the last cycle at or before it is explained. Without it, the span from
    `begin` to `end` is, by default the whole recording. All three are a float of seconds, an int of
    nanoseconds or a timedelta. Raises a DataError when nobody has a cycle there.
    """
    lines, error = _zorvel.explain_file(recording, person, at, begin, end)
    explained = [json.loads(line) for line in lines.splitlines()]
    results = {reasons.pop("person"): reasons for reasons in explained}
    raise_with(error, results)
    return results


def greatest_changes(recording: str | os.PathLike[str], most: int = 3, *,
                     person: int | None = None) -> list[dict[str, Any]]:
    """The greatest changes of the valence and of the attention within a second, and why.

    At most `most` of each, over all persons or of one: what `zorvel explain --greatest --json` writes.
    """
    lines, error = _zorvel.greatest_changes_of_file(recording, person, most)
    changes = [json.loads(line) for line in lines.splitlines()]
    raise_with(error, changes)
    return changes


def what_mattered(recording: str | os.PathLike[str], fields: Iterable[str] = ("all",)
                  ) -> list[dict[str, Any]]:
    """What changes in a replay without one field: what `zorvel explain --without --json` writes.

    A dict for each person and field, several fields left out one at a time; `pandas.DataFrame` takes
    the list as it is. For each quantity of the timeline, say valence, `valence_mean_change` is the mean
    distance over all cycles, `valence_change` the greatest, above 0 where the valence is higher without
    the field, and `valence_change_at` its second, None where nothing changes. `other_mood` and
    `other_attentive` are the shares of cycles with another mood, and with an attention on the other
    side of a half.
    """
    lines, error = _zorvel.what_mattered_in_file(recording, list(fields))
    rows = [json.loads(line) for line in lines.splitlines()]
    raise_with(error, rows)
    return rows


def report(recording: str | os.PathLike[str] | Iterable[str | os.PathLike[str]],
           output: str | os.PathLike[str] = "report.html", *, align: str | None = None,
           mattered: bool = False) -> list[str]:
    """Replays a recording, or several, and shows it on one page for a browser, as `zorvel report` does.

    With `align`, the curves of several meet where in each the first scope of that name begins; with
    `mattered`, which takes one recording, the page shows how much each field mattered. Returns
    what looks wrong, a sentence each, as do the warnings. When a line is bad, the page shows
    everything up to it, and the DataError is raised after it is written.
    """
    if isinstance(recording, (str, bytes, os.PathLike)):
        recording = [recording]
    paths = list(recording)
    if mattered and (len(paths) != 1 or align is not None):
        raise ValueError("mattered: takes one recording, and no align")
    if len(paths) == 1 and align is None:
        texts, error = _zorvel.report_file(paths[0], output, mattered)
        warn(paths[0], texts)
        raise_with(error, texts)
        return texts
    texts_of_each, error = _zorvel.report_files(paths, output, align)
    texts = []
    for path, found in zip(paths, texts_of_each):
        warn(path, found)
        texts += [f"{os.fsdecode(path)}: {text}" for text in found]
    raise_with(error, texts)
    return texts
