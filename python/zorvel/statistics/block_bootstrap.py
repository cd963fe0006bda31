"""Intervals by resampling a series in blocks."""

from __future__ import annotations

import warnings
from collections.abc import Callable, Iterable, Sequence
from typing import Any, NamedTuple, TypeAlias

import numpy
import pandas
import scipy.stats

Array: TypeAlias = Any  # of NumPy, whose types do not follow what is done to them
Series: TypeAlias = numpy.ndarray[Any, Any] | pandas.Series | Sequence[float]

#: Fewer blocks than these give no standard error.
FEWEST_BLOCKS = 4
#: An interval whose bias is small counts for more than one whose width is steady: blocks are longer
#: than those with the least mean square error of the variance.
_BLOCK_FACTOR = 2.0
#: Intervals of series with fewer than ten memories are too narrow (docs/study.md). The memory of a short
#: series looks shorter than it is, so those ten look like these.
_FEWEST_MEMORIES = 15
#: How many cells of sums are drawn at a time.
_DRAWN_CELLS = 4_000_000


def is_constant(values: Array) -> bool:
    known = values[~numpy.isnan(values)]
    return bool(len(known)) and numpy.ptp(known) == 0.0


def _covariances(values: Array) -> Array:
    """Of a series with itself, at each lag."""
    known = ~numpy.isnan(values)
    centred = numpy.where(known, values - values[known].mean(), 0.0)
    spectrum = numpy.fft.rfft(centred, 2 * len(values))
    return numpy.fft.irfft(spectrum * spectrum.conj(), 2 * len(values))[:len(values)] / known.sum()


def warn_of_short(name: str, series: Iterable[Array]) -> None:
    """For functions that users call."""
    for values in series:
        if numpy.isnan(values).all() or is_constant(values):
            continue
        covariances = _covariances(values)
        memory = int(numpy.argmax(covariances < covariances[0] / numpy.e)) or len(values)
        if len(values) < _FEWEST_MEMORIES * memory:
            warnings.warn(f"{name}: a series has {len(values)} values, where its memory of {memory} takes "
                          f"{_FEWEST_MEMORIES * memory}; the interval is too narrow", stacklevel=3)
            return


def block_length(series: Series) -> int:
    """How many successive values of a series stay together when it is resampled.

    Twice the length with which circular blocks have the least mean square error of the variance of a
    mean: Politis and White 2004, Econometric Reviews 23:53-70, corrected in Patton, Politis and White
    2009, Econometric Reviews 28:372-375. At most a quarter of the series.
    """
    values = numpy.asarray(series, float)
    count = len(values)
    known = ~numpy.isnan(values)
    longest = max(1, count // FEWEST_BLOCKS)
    if known.sum() < 2 or is_constant(values):
        return 1
    covariances = _covariances(values)
    # The lag from which on, for a while, no correlation differs from 0.
    quiet_lags = max(5, int(numpy.ceil(numpy.sqrt(numpy.log10(count)))))
    furthest = min(count - 1, int(numpy.ceil(numpy.sqrt(count))) + quiet_lags)
    is_small = (numpy.abs(covariances[1:furthest + 1]) <
                2.0 * numpy.sqrt(numpy.log10(count) / count) * covariances[0])
    quiet = numpy.flatnonzero(numpy.convolve(is_small, numpy.ones(quiet_lags), "valid") == quiet_lags)
    last = int(quiet[0]) if len(quiet) else furthest
    lags = numpy.arange(1, min(2 * max(last, 1), count - 1) + 1)
    weights = numpy.minimum(1.0, 2.0 * (1.0 - lags / (2 * max(last, 1))))
    variance = covariances[0] + 2.0 * float(weights @ covariances[lags])
    bend = 2.0 * float((weights * lags) @ covariances[lags])
    if variance <= 0.0:
        return 1
    best = (1.5 * (bend / variance) ** 2 * count) ** (1.0 / 3.0)
    return int(min(max(1.0, numpy.ceil(_BLOCK_FACTOR * best)), longest))


def resampled_sums(columns: Array, length: int, replicates: int,
                   random: numpy.random.Generator) -> Array:
    """The sums of each column over as many rows as there are, in circular blocks; a row per draw."""
    count, width = columns.shape
    ends = numpy.concatenate([numpy.zeros((1, width)), numpy.cumsum(numpy.tile(columns, (2, 1)), axis=0)])
    blocks = -(-count // length)
    lengths = numpy.full(blocks, length)
    lengths[-1] = count - (blocks - 1) * length
    at_once = max(1, _DRAWN_CELLS // (blocks * width))
    drawn = []
    for done in range(0, replicates, at_once):
        begins = random.integers(0, count, (min(at_once, replicates - done), blocks))
        drawn.append((ends[begins + lengths] - ends[begins]).sum(axis=1))
    return numpy.concatenate(drawn)


def standard_error(replicates: Array, count: int, length: int) -> float:
    """The standard error of what was drawn, without the bias of centring at the series' own mean."""
    known = replicates[numpy.isfinite(replicates)]
    return float(known.std() / numpy.sqrt(1.0 - length / count)) if len(known) > 1 else numpy.nan


def interval(value: float, error: float, degrees: float) -> tuple[float, float]:
    reach = float(scipy.stats.t.ppf(0.975, degrees)) * error
    return value - reach, value + reach


class Measure(NamedTuple):
    """What is made of sums, on a scale on which it scatters evenly, and the way back from there."""

    of_sums: Callable[[Array], Array]
    even: Callable[[Any], Any]
    back: Callable[[Any], Any]


def towards_one(value: Any) -> Any:
    """Fisher's z, also of what is 1 to the last bit."""
    return numpy.arctanh(numpy.clip(value, -1.0 + 1e-15, 1.0 - 1e-15))


def measured(columns: Array, length: int, measures: dict[str, Measure], replicates: int,
              seed: int) -> pandas.DataFrame:
    """A row for each measure of the columns' sums, with its interval."""
    drawn = resampled_sums(columns, length, replicates, numpy.random.default_rng(seed))
    rows = []
    for name, measure in measures.items():
        with numpy.errstate(divide="ignore", invalid="ignore"):
            value = float(measure.of_sums(columns.sum(axis=0)[None])[0])
            error = standard_error(measure.even(measure.of_sums(drawn)), len(columns), length)
            low, high = interval(measure.even(value), error, len(columns) / length - 1.0)
        rows.append((name, value, float(measure.back(low)), float(measure.back(high))))
    return pandas.DataFrame(rows, columns=["measure", "value", "low", "high"]).set_index("measure")
