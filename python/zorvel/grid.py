"""Series in time: which values lie in which interval of a grid."""

from __future__ import annotations

from typing import Any, TypeAlias

import numpy

Array: TypeAlias = numpy.ndarray[Any, Any]


def intervals_of(seconds: Array, rate: float) -> Array:
    """The number of the interval that each time lies in; interval 0 begins at second 0.

    A time within a thousandth of an interval before an edge counts as on it, so that cycles at the
    rate of the grid, or a multiple, do not fall to either side by their rounding.
    """
    places: Array = numpy.floor(seconds * rate + 1e-3).astype(numpy.int64)
    return places


def interval_means(places: Array, values: Array, count: int) -> Array:
    """The mean of the values of each of `count` intervals; `places` has the interval of each value.

    NaN values are left out; an interval without any has NaN.
    """
    known = ~numpy.isnan(values)
    sums = numpy.bincount(places[known], values[known].astype(float), count)
    cells = numpy.bincount(places[known], minlength=count)
    return numpy.where(cells > 0, sums / numpy.maximum(cells, 1), numpy.nan)
