"""Many recordings, played once, as tables."""

from __future__ import annotations

import concurrent.futures
import os
import sys
import warnings
from collections.abc import Iterable, Iterator, Mapping, Sequence
from typing import TYPE_CHECKING, TypeAlias

import numpy
import pandas

from .. import _zorvel
from ..grid import Array, interval_means, intervals_of
from ..html import table as html_table
from ..recordings import raise_all, raise_with, warn
from .columns import COLUMNS, QUANTITIES, listed
from .cycles import between, masked, on_grid, scope_numbers
from .epochs import Epochs
from .replays import SCOPES, Path, Replayed, replayed_anew, replayed_once

if TYPE_CHECKING:
    import matplotlib.figure

    _Participants: TypeAlias = Path | pandas.DataFrame


def _named(recordings: Mapping[str, Path] | Iterable[Path]) -> dict[str, Path]:
    """By the file's name without its ending."""
    if isinstance(recordings, Mapping):
        return dict(recordings)
    if isinstance(recordings, (str, bytes, os.PathLike)):
        recordings = [recordings]
    named: dict[str, Path] = {}
    for path in recordings:
        name = os.path.splitext(os.path.basename(os.fsdecode(path)))[0]
        if name in named:
            raise ValueError(f"{os.fsdecode(named[name])} and {os.fsdecode(path)} would have one name; "
                             "a mapping from names to paths tells them apart")
        named[name] = path
    return named


class Study:
    """Many recordings, each played once, as tables with what is known of the participants.

    A recording is called by its file's name without the ending; a mapping gives other names.
    `participants`, a data frame or a CSV file, has a row for each `recording`, or each `recording` and
    `person`; its columns join every table. Recordings are played in `workers` threads, by default as many
    as there are processors; `progress` reports on standard error how many are done. With `cache`,
    what is kept of each is written beside it, as NAME.study.npz, and read from there as long as the
    recording's content and zorvel itself are the same.

    Warnings say what looks wrong in a recording. When some fail, a DataError is raised once the
    others are done; its `results` is the study of those.
    """

    def __init__(self, recordings: Mapping[str, Path] | Iterable[Path],
                 participants: _Participants | None = None, *, workers: int | None = None,
                 cache: bool = False, progress: bool = False) -> None:
        self._paths = _named(recordings)
        self._replayed: dict[str, Replayed] = {}
        self._table: pandas.DataFrame | None = None
        self._participants = self._read_participants(participants)
        errors = self._replay(workers or os.cpu_count() or 1, cache, progress)
        for name, replayed in self._replayed.items():
            warn(self._paths[name], replayed.warnings)
        self._require_joinable()
        raise_all(errors, self)

    @classmethod
    def from_archive(cls, table: Path | pandas.DataFrame,
                     participants: _Participants | None = None) -> Study:
        """The study of an archive that is larger than memory.

        `table` is what `zorvel replay --summary` or the example of an archive writes, with a row for each
        recording and person. There are no cycles, so `persons` is all there is.
        """
        study = cls({}, participants)
        frame = (table if isinstance(table, pandas.DataFrame) else
                 pandas.read_csv(table, float_precision="round_trip"))
        names = {path: name for name, path in _named(frame["recording"].unique()).items()}
        study._table = frame.assign(recording=frame["recording"].map(names)).dropna(subset=["person"])
        study._table["person"] = study._table["person"].astype(int)
        study._require_joinable()
        return study

    def _read_participants(self, participants: _Participants | None) -> pandas.DataFrame | None:
        if participants is None or isinstance(participants, pandas.DataFrame):
            return participants
        return pandas.read_csv(participants, dtype={"recording": str})

    def _replay(self, workers: int, cache: bool, progress: bool) -> list[_zorvel.DataError | OSError]:
        read = replayed_once if cache else replayed_anew
        errors: list[_zorvel.DataError | OSError] = []
        with concurrent.futures.ThreadPoolExecutor(workers) as pool:
            futures = {name: pool.submit(read, path) for name, path in self._paths.items()}
            for done, (name, future) in enumerate(futures.items(), 1):
                try:
                    replayed, error = future.result()
                    raise_with(error, None)
                    self._replayed[name] = replayed
                except (_zorvel.DataError, OSError) as failed:
                    errors.append(failed)
                if progress:
                    print(f"\r{done} of {len(futures)} recordings", end="", file=sys.stderr, flush=True)
        if progress:
            print(file=sys.stderr)
        return errors

    def _require_joinable(self) -> None:
        if self._participants is None:
            return
        keys = [key for key in ("recording", "person") if key in self._participants]
        if "recording" not in keys:
            raise ValueError("participants: lack the column recording")
        twice = self._participants.duplicated(keys)
        if twice.any():
            raise ValueError(f"participants: {' and '.join(keys)} are there twice: "
                             f"{self._participants.loc[twice, keys].iloc[0].to_list()}")
        taken = [name for name in self._participants.columns if name in COLUMNS and name not in keys]
        if taken:
            raise ValueError(f"participants: the tables have columns of these names: {taken}")

    def _joined(self, frame: pandas.DataFrame) -> pandas.DataFrame:
        if self._participants is None:
            return frame
        keys = [key for key in ("recording", "person") if key in self._participants]
        return frame.merge(self._participants, on=keys, how="left")

    def _require_cycles(self) -> None:
        if self._table is not None:
            raise ValueError("the table of an archive has no cycles; a study of its recordings has")

    def _require_scopes(self, wanted: Iterable[str]) -> None:
        """A name that no recording has is a typing error."""
        there = {str(scope) for replayed in self._replayed.values() for scope in replayed.scopes["scope"]}
        for name in wanted:
            if name not in there:
                raise ValueError(f'no scope "{name}"; those that there are: '
                                 f'{", ".join(sorted(there)) or "none"}')

    def __len__(self) -> int:
        """How many recordings there are."""
        return len(self._replayed) if self._table is None else int(self._table["recording"].nunique())

    def persons(self) -> pandas.DataFrame:
        """A row for each recording and person: the columns of `zorvel replay --summary`."""
        if self._table is not None:
            return self._joined(self._table)
        names = _zorvel.SUMMARY_HEADER.strip().split(",")
        rows = [{"recording": name, **row} for name, replayed in self._replayed.items()
                for row in replayed.persons]
        return self._joined(pandas.DataFrame(rows, columns=names))

    def scopes(self) -> pandas.DataFrame:
        """A row for each closed scope: its length, its cycles, its label, and of each quantity the mean.

        A scope's cycles are those from its begin to its end. Means, deviations, confidences,
        coverages and shares are over all of them, as in the table of persons; of what was never measured
        within, there are none.
        """
        self._require_cycles()
        rows = []
        for name, replayed in self._replayed.items():
            people = dict(replayed.of_person())
            for number in range(len(replayed.scopes["person"])):
                scope = {key: column[number] for key, column in replayed.scopes.items()}
                if scope["label"] == "error":
                    continue
                cycles = between(people.get(int(scope["person"])), scope["begin"], scope["end"])
                rows.append({"recording": name, **scope, "seconds": scope["end"] - scope["begin"],
                             **scope_numbers(cycles)})
        names = ["recording", *SCOPES, "seconds", *scope_numbers({})]
        return self._joined(pandas.DataFrame(rows, columns=names))

    def timeline(self, rate: float | None = None,
                 scopes: Iterable[str] | str | None = None) -> pandas.DataFrame:
        """The quantities over time: a row for each cycle, or on a grid of `rate` intervals a second.

        On a grid, a value is the mean of the interval's cycles, the mood is that of its last, and
        `seconds` is where the interval begins. An interval without cycles is a gap, and so is what
        nothing measured for more than a second: NaN. With `scopes`, rows are those within scopes of
        these names, with a column `scope`; a row that lies in several is there several times.
        """
        self._require_cycles()
        wanted = None if scopes is None else set(listed(scopes) if isinstance(scopes, str) else scopes)
        self._require_scopes(wanted or ())
        frames = []
        for name, replayed in self._replayed.items():
            for person, cycles in replayed.of_person():
                for scope, part in self._parts(replayed, person, cycles, wanted):
                    columns = masked(part)
                    columns = ({"visit": part["visit"], "seconds": part["seconds"], **columns}
                               if rate is None else on_grid(part["seconds"], columns, rate))
                    about = {"recording": name, "person": person, **({} if wanted is None else
                                                                     {"scope": scope})}
                    frames.append(pandas.DataFrame({**about, **columns}))
        if not frames:
            names = ["recording", "person", *(["scope"] if wanted is not None else []),
                     *(["visit"] if rate is None else []), "seconds", *QUANTITIES, "mood"]
            return self._joined(pandas.DataFrame(columns=names))
        return self._joined(pandas.concat(frames, ignore_index=True))

    @staticmethod
    def _parts(replayed: Replayed, person: int, cycles: dict[str, Array], wanted: set[str] | None
               ) -> Iterator[tuple[str, dict[str, Array]]]:
        """All cycles, or those within each scope that is wanted, with its name."""
        if wanted is None:
            yield "", cycles
            return
        scopes = replayed.scopes
        for number in numpy.flatnonzero((scopes["person"] == person) & (scopes["label"] != "error")):
            if scopes["scope"][number] in wanted:
                yield (str(scopes["scope"][number]),
                       between(cycles, scopes["begin"][number], scopes["end"][number]))

    def epochs(self, events: pandas.DataFrame | str | Sequence[str], before: float, after: float,
               baseline: tuple[float, float] | None = None, *, rate: float = 10.0) -> Epochs:
        """What the quantities do from `before` seconds before an event to `after` seconds after it.

        `events` are the starts of the scopes of that name, or of several names, or a data frame with the
        columns recording and seconds, and perhaps person and event, the event's name. Without a person,
        an event is one of everybody in the recording. Intervals of the grid, `rate` a second, begin at
        the event. `baseline`, from when to when since the event, is a span whose mean is subtracted from
        each quantity; where nothing is known in it, the event's values are NaN. A warning says how many
        epochs the person's cycles do not cover: their mean is one of other people at other offsets.
        """
        self._require_cycles()
        if not before + after > 0.0 or not rate > 0.0:
            raise ValueError("before and after: together must be above 0, as must the rate")
        frames = []
        first, last = round(-before * rate), round(after * rate)
        begin, end = (min(-before, baseline[0]), max(after, baseline[1])) if baseline else (-before, after)
        uncovered = 0
        for name, of_recording in self._events(events).groupby("recording", sort=False):
            if name not in self._replayed:
                raise ValueError(f"events: {name!r} is none of the study's recordings")
            people = [(person, cycles["seconds"], masked(cycles))
                      for person, cycles in self._replayed[name].of_person()]
            for event in of_recording.itertuples(index=False):
                for person, seconds, values in people:
                    if not pandas.isna(event.person) and person != event.person:
                        continue
                    since = seconds - event.seconds
                    intervals = intervals_of(since, rate)
                    uncovered += bool(intervals[0] > round(begin * rate) or
                                      intervals[-1] < round(end * rate) - 1)
                    places = intervals - first
                    inside = (places >= 0) & (places < last - first)
                    columns = {"offset": numpy.arange(first, last) / rate}
                    for quantity in QUANTITIES:
                        means = interval_means(places[inside], values[quantity][inside], last - first)
                        if baseline is not None:
                            span = values[quantity][(since >= baseline[0]) & (since < baseline[1])]
                            known = span[~numpy.isnan(span)]
                            means = means - (known.mean() if len(known) else numpy.nan)
                        columns[quantity] = means
                    frames.append(pandas.DataFrame({"recording": name, "person": person, "event": event.event,
                                                    "number": event.number, **columns}))
        if uncovered:
            warnings.warn(f"{uncovered} of {len(frames)} epochs do not cover {begin:g} to {end:g} s",
                          stacklevel=2)
        names = ["recording", "person", "event", "number", "offset", *QUANTITIES]
        return Epochs(self._joined(pandas.concat(frames, ignore_index=True) if frames else
                                   pandas.DataFrame(columns=names)))

    def _events(self, events: pandas.DataFrame | str | Sequence[str]) -> pandas.DataFrame:
        if not isinstance(events, pandas.DataFrame):
            wanted = set(listed(events))
            self._require_scopes(wanted)
            rows = [{"recording": name, "person": person, "event": scope, "seconds": begin}
                    for name, replayed in self._replayed.items()
                    for person, scope, begin, label in zip(*(replayed.scopes[column].tolist() for column in
                                                             ("person", "scope", "begin", "label")))
                    if scope in wanted and label != "error"]
            events = pandas.DataFrame(rows, columns=["recording", "person", "event", "seconds"])
        else:
            missing = {"recording", "seconds"} - set(events.columns)
            if missing:
                raise ValueError(f"events: lack the columns {sorted(missing)}")
            events = events.reindex(columns=["recording", "person", "event", "seconds"])
            events["event"] = events["event"].fillna("event")
        events["number"] = events.groupby(["recording", "event"]).cumcount() + 1
        return events

    def to_csv(self, folder: Path, *, rate: float = 4.0) -> None:
        """Writes persons.csv, scopes.csv, timeline.csv on a grid, and dictionary.csv into a folder.

        The dictionary has a row for each column of each: its name, its unit and its meaning.
        """
        tables = {"persons": self.persons()}
        if self._table is None:
            tables.update(scopes=self.scopes(), timeline=self.timeline(rate))
        tables["dictionary"] = pandas.DataFrame(
            [(name, column, *COLUMNS.get(column, ("", "Of the participants.")))
             for name, table in tables.items() for column in table.columns],
            columns=["table", "column", "unit", "meaning"])
        os.makedirs(folder, exist_ok=True)
        for name, table in tables.items():
            path = os.path.join(os.fsdecode(folder), f"{name}.csv")
            _zorvel.require_distinct([os.fsdecode(read) for read in self._paths.values()], path)
            table.to_csv(path + ".new", index=False)
            os.replace(path + ".new", path)

    def plot(self, table: str = "timeline", quantities: Sequence[str] | str = QUANTITIES, *,
             scopes: Sequence[str] | None = None, rate: float = 1.0, width: float = 178.0,
             grey: bool = False) -> matplotlib.figure.Figure:
        """One of the tables, an axis for each quantity, with the mean over people and its band of 95 %.

        "persons" are dots, one for each; "scopes" are lines from scope to scope, one for each
        person; the "timeline" is on a grid of `rate`. `scopes` chooses and orders the scopes.
        """
        from .figure import draw_persons, draw_scopes, draw_timeline

        names = listed(quantities)
        if scopes is not None and table != "scopes":
            raise ValueError(f"scopes: the figure of {table} has none")
        if table == "persons":
            return draw_persons(self.persons(), names, width, grey)
        if table == "scopes":
            frame = self.scopes()
            self._require_scopes(scopes or ())
            return draw_scopes(frame, names, scopes, width, grey)
        if table == "timeline":
            return draw_timeline(self.timeline(rate), names, width, grey)
        raise ValueError(f"table: is persons, scopes or timeline, not {table!r}")

    def _repr_html_(self) -> str:
        persons = self.persons()
        return html_table(["recording", "persons", "cycles", "seconds"], [
            (name, len(group), int(group["cycles"].sum()), float((group["last"] - group["first"]).max()))
            for name, group in persons.groupby("recording", sort=False)])
