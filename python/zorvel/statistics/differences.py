"""How much larger a quantity is in one condition than in another."""

from __future__ import annotations

import warnings
from collections.abc import Iterable, Sequence
from typing import Any

import numpy
import pandas
import scipy.special
import scipy.stats

from .block_bootstrap import Array, block_length, interval, resampled_sums, standard_error, warn_of_short


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


def _over_time(first: Iterable[Array], second: Iterable[Array], replicates: int,
               random: numpy.random.Generator) -> dict[str, float]:
    means, variances, owns, spreads = [], [], [], []
    for series in (list(first), list(second)):
        of_condition, spread = [], []
        for values in series:
            known = ~numpy.isnan(values)
            length = block_length(values)
            drawn = resampled_sums(numpy.stack([numpy.where(known, values, 0.0), known], axis=1),
                                   length, replicates, random)
            error = standard_error(drawn[:, 0] / drawn[:, 1], len(values), length)
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


def _groups(timeline: pandas.DataFrame, quantity: str, conditions: list[object], condition: str,
            people: Sequence[str]) -> tuple[list[dict[Any, Array]], bool]:
    """The people of each condition with their series, and whether they are those who have both."""
    known = timeline[timeline[condition].isin(conditions)]
    series = {key: group[quantity].to_numpy(float) for key, group in
              known.groupby([condition, *people], observed=True, sort=True)}
    there = {key: values for key, values in series.items() if not numpy.isnan(values).all()}
    groups = [{key[1:]: values for key, values in there.items() if key[0] == name}
              for name in conditions]
    both = groups[0].keys() & groups[1].keys()
    if both:
        groups = [{key: values for key, values in group.items() if key in both}
                  for group in groups]
    return groups, bool(both)


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
        groups, within = _groups(timeline, quantity, [first, second], condition, people)
        least = 2 if over == "people" else 1
        for name, group in zip((first, second), groups):
            if len(group) < least:
                raise ValueError(f"{quantity}: {len(group)} people with {condition} {name!r}, where it "
                                 f"takes {least}" + (" (over time, it takes one)" if least > 1 else ""))
        means = [pandas.Series({key: float(numpy.nanmean(values)) for key, values in group.items()})
                 for group in groups]
        if over == "time":
            warn_of_short(quantity, [values for group in groups for values in group.values()])
        with numpy.errstate(divide="ignore", invalid="ignore"):
            result = (_over_people(means[0], means[1], within) if over == "people" else
                      _over_time(groups[0].values(), groups[1].values(), replicates, random))
        error = result["error"]
        if error < 1e-12:  # what is left of constant values is rounding
            warnings.warn(f"the {quantity} is constant", stacklevel=2)
            error = numpy.nan
        low, high = interval(result["difference"], error, result["degrees"])
        t = abs(result["difference"]) / error
        rows.append({
            "quantity": quantity, "design": "within" if within else "between",
            "people": len(groups[0].keys() | groups[1].keys()), "first": means[0].mean(),
            "second": means[1].mean(), "difference": result["difference"], "low": low, "high": high,
            "p": 2.0 * float(scipy.stats.t.sf(t, result["degrees"])), "effect": result["effect"]})
    return pandas.DataFrame(rows).set_index("quantity")
