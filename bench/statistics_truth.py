#!/usr/bin/env python3
"""How often the intervals of zorvel.statistics hold the truth, of simulated series that have one.

Each run simulates people whose series have a known mean, correlation or agreement, and whose
neighbouring values depend on each other for `memory` seconds (the correlation falls to 1/e). A row
says in how many runs the interval of 95 % held the truth; a row of false positives, in how many p was
below 0.05 where there was nothing.
"""

from __future__ import annotations

import argparse
import functools
import warnings
from collections.abc import Callable
from concurrent.futures import ProcessPoolExecutor
from typing import Any, NamedTuple

import numpy
import pandas
import scipy.signal
import scipy.stats

import zorvel.statistics

RATE = 4.0


def series(random: numpy.random.Generator, seconds: float, memory: float, many: int = 1) -> Any:
    """So many independent series of variance 1, whose values are normal."""
    kept = numpy.exp(-1.0 / (memory * RATE))
    start = int(20 * memory * RATE)
    steps = random.standard_normal((many, start + round(seconds * RATE)))
    return scipy.signal.lfilter([numpy.sqrt(1.0 - kept * kept)], [1.0, -kept], steps)[:, start:]


def frame(values: dict[tuple[str, int], Any]) -> pandas.DataFrame:
    """A timeline of people, each in conditions."""
    return pandas.concat([pandas.DataFrame({"recording": "r", "person": person, "scope": scope,
                                            "valence": cells})
                          for (scope, person), cells in values.items()])


def holds(row: Any, truth: float) -> bool:
    return bool(row["low"] <= truth <= row["high"])


def difference_over_time(random: numpy.random.Generator, seconds: float, memory: float) -> dict[str, bool]:
    before, game = series(random, seconds, memory, 2)
    row = zorvel.statistics.difference(frame({("before", 1): before, ("game", 1): game}), "before", "game",
                                       quantities=["valence"], over="time", replicates=500,
                                       seed=int(random.integers(2**32))).loc["valence"]
    return {"difference over time": holds(row, 0.0), "difference over time, false positives": row["p"] < 0.05}


def difference_over_people(random: numpy.random.Generator, seconds: float, memory: float) -> dict[str, bool]:
    """Of 12 people who differ by 0.5 in what the game does to them, and of two groups of 12."""
    cells = series(random, seconds, memory, 24)
    own = random.normal(0.0, 1.0, 24)[:, None]
    effects = random.normal(0.3, 0.5, 12)[:, None]
    within = {("before", person): cells[person] + own[person] for person in range(12)}
    within.update({("game", person): cells[12 + person] + own[person] + effects[person]
                   for person in range(12)})
    between = {("game" if person < 12 else "before", person): cells[person] + own[person] +
               (0.3 if person < 12 else 0.0) for person in range(24)}
    return {f"difference over people, {name}": holds(zorvel.statistics.difference(
        frame(values), "before", "game", quantities=["valence"]).loc["valence"], 0.3)
        for name, values in (("within", within), ("between", between))}


def agreement(random: numpy.random.Generator, seconds: float, memory: float) -> dict[str, bool]:
    """A rating with the correlation 0.7, half a deviation too high; and one that is 2 s late."""
    quantity, noise = series(random, seconds, memory, 2)
    rating = 0.7 * quantity + numpy.sqrt(1.0 - 0.7 ** 2) * noise + 0.5
    time = numpy.arange(len(quantity)) / RATE
    result = {}
    for name, late, max_lag in (("", 0.0, 0.0), (", lag looked for", 2.0, 4.0)):
        table = zorvel.statistics.agreement(
            pandas.Series(quantity, time), pandas.Series(rating, time + late), rate=RATE, max_lag=max_lag,
            replicates=500, seed=int(random.integers(2**32)))
        truths = {"concordance": 2 * 0.7 / (2 + 0.5 ** 2), "pearson": 0.7,
                  "rmse": numpy.sqrt(2 - 2 * 0.7 + 0.5 ** 2)}
        result.update({f"agreement, {measure}{name}": holds(table.loc[measure], truth)
                       for measure, truth in truths.items()})
    return result


EDGES = [-9.0, -0.5, 0.5, 9.0]


@functools.lru_cache
def true_kappa() -> float:
    """Of the labels that the edges make of two normal numbers with the correlation 0.7."""
    both = scipy.stats.multivariate_normal([0.0, 0.0], [[1.0, 0.7], [0.7, 1.0]])
    below = numpy.array([[both.cdf([x, y]) for y in EDGES] for x in EDGES])
    shares = numpy.diff(numpy.diff(below, axis=0), axis=1)
    expected = (shares.sum(axis=0) * shares.sum(axis=1)).sum()
    return float((numpy.trace(shares) - expected) / (1.0 - expected))


def labels(random: numpy.random.Generator, seconds: float, memory: float) -> dict[str, bool]:
    """Three labels, of series with the correlation 0.7."""
    first, noise = series(random, seconds, memory, 2)
    second = 0.7 * first + numpy.sqrt(1.0 - 0.7 ** 2) * noise
    table, _ = zorvel.statistics.label_agreement(
        numpy.digitize(first, EDGES), numpy.digitize(second, EDGES), replicates=500,
        seed=int(random.integers(2**32)))
    return {"kappa": holds(table.loc["kappa"], true_kappa())}


def raters(random: numpy.random.Generator, seconds: float, memory: float) -> dict[str, bool]:
    """Three raters of levels -0.3, 0 and 0.3, each with noise of the variance 0.5 on what is true."""
    true, *noise = series(random, seconds, memory, 4)
    ratings = pandas.DataFrame({number: true + numpy.sqrt(0.5) * own + level
                                for number, (own, level) in enumerate(zip(noise, (-0.3, 0.0, 0.3)))})
    table = zorvel.statistics.intraclass(ratings, replicates=500, seed=int(random.integers(2**32)))
    single = 1.0 / (1.0 + 0.3 ** 2 + 0.5)
    return {"ICC(2,1)": holds(table.loc["ICC(2,1)"], single),
            "ICC(2,k)": holds(table.loc["ICC(2,k)"], 3 * single / (1 + 2 * single))}


def synchrony(random: numpy.random.Generator, seconds: float, memory: float) -> dict[str, bool]:
    first, second = series(random, seconds, memory, 2)
    found = zorvel.statistics.synchrony(first, second, rate=RATE, window=min(10.0, seconds / 15.0),
                                        lag=min(3.0, seconds / 50.0))
    return {"synchrony, false positives": found.p < 0.05}


CASES = [difference_over_time, difference_over_people, agreement, labels, raters, synchrony]


class Task(NamedTuple):
    case: Callable[[numpy.random.Generator, float, float], dict[str, bool]]
    seconds: float
    memory: float
    runs: int


def shares(task: Task) -> dict[str, float]:
    """How often each of the case's statements was so."""
    random = numpy.random.default_rng(1)
    runs = [task.case(random, task.seconds, task.memory) for _ in range(task.runs)]
    return {name: sum(run[name] for run in runs) / task.runs for name in runs[0]}


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("cases", nargs="*", default=[case.__name__ for case in CASES], metavar="CASE",
                        help="of %(default)s")
    parser.add_argument("--runs", type=int, default=1000)
    parser.add_argument("--workers", type=int, default=1)
    parser.add_argument("--memory", type=float, nargs="+", default=[2.0, 6.0], metavar="SECONDS")
    parser.add_argument("--minutes", type=float, nargs="+", default=[1.0, 2.5, 5.0, 10.0, 20.0])
    options = parser.parse_args()
    warnings.simplefilter("ignore")  # short series are the point here
    cases = [case for case in CASES if case.__name__ in options.cases]
    with ProcessPoolExecutor(options.workers) as pool:
        for memory in options.memory:
            found = pool.map(shares, [Task(case, 60.0 * length, memory, options.runs)
                                      for case in cases for length in options.minutes])
            print(f"\n| memory {memory:g} s | " + " | ".join(f"{length:g} min" for length in options.minutes) +
                  " |\n|---|" + "---|" * len(options.minutes))
            for _ in cases:
                columns = [next(found) for _ in options.minutes]
                for name in columns[0]:
                    print(f"| {name} | " + " | ".join(f"{100 * column[name]:.1f}" for column in columns) +
                          " |", flush=True)


if __name__ == "__main__":
    main()
