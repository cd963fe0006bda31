"""From cycles to the numbers of tables, and from these to a mean with its interval."""

from __future__ import annotations

from collections.abc import Mapping

import numpy
import scipy.stats

from ..grid import Array, interval_means, intervals_of
from .columns import MOODS, QUANTITIES


def between(cycles: dict[str, Array] | None, begin: float, end: float) -> dict[str, Array]:
    if cycles is None:
        return {}
    first = int(numpy.searchsorted(cycles["seconds"], begin, "left"))
    last = int(numpy.searchsorted(cycles["seconds"], end, "right"))
    return {name: column[first:last] for name, column in cycles.items()}


def scope_numbers(cycles: dict[str, Array]) -> dict[str, float]:
    """What the cycles add up to; they may be none."""
    count = len(cycles["seconds"]) if cycles else 0
    numbers: dict[str, float] = {"cycles": count}
    nothing = numpy.zeros(0)
    for name in QUANTITIES:
        measured = cycles[f"{name}_measured known"] if count else nothing
        values, confidences = ((cycles[column].astype(float) for column in (name, f"{name}_confidence"))
                               if measured.any() else (nothing, nothing))
        numbers.update({f"{name}_mean": values.mean() if len(values) else numpy.nan,
                        f"{name}_deviation": values.std(ddof=1) if len(values) > 1 else numpy.nan,
                        f"{name}_confidence": confidences.mean() if len(values) else numpy.nan,
                        f"{name}_coverage": measured.mean() if count else numpy.nan})
    for mood, name in MOODS.items():
        numbers[name] = ((cycles["mood"] == mood).mean() if numbers["valence_coverage"] > 0.0 else
                         numpy.nan)
    numbers["attentive"] = ((cycles["attention"] > 0.5).mean() if numbers["attention_coverage"] > 0.0 else
                            numpy.nan)
    return numbers


def masked(cycles: Mapping[str, Array]) -> dict[str, Array]:
    """The quantities and the mood, NaN where nothing measured them."""
    values = {name: numpy.where(cycles[f"{name} known"], cycles[name], numpy.nan).astype(float)
              for name in QUANTITIES}
    values["mood"] = numpy.where(cycles["valence known"], cycles["mood"], numpy.nan)
    return values


def on_grid(seconds: Array, values: dict[str, Array], rate: float) -> dict[str, Array]:
    """A row for each interval from the first cycle to the last."""
    if not len(seconds):
        return {"seconds": seconds, **values}
    places = intervals_of(seconds, rate)
    first = int(places[0])
    places = places - first
    count = int(places[-1]) + 1
    grid = {"seconds": (first + numpy.arange(count)) / rate}
    grid.update({name: interval_means(places, values[name], count) for name in QUANTITIES})
    mood = numpy.full(count, numpy.nan)
    known = ~numpy.isnan(values["mood"])
    mood[places[known]] = values["mood"][known]  # of several in an interval, the last stays
    return {**grid, "mood": mood}


def band(values: Array) -> tuple[float, float, float]:
    """The mean of the column's numbers that are known, and its interval of 95 % (Student's t)."""
    known = values[~numpy.isnan(values)]
    if not len(known):
        return numpy.nan, numpy.nan, numpy.nan
    mean = float(known.mean())
    if len(known) < 2:
        return mean, numpy.nan, numpy.nan
    reach = float(scipy.stats.t.ppf(0.975, len(known) - 1) * known.std(ddof=1) / numpy.sqrt(len(known)))
    return mean, mean - reach, mean + reach
