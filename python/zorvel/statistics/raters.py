"""How well raters agree, with a quantity and with each other."""

from __future__ import annotations

import warnings
from collections.abc import Sequence
from typing import NamedTuple

import numpy
import pandas

from ..grid import interval_means, intervals_of
from .block_bootstrap import (
    FEWEST_BLOCKS,
    Array,
    Measure,
    block_length,
    is_constant,
    measured,
    towards_one,
    warn_of_short,
)


def _concordance(sums: Array) -> Array:
    count, x, y, xx, yy, xy = sums.T
    return 2.0 * (xy - x * y / count) / (xx - x * x / count + yy - y * y / count +
                                         (x - y) ** 2 / count)


def _pearson(sums: Array) -> Array:
    count, x, y, xx, yy, xy = sums.T
    return (xy - x * y / count) / numpy.sqrt((xx - x * x / count) * (yy - y * y / count))


def _root_mean_square_error(sums: Array) -> Array:
    count, _, _, xx, yy, xy = sums.T
    return numpy.sqrt(numpy.maximum(xx + yy - 2.0 * xy, 0.0) / count)


_AGREEMENT = {"concordance": Measure(_concordance, towards_one, numpy.tanh),
              "pearson": Measure(_pearson, towards_one, numpy.tanh),
              "rmse": Measure(_root_mean_square_error, numpy.log, numpy.exp)}


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

    def sums_at(lag: int) -> Array:
        """The cells of each pair in time order, the rating `lag` intervals later."""
        earlier = x[max(0, -lag):count - max(0, lag)]
        later = y[max(0, lag):count - max(0, -lag)]
        known = ~(numpy.isnan(earlier) | numpy.isnan(later))
        earlier, later = numpy.where(known, [earlier, later], 0.0)
        return numpy.stack([known, earlier, later, earlier * earlier, later * later,
                            earlier * later], axis=1)

    constant = [name for name, values in ((quantity.name or "quantity", x), (rating.name or "rating", y))
                if is_constant(values)]
    for name in constant:
        warnings.warn(f"the {name} is constant", stacklevel=2)
    warn_of_short("agreement", (x, y))
    reach = min(round(max_lag * rate), count - 2)
    with numpy.errstate(divide="ignore", invalid="ignore"):
        found = {lag: float(_concordance(sums_at(lag).sum(axis=0)[None])[0])
                 for lag in sorted(range(-reach, reach + 1), key=abs)}
    if all(numpy.isnan(value) for value in found.values()):
        raise ValueError("the quantity and the rating have no two moments in common that differ")
    best = max(found, key=lambda lag: -numpy.inf if numpy.isnan(found[lag]) else found[lag])
    columns = sums_at(best)
    length = max(map(block_length, (x, y)))
    table = measured(columns, min(length, max(1, len(columns) // FEWEST_BLOCKS)), _AGREEMENT,
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

    def kappa(sums: Array) -> Array:
        shares = sums.reshape(-1, size, size) / sums.sum(axis=1)[:, None, None]
        agreed = numpy.trace(shares, axis1=1, axis2=2)
        expected = (shares.sum(axis=1) * shares.sum(axis=2)).sum(axis=1)
        return (agreed - expected) / (1.0 - expected)

    constant = [name for name, series in zip(("label", "rating"), pair) if series[known].nunique() == 1]
    for name in constant:
        warnings.warn(f"the {name} is constant", stacklevel=2)
    warn_of_short("kappa", (*is_first, *is_second))
    length = max(block_length(series) for series in (*is_first, *is_second))
    table = measured(cells, length, {"kappa": Measure(kappa, towards_one, numpy.tanh)}, replicates,
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

    def forms(sums: Array) -> dict[str, Array]:
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

    def form(name: str) -> Measure:
        # A mean of raters scatters evenly on the scale of the single rater (Spearman and Brown).
        whole = raters if name.endswith("k)") else 1
        return Measure(lambda sums: forms(sums)[name],
                        lambda value: towards_one(value / (whole - (whole - 1) * value)),
                        lambda z: whole * numpy.tanh(z) / (1.0 + (whole - 1) * numpy.tanh(z)))

    constant = [name for name, values in zip(ratings.columns, cells.T) if is_constant(values)]
    for name in constant:
        warnings.warn(f"the rating {name!r} is constant", stacklevel=2)
    warn_of_short("intraclass", cells.T)
    with numpy.errstate(divide="ignore", invalid="ignore"):
        names = forms(columns.sum(axis=0)[None])
    table = measured(columns, max(map(block_length, cells.T)), {name: form(name) for name in names},
                     replicates, seed)
    if raters - len(constant) < 2:
        table[["low", "high"]] = numpy.nan
    return table
