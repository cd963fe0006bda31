"""Statistics of series whose cycles are not independent.

The state of a person moves smoothly, so neighbouring cycles say nearly the same, and a test that
takes them for independent finds differences where there are none. Here a series is resampled in
blocks of successive values, long enough that what depends on each other stays together (Künsch
1989, Annals of Statistics 17; circular blocks: Politis and Romano 1992, in LePage and Billard,
Exploring the Limits of Bootstrap). An interval of 95 % is an estimate, plus and minus its
standard error over the resampled series times the quantile of Student's t with one degree of
freedom less than there are blocks.

All of it assumes that a series is stationary: its mean, its variance and the correlation of its
neighbours stay what they are. A trend, or a change half way, breaks that. An interval also needs a
series of a hundred times its memory, the time after which its correlation with itself has fallen to
1/e; docs/study.md says how often intervals of shorter series hold the truth. NaN is a gap: it keeps
its place in time and is not counted.

Draws are made with a fixed `seed`: the same data give the same numbers.
"""

from __future__ import annotations

import warnings
from collections.abc import Callable, Iterable, Sequence
from typing import TYPE_CHECKING, Any, NamedTuple, TypeAlias

import numpy
import pandas
import scipy.special
import scipy.stats

from .grid import interval_means, intervals_of

if TYPE_CHECKING:
    _Array: TypeAlias = Any  # of NumPy, whose types do not follow what is done to them
    _Series: TypeAlias = numpy.ndarray[Any, Any] | pandas.Series | Sequence[float]

#: Fewer blocks than these give no standard error.
_FEWEST_BLOCKS = 4
#: An interval whose bias is small counts for more than one whose width is steady: blocks are longer
#: than those with the least mean square error of the variance.
_BLOCK_FACTOR = 2.0
#: Intervals of series with fewer than ten memories are too narrow (docs/study.md). The memory of a short
#: series looks shorter than it is, so those ten look like these.
_FEWEST_MEMORIES = 15
#: With fewer shifts that do not depend on each other, unrelated series seem to move together.
_FEWEST_SHIFTS = 10
#: How many cells of sums are drawn at a time.
_DRAWN_CELLS = 4_000_000


def _is_constant(values: _Array) -> bool:
    known = values[~numpy.isnan(values)]
    return bool(len(known)) and numpy.ptp(known) == 0.0


def _covariances(values: _Array) -> _Array:
    """Of a series with itself, at each lag."""
    known = ~numpy.isnan(values)
    centred = numpy.where(known, values - values[known].mean(), 0.0)
    spectrum = numpy.fft.rfft(centred, 2 * len(values))
    return numpy.fft.irfft(spectrum * spectrum.conj(), 2 * len(values))[:len(values)] / known.sum()


def _warn_of_short(name: str, series: Iterable[_Array]) -> None:
    """For functions that users call."""
    for values in series:
        if numpy.isnan(values).all() or _is_constant(values):
            continue
        covariances = _covariances(values)
        memory = int(numpy.argmax(covariances < covariances[0] / numpy.e)) or len(values)
        if len(values) < _FEWEST_MEMORIES * memory:
            warnings.warn(f"{name}: a series has {len(values)} values, where its memory of {memory} takes "
                          f"{_FEWEST_MEMORIES * memory}; the interval is too narrow", stacklevel=3)
            return


def block_length(series: _Series) -> int:
    """How many successive values of a series stay together when it is resampled.

    Twice the length with which circular blocks have the least mean square error of the variance of a
    mean: Politis and White 2004, Econometric Reviews 23:53-70, corrected in Patton, Politis and White
    2009, Econometric Reviews 28:372-375. At most a quarter of the series.
    """
    values = numpy.asarray(series, float)
    count = len(values)
    known = ~numpy.isnan(values)
    longest = max(1, count // _FEWEST_BLOCKS)
    if known.sum() < 2 or _is_constant(values):
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


def _resampled_sums(columns: _Array, length: int, replicates: int,
                    random: numpy.random.Generator) -> _Array:
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


def _error(replicates: _Array, count: int, length: int) -> float:
    """The standard error of what was drawn, without the bias of centring at the series' own mean."""
    known = replicates[numpy.isfinite(replicates)]
    return float(known.std() / numpy.sqrt(1.0 - length / count)) if len(known) > 1 else numpy.nan


def _interval(value: float, error: float, degrees: float) -> tuple[float, float]:
    reach = float(scipy.stats.t.ppf(0.975, degrees)) * error
    return value - reach, value + reach


class _Measure(NamedTuple):
    """What is made of sums, on a scale on which it scatters evenly, and the way back from there."""

    of_sums: Callable[[_Array], _Array]
    even: Callable[[Any], Any]
    back: Callable[[Any], Any]


def _towards_one(value: Any) -> Any:
    """Fisher's z, also of what is 1 to the last bit."""
    return numpy.arctanh(numpy.clip(value, -1.0 + 1e-15, 1.0 - 1e-15))


def _measured(columns: _Array, length: int, measures: dict[str, _Measure], replicates: int,
              seed: int) -> pandas.DataFrame:
    """A row for each measure of the columns' sums, with its interval."""
    drawn = _resampled_sums(columns, length, replicates, numpy.random.default_rng(seed))
    rows = []
    for name, measure in measures.items():
        with numpy.errstate(divide="ignore", invalid="ignore"):
            value = float(measure.of_sums(columns.sum(axis=0)[None])[0])
            error = _error(measure.even(measure.of_sums(drawn)), len(columns), length)
            low, high = _interval(measure.even(value), error, len(columns) / length - 1.0)
        rows.append((name, value, float(measure.back(low)), float(measure.back(high))))
    return pandas.DataFrame(rows, columns=["measure", "value", "low", "high"]).set_index("measure")


# Differences.


def _unbiased(degrees: float) -> float:
    """What makes a standardised difference free of bias (Hedges 1981, Journal of Educational
    Statistics 6:107-128)."""
    return float(numpy.exp(scipy.special.gammaln(degrees / 2.0) - numpy.log(degrees / 2.0) / 2.0 -
                           scipy.special.gammaln((degrees - 1.0) / 2.0)))


def _over_people(first: pandas.Series, second: pandas.Series, within: bool) -> dict[str, float]:
    if within:
        change = (second - first).to_numpy(float)
        difference, degrees = change.mean(), len(change) - 1.0
        error = change.std(ddof=1) / numpy.sqrt(len(change))
        deviation, effect_degrees = change.std(ddof=1), degrees
    else:
        difference = second.mean() - first.mean()
        variances = numpy.array([first.var(), second.var()])
        parts = variances / [len(first), len(second)]
        error = numpy.sqrt(parts.sum())
        own = numpy.array([len(first), len(second)]) - 1.0
        degrees = parts.sum() ** 2 / (parts ** 2 / own).sum()
        effect_degrees = own.sum()
        deviation = numpy.sqrt((own * variances).sum() / effect_degrees)
    return {"difference": difference, "error": error, "degrees": degrees,
            "effect": difference / deviation * _unbiased(effect_degrees)}


def _over_time(first: Iterable[_Array], second: Iterable[_Array], replicates: int,
               random: numpy.random.Generator) -> dict[str, float]:
    means, variances, owns, spreads = [], [], [], []
    for series in (list(first), list(second)):
        of_condition, spread = [], []
        for values in series:
            known = ~numpy.isnan(values)
            length = block_length(values)
            drawn = _resampled_sums(numpy.stack([numpy.where(known, values, 0.0), known], axis=1),
                                    length, replicates, random)
            error = _error(drawn[:, 0] / drawn[:, 1], len(values), length)
            of_condition.append(values[known].mean())
            spread.append(values[known].var(ddof=1) if known.sum() > 1 else numpy.nan)
            variances.append((error / len(series)) ** 2)
            owns.append(max(len(values) / length - 1.0, 1.0))
        means.append(numpy.mean(of_condition))
        spreads.append(numpy.mean(spread))
    total = float(numpy.sum(variances))
    degrees = total ** 2 / float(numpy.sum(numpy.square(variances) / owns)) if total else 1.0
    difference = float(means[1] - means[0])
    return {"difference": difference, "error": numpy.sqrt(total), "degrees": degrees,
            "effect": difference / numpy.sqrt(numpy.mean(spreads))}


def difference(timeline: pandas.DataFrame, first: object, second: object, *, condition: str = "scope",
               quantities: Sequence[str] = ("valence", "attention", "ease"), over: str = "people",
               people: Sequence[str] = ("recording", "person"), replicates: int = 2000,
               seed: int = 0) -> pandas.DataFrame:
    """How much larger each quantity is in the condition `second` than in `first`; a row for each.

    `timeline` is what Study.timeline gives at a rate; its column `condition` has the condition of
    each row, and the columns `people` whose it is. Where people have both conditions, the difference
    is their own (within), and people with only one are left out; otherwise it is that of two groups
    (between). `over` says what the interval and the p are about:

    - "people": about people like these, each with one number for each condition. The intervals are
      those of Student's t for pairs and of Welch's (Welch 1947, Biometrika 34:28-35), and assume that
      people's numbers are independent and about normal. The effect is the difference in standard
      deviations, of people's differences within and of people between, without bias (Hedges 1981).
    - "time": about these people at other moments, and the way for one person. Each series is
      resampled in blocks, the degrees of freedom are pooled as Welch does. The effect is the
      difference in standard deviations of the values within a person and a condition. A warning says
      when a series is too short for that.

    What is constant has no interval.
    """
    if over not in ("people", "time"):
        raise ValueError(f"over: is people or time, not {over!r}")
    random = numpy.random.default_rng(seed)
    rows = []
    for quantity in quantities:
        known = timeline[timeline[condition].isin([first, second])]
        series = {key: group[quantity].to_numpy(float) for key, group in
                  known.groupby([condition, *people], observed=True, sort=True)}
        there = {key: values for key, values in series.items() if not numpy.isnan(values).all()}
        groups = [{key[1:]: values for key, values in there.items() if key[0] == name}
                  for name in (first, second)]
        both = groups[0].keys() & groups[1].keys()
        if both:
            groups = [{key: values for key, values in group.items() if key in both}
                      for group in groups]
        least = 2 if over == "people" else 1
        for name, group in zip((first, second), groups):
            if len(group) < least:
                raise ValueError(f"{quantity}: {len(group)} people with {condition} {name!r}, where it "
                                 f"takes {least}" + (" (over time, it takes one)" if least > 1 else ""))
        means = [pandas.Series({key: float(numpy.nanmean(values)) for key, values in group.items()})
                 for group in groups]
        if over == "time":
            _warn_of_short(quantity, [values for group in groups for values in group.values()])
        with numpy.errstate(divide="ignore", invalid="ignore"):
            result = (_over_people(means[0], means[1], bool(both)) if over == "people" else
                      _over_time(groups[0].values(), groups[1].values(), replicates, random))
        error = result["error"]
        if error < 1e-12:  # what is left of constant values is rounding
            warnings.warn(f"the {quantity} is constant", stacklevel=2)
            error = numpy.nan
        low, high = _interval(result["difference"], error, result["degrees"])
        t = abs(result["difference"]) / error
        rows.append({
            "quantity": quantity, "design": "within" if both else "between",
            "people": len(groups[0].keys() | groups[1].keys()), "first": means[0].mean(),
            "second": means[1].mean(), "difference": result["difference"], "low": low, "high": high,
            "p": 2.0 * float(scipy.stats.t.sf(t, result["degrees"])), "effect": result["effect"]})
    return pandas.DataFrame(rows).set_index("quantity")


# Two people.


class Synchrony(NamedTuple):
    """How two people move together."""

    #: The greatest mean correlation over all lags, with its sign.
    correlation: float
    #: At which lag that is, in seconds: where it is above 0, the second person follows the first.
    lag: float
    #: How often shifted pairs reach that much.
    p: float
    #: A row for each lag: the mean correlation, and the two between which 95 % of shifted pairs lie.
    lags: pandas.DataFrame


def synchrony(first: _Series, second: _Series, *, rate: float, window: float = 10.0,
              lag: float = 3.0, shifts: int = 199) -> Synchrony:
    """Windowed cross-correlation of two people's series on one grid, at lags of up to `lag` seconds.

    Boker, Xu, Rotondo and King 2002, Psychological Methods 7:338-355: within windows of `window`
    seconds, half overlapping, the first series is correlated with the second one `lag` later; a mean
    over windows is one of Fisher's z. What unrelated people reach is learnt from the same two series,
    one of them shifted around by more than a window and the lags
    (Moulder, Boker, Ramseyer and Tschacher 2018, Psychological Methods 23:757-773). Where a series
    is shifted, its end meets its beginning. It must be ten times as long as a window and the lag: with
    fewer independent shifts, p is too small. At most `shifts` are tried, so p is never smaller than
    1 / (`shifts` + 1). Windows of which less than half is known are left out.
    """
    series = [numpy.asarray(values, float) for values in (first, second)]
    count = len(series[0])
    if len(series[1]) != count:
        raise ValueError(f"the series have {count} and {len(series[1])} values, where it is one grid")
    half = max(2, round(window * rate / 2.0))
    reach = round(lag * rate)
    nearest = 2 * half + reach
    if count < _FEWEST_SHIFTS * nearest:
        raise ValueError(f"the series have {count / rate:g} s, where a window and a lag of "
                         f"{nearest / rate:g} s take {_FEWEST_SHIFTS * nearest / rate:g} s")
    halves = count // half
    known = [~numpy.isnan(values) for values in series]
    centred = [numpy.where(there, values - numpy.nanmean(values), 0.0)
               for there, values in zip(known, series)]

    def mean_z(offset: int) -> float:
        """Of the windows, with the second series that much later."""
        both = known[0] & numpy.roll(known[1], -offset)
        one, other = centred[0] * both, numpy.roll(centred[1], -offset) * both
        cells = numpy.stack([both, one, other, one * one, other * other, one * other])
        sums = cells[:, :halves * half].reshape(6, halves, half).sum(axis=2)
        count, x, y, xx, yy, xy = sums[:, :-1] + sums[:, 1:]
        with numpy.errstate(divide="ignore", invalid="ignore"):
            x_square, y_square = xx - x * x / count, yy - y * y / count
            correlations = (xy - x * y / count) / numpy.sqrt(x_square * y_square)
        # What is left of the squares of a flat stretch is rounding.
        usable = (count >= half) & (x_square > 1e-12 * xx) & (y_square > 1e-12 * yy)
        return float(_towards_one(correlations[usable]).mean()) if usable.any() else numpy.nan

    offsets = numpy.arange(-reach, reach + 1)
    centres = numpy.unique(numpy.linspace(nearest, count - nearest, shifts).round().astype(int))
    places = {0, *centres.tolist()}
    found = {place: mean_z(place) for place in
             {int(centre + offset) % count for centre in places for offset in offsets}}
    observed, *shifted = (numpy.array([found[int(centre + offset) % count] for offset in offsets])
                          for centre in [0, *centres])
    if numpy.isnan(observed).all():
        raise ValueError("no window of the two series has a correlation")
    null = numpy.array(shifted)
    best = int(numpy.nanargmax(numpy.abs(observed)))
    reached = numpy.nanmax(numpy.abs(null), axis=1) >= abs(observed[best])
    low, high = numpy.nanquantile(null, [0.025, 0.975], axis=0)
    table = pandas.DataFrame({"lag": offsets / rate, "correlation": numpy.tanh(observed),
                              "shifted_low": numpy.tanh(low), "shifted_high": numpy.tanh(high)})
    return Synchrony(float(numpy.tanh(observed[best])), float(offsets[best] / rate),
                     (1.0 + reached.sum()) / (1.0 + len(null)), table)


# Raters.


def _concordance(sums: _Array) -> _Array:
    count, x, y, xx, yy, xy = sums.T
    return 2.0 * (xy - x * y / count) / (xx - x * x / count + yy - y * y / count +
                                         (x - y) ** 2 / count)


def _pearson(sums: _Array) -> _Array:
    count, x, y, xx, yy, xy = sums.T
    return (xy - x * y / count) / numpy.sqrt((xx - x * x / count) * (yy - y * y / count))


def _root_mean_square_error(sums: _Array) -> _Array:
    count, _, _, xx, yy, xy = sums.T
    return numpy.sqrt(numpy.maximum(xx + yy - 2.0 * xy, 0.0) / count)


_AGREEMENT = {"concordance": _Measure(_concordance, _towards_one, numpy.tanh),
              "pearson": _Measure(_pearson, _towards_one, numpy.tanh),
              "rmse": _Measure(_root_mean_square_error, numpy.log, numpy.exp)}


def agreement(quantity: pandas.Series, rating: pandas.Series, *, rate: float = 4.0,
              max_lag: float = 0.0, replicates: int = 2000, seed: int = 0) -> pandas.DataFrame:
    """How well a quantity agrees with what a person rated, continuously, on the same scale.

    Both series have the seconds of the film as their index, at any rate; they are compared on a grid
    of `rate` values a second, by the mean of each interval. A rating with fewer values a second needs
    a lower `rate`. Raters are late: the `lag`, within `max_lag` seconds, is that of the greatest
    concordance; where it is above 0, the rating follows. This search makes the agreement of a short
    series look better than it is, which the interval does not take into account.

    The rows are the concordance correlation (Lin 1989, Biometrics 45:255-268), Pearson's correlation
    and the root mean square error. Intervals are made with blocks, on Fisher's scale or, for the
    error, on that of logarithms.
    """
    pair = [(numpy.asarray(series.index, float), series.to_numpy(float))
            for series in (quantity, rating)]
    places = [intervals_of(seconds, rate) for seconds, _ in pair]
    first = min(int(place.min()) for place in places)
    count = max(int(place.max()) for place in places) - first + 1
    x, y = (interval_means(place - first, values, count)
            for place, (_, values) in zip(places, pair))
    middle = numpy.nanmean(x)  # so that no digits are lost in squares
    x, y = x - middle, y - middle

    def sums_at(lag: int) -> _Array:
        """The cells of each pair in time order, the rating `lag` intervals later."""
        earlier = x[max(0, -lag):count - max(0, lag)]
        later = y[max(0, lag):count - max(0, -lag)]
        known = ~(numpy.isnan(earlier) | numpy.isnan(later))
        earlier, later = numpy.where(known, [earlier, later], 0.0)
        return numpy.stack([known, earlier, later, earlier * earlier, later * later,
                            earlier * later], axis=1)

    constant = [name for name, values in ((quantity.name or "quantity", x), (rating.name or "rating", y))
                if _is_constant(values)]
    for name in constant:
        warnings.warn(f"the {name} is constant", stacklevel=2)
    _warn_of_short("agreement", (x, y))
    reach = min(round(max_lag * rate), count - 2)
    with numpy.errstate(divide="ignore", invalid="ignore"):
        found = {lag: float(_concordance(sums_at(lag).sum(axis=0)[None])[0])
                 for lag in sorted(range(-reach, reach + 1), key=abs)}
    if all(numpy.isnan(value) for value in found.values()):
        raise ValueError("the quantity and the rating have no two moments in common that differ")
    best = max(found, key=lambda lag: -numpy.inf if numpy.isnan(found[lag]) else found[lag])
    columns = sums_at(best)
    length = max(map(block_length, (x, y)))
    table = _measured(columns, min(length, max(1, len(columns) // _FEWEST_BLOCKS)), _AGREEMENT,
                      replicates, seed)
    if constant:
        table.loc["pearson"] = numpy.nan
        table.loc["concordance", ["low", "high"]] = numpy.nan
    table["lag"] = best / rate
    return table


class LabelAgreement(NamedTuple):
    """How well two series of labels agree."""

    #: One row, `kappa`, with its interval.
    kappa: pandas.DataFrame
    #: How often each label of the first series, a row, met each of the second, a column.
    confusion: pandas.DataFrame


def label_agreement(labels: Sequence[object] | pandas.Series, ratings: Sequence[object] | pandas.Series,
                    *, replicates: int = 2000, seed: int = 0) -> LabelAgreement:
    """Cohen's kappa of two series of labels at the same moments, in the order of time.

    Cohen 1960, Educational and Psychological Measurement 20:37-46: the share of moments at which they
    agree, beyond what the shares of the labels alone would give. None and NaN are no label. The
    interval is made with blocks on Fisher's scale.
    """
    pair = [pandas.Series(list(series), dtype=object) for series in (labels, ratings)]
    if len(pair[0]) != len(pair[1]):
        raise ValueError(f"there are {len(pair[0])} labels and {len(pair[1])} ratings")
    known = pair[0].notna() & pair[1].notna()
    names = sorted(set(pair[0][known]) | set(pair[1][known]), key=lambda name: (str(type(name)), name))
    if not names:
        raise ValueError("there is no moment with both a label and a rating")
    is_first, is_second = (numpy.array([(series == name) & known for name in names], float)
                           for series in pair)
    size = len(names)
    cells = (is_first[:, None] * is_second[None]).reshape(size * size, -1).T

    def kappa(sums: _Array) -> _Array:
        shares = sums.reshape(-1, size, size) / sums.sum(axis=1)[:, None, None]
        agreed = numpy.trace(shares, axis1=1, axis2=2)
        expected = (shares.sum(axis=1) * shares.sum(axis=2)).sum(axis=1)
        return (agreed - expected) / (1.0 - expected)

    constant = [name for name, series in zip(("label", "rating"), pair) if series[known].nunique() == 1]
    for name in constant:
        warnings.warn(f"the {name} is constant", stacklevel=2)
    _warn_of_short("kappa", (*is_first, *is_second))
    length = max(block_length(series) for series in (*is_first, *is_second))
    table = _measured(cells, length, {"kappa": _Measure(kappa, _towards_one, numpy.tanh)}, replicates,
                      seed)
    if constant:
        table[["low", "high"]] = numpy.nan
    confusion = pandas.DataFrame(cells.sum(axis=0).reshape(size, size).astype(int), names, names)
    return LabelAgreement(table, confusion)


def intraclass(ratings: pandas.DataFrame, *, replicates: int = 2000, seed: int = 0) -> pandas.DataFrame:
    """Whether raters agree with each other: the intraclass correlations of Shrout and Fleiss.

    Shrout and Fleiss 1979, Psychological Bulletin 86:420-428. `ratings` has a column for each rater
    and a row for each moment, or each person; a row that lacks a rating is left out. ICC(1,1) is for
    rows that each have other raters, ICC(2,1) for raters drawn from many, as a rule the one to
    report, and ICC(3,1) for just these raters, whose levels may differ; with k in place of 1 it is
    that of their mean. The rows are in the order of time, if they have one: intervals are made with
    blocks of them, and are about other moments with these raters.
    """
    cells = ratings.to_numpy(float)
    cells = cells[~numpy.isnan(cells).any(axis=1)]
    count, raters = cells.shape
    if count < 2 or raters < 2:
        raise ValueError(f"there are {count} whole rows of {raters} raters, where it takes two of each")
    cells = cells - cells.mean()
    total = cells.sum(axis=1)
    columns = numpy.column_stack([total * total, (cells * cells).sum(axis=1), cells])

    def forms(sums: _Array) -> dict[str, _Array]:
        rows, squares, of_raters = sums[:, 0] / raters, sums[:, 1], sums[:, 2:]
        middle = of_raters.sum(axis=1) ** 2 / (count * raters)
        between = (rows - middle) / (count - 1)
        levels = (of_raters ** 2).sum(axis=1) / count - middle
        rest = (squares - rows - levels) / ((count - 1) * (raters - 1))
        within = (squares - rows) / (count * (raters - 1))
        levels = levels / (raters - 1)
        return {
            "ICC(1,1)": (between - within) / (between + (raters - 1) * within),
            "ICC(2,1)": (between - rest) / (between + (raters - 1) * rest +
                                            raters * (levels - rest) / count),
            "ICC(3,1)": (between - rest) / (between + (raters - 1) * rest),
            "ICC(1,k)": (between - within) / between,
            "ICC(2,k)": (between - rest) / (between + (levels - rest) / count),
            "ICC(3,k)": (between - rest) / between,
        }

    def form(name: str) -> _Measure:
        # A mean of raters scatters evenly on the scale of the single rater (Spearman and Brown).
        whole = raters if name.endswith("k)") else 1
        return _Measure(lambda sums: forms(sums)[name],
                        lambda value: _towards_one(value / (whole - (whole - 1) * value)),
                        lambda z: whole * numpy.tanh(z) / (1.0 + (whole - 1) * numpy.tanh(z)))

    constant = [name for name, values in zip(ratings.columns, cells.T) if _is_constant(values)]
    for name in constant:
        warnings.warn(f"the rating {name!r} is constant", stacklevel=2)
    _warn_of_short("intraclass", cells.T)
    with numpy.errstate(divide="ignore", invalid="ignore"):
        names = forms(columns.sum(axis=0)[None])
    table = _measured(columns, max(map(block_length, cells.T)), {name: form(name) for name in names},
                      replicates, seed)
    if raters - len(constant) < 2:
        table[["low", "high"]] = numpy.nan
    return table
