"""Studies of many recordings, and the statistics of series."""

from __future__ import annotations

import math
import pathlib
import subprocess
import sys
from collections.abc import Callable
from typing import Any

import matplotlib
import numpy
import pandas
import pytest
import scipy.stats
import statsmodels.stats.inter_rater
import statsmodels.stats.weightstats

import zorvel
from zorvel import statistics

matplotlib.use("agg")
SOURCE = pathlib.Path(__file__).parents[2]
sys.path.insert(0, str(SOURCE / "bench"))
import statistics_truth  # noqa: E402

START = 1_700_000_000 * 10**9


# Statistics.

# Hours of sleep gained by two drugs (Cushny and Peebles 1905), the example of Student 1908, Biometrika 6:1-25.
SLEEP = numpy.array([[0.7, -1.6, -0.2, -1.2, -0.1, 3.4, 3.7, 0.8, 0.0, 2.0],
                     [1.9, 0.8, 1.1, 0.1, -0.1, 4.4, 5.5, 1.6, 4.6, 3.4]])


def conditions(first: Any, second: Any, people: tuple[list[int], list[int]]) -> pandas.DataFrame:
    return pandas.concat([
        pandas.DataFrame({"recording": "r", "person": numbers, "scope": scope, "valence": values})
        for scope, values, numbers in (("before", first, people[0]), ("game", second, people[1]))])


def test_difference_over_people() -> None:
    ten, others = list(range(10)), list(range(10, 20))
    row = statistics.difference(conditions(SLEEP[0], SLEEP[1], (ten, ten)), "before", "game",
                                quantities=["valence"]).loc["valence"]
    assert (row["design"], row["people"]) == ("within", 10)
    # The 95 % interval and p of Student's t for these pairs, as textbooks have them.
    assert [row["difference"], row["low"], row["high"], row["p"]] == pytest.approx(
        [1.58, 0.7001142, 2.4598858, 0.002833], rel=1e-4)
    bias = math.gamma(4.5) / (math.sqrt(4.5) * math.gamma(4.0))
    assert row["effect"] == pytest.approx(1.58 / numpy.std(SLEEP[1] - SLEEP[0], ddof=1) * bias)

    row = statistics.difference(conditions(SLEEP[0], SLEEP[1], (ten, others)), "before", "game",
                                quantities=["valence"]).loc["valence"]
    welch = statsmodels.stats.weightstats.CompareMeans.from_data(SLEEP[1], SLEEP[0])
    assert row["design"] == "between"
    assert row["p"] == pytest.approx(welch.ttest_ind(usevar="unequal")[1])
    assert [row["low"], row["high"]] == pytest.approx(welch.tconfint_diff(usevar="unequal"))
    with pytest.raises(ValueError, match="1 people with scope 'game', where it takes 2"):
        statistics.difference(conditions([1.0, 1.0], [2.0], ([1, 2], [3])), "before", "game",
                              quantities=["valence"])


def test_intervals_hold_the_truth() -> None:
    """A short form of bench/statistics_truth.py, whose long one is in docs/study.md."""
    for case in statistics_truth.CASES:
        found = statistics_truth.shares(statistics_truth.Task(case, 180.0, 2.0, 80))
        for name, share in found.items():
            low, high = (0.0, 0.11) if "false" in name else (0.88, 1.0)
            assert low <= share <= high, (name, share)


def test_block_length_of_a_known_series() -> None:
    random = numpy.random.default_rng(1)
    # Of an autoregressive series with correlation r, the best is cbrt(1.5 (2 r / (1 - r r))² n).
    for memory, kept in ((1.0 / math.log(2.0), 0.5), (1.0 / math.log(1.25), 0.8)):
        cells = statistics_truth.series(random, 50_000.0, memory / statistics_truth.RATE)[0]
        best = (1.5 * (2.0 * kept / (1.0 - kept**2)) ** 2 * len(cells)) ** (1.0 / 3.0)
        assert statistics.block_length(cells) == pytest.approx(2.0 * best, rel=0.1)
    assert statistics.block_length(random.standard_normal(10_000)) < 20
    assert statistics.block_length([1.0] * 50) == 1
    assert statistics.block_length(numpy.cumsum(random.standard_normal(400))) == 100


def test_agreement_with_a_rating() -> None:
    quantity = pandas.Series([0.1, 0.4, 0.2, 0.9, 0.6, 0.5, 0.7, 0.3], numpy.arange(8.0))
    rating = pandas.Series([0.2, 0.5, 0.4, 0.8, 0.9, 0.5, 0.6, 0.6], numpy.arange(8.0))
    table = statistics.agreement(quantity, rating, rate=1.0)
    pearson = scipy.stats.pearsonr(quantity, rating)[0]
    # Lin: the concordance is Pearson's times how near the line is to that of equal values.
    shift, scale = quantity.mean() - rating.mean(), quantity.std(ddof=0) / rating.std(ddof=0)
    nearness = 2.0 / (scale + 1.0 / scale + shift**2 / (quantity.std(ddof=0) * rating.std(ddof=0)))
    assert table["value"].to_dict() == pytest.approx({
        "concordance": pearson * nearness, "pearson": pearson,
        "rmse": numpy.sqrt(((quantity - rating) ** 2).mean())})
    assert (table["low"] < table["value"]).all() and (table["value"] < table["high"]).all()

    # The rating follows by 1.5 s, at another rate, with a gap.
    smooth = pandas.Series(numpy.sin(numpy.arange(0.0, 60.0, 0.1)), numpy.arange(0.0, 60.0, 0.1))
    late = pandas.Series(numpy.sin(numpy.arange(0.0, 60.0, 0.125) - 1.5), numpy.arange(0.0, 60.0, 0.125))
    late[(late.index >= 20.0) & (late.index < 25.0)] = numpy.nan
    table = statistics.agreement(smooth, late, rate=2.0, max_lag=3.0)
    assert set(table["lag"]) == {1.5} and table.loc["concordance", "value"] > 0.99
    with pytest.raises(ValueError, match="no two moments in common"):
        statistics.agreement(smooth, late + numpy.nan)


def test_agreement_of_labels_and_raters() -> None:
    first = ["up", "up", "down", None, "flat", "down", "up", "flat", "up", "down"] * 6
    second = ["up", "down", "down", "up", "flat", "flat", "up", None, "up", "down"] * 6
    kappa, confusion = statistics.label_agreement(first, second)
    assert confusion.loc["up"].to_dict() == {"down": 6, "flat": 0, "up": 18}
    assert kappa.loc["kappa", "value"] == pytest.approx(
        statsmodels.stats.inter_rater.cohens_kappa(confusion.to_numpy()).kappa)

    # Six targets and four judges: the example of Shrout and Fleiss 1979.
    ratings = pandas.DataFrame([[9, 2, 5, 8], [6, 1, 3, 2], [8, 4, 6, 8], [7, 1, 2, 6], [10, 5, 6, 9],
                                [6, 2, 4, 7]])
    table = statistics.intraclass(ratings)
    assert table["value"].round(2).to_list() == [0.17, 0.29, 0.71, 0.44, 0.62, 0.91]
    assert (table["low"] < table["value"]).all() and (table["value"] < table["high"]).all()


def test_series_that_give_no_interval() -> None:
    random = numpy.random.default_rng(3)
    moving = statistics_truth.series(random, 300.0, 2.0, 2)
    flat = pandas.Series(numpy.full(len(moving[0]), 0.1), numpy.arange(len(moving[0])) / 4.0, name="valence")
    with pytest.warns(UserWarning, match="^the valence is constant$"):
        table = statistics.agreement(flat, pandas.Series(moving[0], flat.index))
    assert table["low"].isna().to_dict() == {"concordance": True, "pearson": True, "rmse": False}
    with pytest.warns(UserWarning, match="^the label is constant$"):
        kappa = statistics.label_agreement(["up"] * len(flat), moving[0] > 0.0).kappa
    assert kappa["low"].isna().all()
    for ratings in ({"a": flat, "b": flat}, {"a": flat, "b": moving[0]}):
        with pytest.warns(UserWarning, match="^the rating 'a' is constant$"):
            assert statistics.intraclass(pandas.DataFrame(ratings))["high"].isna().all()
    whole = ([1] * len(flat), [1] * len(flat))
    with pytest.warns(UserWarning, match="^the valence is constant$"):
        row = statistics.difference(conditions(flat, flat, whole), "before", "game", over="time",
                                    quantities=["valence"]).loc["valence"]
    assert row["difference"] == 0.0 and row[["low", "high", "p"]].isna().all()
    # 300 s at 4 values a second are 150 memories of 2 s; 10 s are five.
    statistics.difference(conditions(moving[0], moving[1], whole), "before", "game", over="time",
                          quantities=["valence"])
    with pytest.warns(UserWarning, match="^valence: a series has 40 values, where its memory of"):
        statistics.difference(conditions(moving[0][:40], moving[1][:40], ([1] * 40, [1] * 40)), "before",
                              "game", over="time", quantities=["valence"])


def test_synchrony_finds_who_follows() -> None:
    random = numpy.random.default_rng(2)
    leading, other = statistics_truth.series(random, 300.0, 2.0, 2)
    following = numpy.roll(leading, 6) + 0.3 * other
    following[100:140] = numpy.nan
    found = statistics.synchrony(leading, following, rate=4.0)
    assert (found.lag, found.p) == (1.5, 1.0 / 200.0) and found.correlation > 0.8
    assert abs(found.lags["shifted_low"]).max() < 0.3
    assert statistics.synchrony(leading, other, rate=4.0).p > 0.05
    with pytest.raises(ValueError, match="lag of 13 s take 130 s"):
        statistics.synchrony(leading[:100], other[:100], rate=4.0)


# Studies.


def film(path: pathlib.Path, cycles: dict[int, list[float]], scopes: Any = ()) -> pathlib.Path:
    """People whose joy comes and goes, at those seconds; person 2 is not seen from 8 s on.

    The scopes are (person, name, begin, end).
    """
    events = []
    for person, seconds in cycles.items():
        for second in seconds:
            time = START + round(second * 1e9)
            joy = (1.0 + math.sin(second * 2.0)) / 2.0
            seen = zorvel.Observation(time=time, smile=(joy, 0.9), head_posture=(20.0 * joy, 0.0, 0.0),
                                      expressions={"joy": (joy, 0.9), "sorrow": (1.0 - joy, 0.9)})
            events.append((second, 1, zorvel.Event.not_seen(time, person) if person == 2 and second >= 8.0
                           else zorvel.Event.observation(time, person, seen)))
    for person, name, begin, end in scopes:
        events.append((begin, 0, zorvel.Event.start_recording(START + round(begin * 1e9), person, name)))
        events.append((end, 2, zorvel.Event.stop_recording(START + round(end * 1e9), person, name)))
    with zorvel.Recording(path, origin=START) as recording:
        for _, _, event in sorted(events, key=lambda entry: entry[:2]):
            recording.write(event)
    return path


@pytest.fixture
def films(tmp_path: pathlib.Path) -> list[pathlib.Path]:
    steps = [number / 10 for number in range(100)]
    pause = [second for second in steps if not 4.0 <= second < 7.0]
    whole = [("whole", 0.0, 9.9), ("game", 2.0, 3.0)]
    return [film(tmp_path / "p01.jsonl", {1: steps, 2: pause},
                 [(person, *scope) for person in (1, 2) for scope in whole]),
            film(tmp_path / "p02.jsonl", {1: steps}, [(1, *whole[0]), (1, "game", 5.0, 6.0)])]


def test_tables_add_up(films: list[pathlib.Path], tmp_path: pathlib.Path) -> None:
    participants = pandas.DataFrame({"recording": ["p01", "p02"], "group": ["a", "b"]})
    study = zorvel.Study(films, participants)
    persons, scopes = study.persons(), study.scopes()
    assert persons["group"].to_list() == ["a", "a", "b"] and len(study) == 2
    summaries = zorvel.summarize(films)
    whole = scopes[scopes["scope"] == "whole"].reset_index(drop=True)
    shared = [name for name in whole if name in summaries[0] and name not in ("recording", "person")]
    assert len(shared) == 17  # a scope of everything has the numbers of the person
    for place, summary in enumerate(summaries):
        assert persons.loc[place, list(summary)[1:]].to_list() == pytest.approx(list(summary.values())[1:],
                                                                               nan_ok=True)
        assert whole.loc[place, shared].to_list() == pytest.approx([summary[name] for name in shared])
    assert scopes[scopes["scope"] == "game"]["cycles"].to_list() == [11, 11, 11]

    results = zorvel.replay(films[0]).timeline
    second = {name: column[results["person"] == 2] for name, column in results.items()}
    grid = study.timeline(2.0)
    grid = grid[(grid["recording"] == "p01") & (grid["person"] == 2)].set_index("seconds")
    assert grid.index.to_list() == [number / 2 for number in range(20)]
    # Nothing is known in the pause, nor from a second after what was measured last, at 7.9 s.
    assert grid.index[grid["valence"].isna()].to_list() == [4.0, 4.5, 5.0, 5.5, 6.0, 6.5, 9.0, 9.5]
    for begin, row in grid.dropna().iterrows():
        inside = (second["seconds"] > begin - 0.05) & (second["seconds"] < min(begin + 0.45, 8.95))
        assert row["valence"] == pytest.approx(second["valence"][inside].mean(dtype=float))
        assert row["mood"] == second["mood"][inside][-1]
    game = study.timeline(scopes="game")
    assert game.groupby("recording")["seconds"].agg(["min", "max"]).to_numpy().tolist() == [[2, 3], [5, 6]]

    study.to_csv(tmp_path / "tables")
    dictionary = pandas.read_csv(tmp_path / "tables/dictionary.csv", keep_default_na=False)
    for name in ("persons", "scopes", "timeline"):
        told = dictionary[dictionary["table"] == name]
        assert told["column"].to_list() == pandas.read_csv(tmp_path / f"tables/{name}.csv").columns.to_list()
        assert told.set_index("column")["meaning"].map(len).min() > 5
        own = told[told["meaning"] == "Of the participants."]
        assert own["column"].to_list() == ["group"]
        assert len(study.plot(name).axes) == 3
    assert "<td>p02</td><td>1</td><td>100</td>" in study._repr_html_()

    zorvel_table = tmp_path / "archive.csv"
    zorvel_table.write_text(zorvel.SUMMARY_HEADER + "".join(
        zorvel.summary_csv(path, str(path)) for path in films))
    archive = zorvel.Study.from_archive(zorvel_table, participants)
    pandas.testing.assert_frame_equal(archive.persons(), persons, check_dtype=False)
    with pytest.raises(ValueError, match="has no cycles"):
        archive.scopes()


def test_epochs_are_locked_to_events(films: list[pathlib.Path]) -> None:
    study = zorvel.Study(films)
    epochs = study.epochs("game", before=1.0, after=2.0, baseline=(-1.0, 0.0), rate=10.0)
    results = zorvel.replay(films[1]).timeline
    valence = results["valence"].astype(float)
    own = epochs.each[epochs.each["recording"] == "p02"]
    assert own["valence"].to_numpy() == pytest.approx(valence[40:70] - valence[40:50].mean())
    # The events are 2 s after the begin of the first film, of two people, and 5 s before the end of the second.
    with pytest.warns(UserWarning, match="^1 of 3 epochs do not cover -1 to 6 s$"):
        study.epochs("game", before=1.0, after=6.0)
    with pytest.warns(UserWarning, match="^2 of 3 epochs do not cover -4 to 1 s$"):
        study.epochs("game", before=0.0, after=1.0, baseline=(-4.0, 0.0))
    # Of several people, one number each.
    events = pandas.DataFrame({"recording": ["p01", "p01", "p02"], "seconds": [2.0, 3.0, 6.0]})
    epochs = study.epochs(events, before=1.0, after=1.0)
    at = epochs.each[epochs.each["offset"] == 0.5]
    people = at.groupby(["recording", "person"])["attention"].mean()
    row = epochs.mean.set_index(["quantity", "offset"]).loc[("attention", 0.5)]
    low, high = scipy.stats.t.interval(0.95, 2, people.mean(), scipy.stats.sem(people))
    assert (row["people"], row["events"], len(people)) == (3, 5, 3)
    assert [row["mean"], row["low"], row["high"]] == pytest.approx([people.mean(), low, high])
    # Of one person, the events.
    events = pandas.DataFrame({"recording": "p01", "person": 1, "seconds": [2.0, 4.0, 8.5], "event": "smile"})
    epochs = study.epochs(events, before=0.5, after=1.0)
    assert epochs.mean["people"].eq(1).all() and epochs.mean["events"].eq(3).all()
    assert (epochs.mean["high"] > epochs.mean["low"]).any()
    assert len(epochs.plot("valence").axes) == 1 and "<td>smile</td><td>3</td><td>1</td>" in epochs._repr_html_()
    with pytest.raises(ValueError, match="'p09' is none of the study's recordings"):
        study.epochs(events.replace("p01", "p09"), 1.0, 1.0)


def test_reads_each_recording_once(films: list[pathlib.Path], tmp_path: pathlib.Path) -> None:
    first = zorvel.Study(films, cache=True, workers=1).scopes()
    kept = tmp_path / "p01.jsonl.study.npz"
    content = kept.read_bytes()
    films[0].write_bytes(films[0].read_bytes())  # another time, the same content
    again = zorvel.Study(films, cache=True)
    pandas.testing.assert_frame_equal(again.scopes(), first)
    pandas.testing.assert_frame_equal(again.timeline(4.0), zorvel.Study(films).timeline(4.0))
    assert kept.read_bytes() == content
    for damaged in (b"", content[:2000], content.replace(b"valence", b"valance")):
        kept.write_bytes(damaged)
        pandas.testing.assert_frame_equal(zorvel.Study(films, cache=True).scopes(), first)
    film(films[0], {5: [0.0, 1.0]})
    assert zorvel.Study(films, cache=True).persons()["person"].to_list() == [5, 1]


@pytest.mark.parametrize("wrong, message", [
    (lambda films: zorvel.Study([*films, films[0]]), "would have one name"),
    (lambda films: zorvel.Study(films, pandas.DataFrame({"name": ["p01"]})), "lack the column recording"),
    (lambda films: zorvel.Study(films, pandas.DataFrame({"recording": ["p01", "p01"]})), "there twice"),
    (lambda films: zorvel.Study(films, pandas.DataFrame({"recording": ["p01"], "scope": "x"})), r"\['scope'\]"),
    (lambda films: zorvel.Study([films[0], "none.jsonl"]), "none.jsonl: No such file"),
    (lambda films: zorvel.Study(films).epochs(["game", "Game"], 1.0, 1.0), 'no scope "Game"; .*: game, whole$'),
    (lambda films: zorvel.Study(films).timeline(scopes=["Game"]), 'no scope "Game"'),
    (lambda films: zorvel.Study(films).plot("scopes", scopes=["Game"]), 'no scope "Game"'),
    (lambda films: zorvel.Study(films).plot(scopes=["game"]), "the figure of timeline has none"),
])
def test_errors_of_a_study(films: list[pathlib.Path], wrong: Callable[[Any], Any], message: str) -> None:
    with pytest.raises(ValueError, match=message) as error:
        wrong(films)
    if isinstance(error.value, zorvel.DataError):
        assert len(error.value.results.persons()) == 2


def test_the_module_imports_without_pandas() -> None:
    program = ("import sys; sys.modules['pandas'] = sys.modules['scipy'] = sys.modules['numpy'] = None\n"
               "import zorvel; assert zorvel.now() and 'zorvel.study' not in sys.modules")
    subprocess.run([sys.executable, "-c", program], check=True)
