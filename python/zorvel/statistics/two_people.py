"""How two people move together."""

from __future__ import annotations

from typing import NamedTuple

import numpy
import pandas

from .block_bootstrap import Series, towards_one

#: With fewer shifts that do not depend on each other, unrelated series seem to move together.
_FEWEST_SHIFTS = 10


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


def synchrony(first: Series, second: Series, *, rate: float, window: float = 10.0,
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
        return float(towards_one(correlations[usable]).mean()) if usable.any() else numpy.nan

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
