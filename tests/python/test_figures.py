"""Figures, and what notebooks show."""

from __future__ import annotations

import io
import json
import math
import os
import pathlib
import re
import subprocess
import sys
from typing import Any

import matplotlib
import matplotlib.figure
import numpy
import pandas
import pytest
from test_recordings import FAILING, OPENFACE, ROOT, TOOL

import zorvel

matplotlib.use("agg")


def test_what_was_not_measured_is_shown(tmp_path: pathlib.Path) -> None:
    path = tmp_path / "calm.jsonl"
    calm = {"expressions": {"calm": {"value": 1, "confidence": 1}}}
    path.write_text("".join(json.dumps({"time": k * 10**8, "event": "observation", "person": 1, **calm})
                            + "\n" for k in range(20)))
    told = subprocess.run([TOOL, "replay", path, "-o", tmp_path], check=True, capture_output=True,
                          text=True, timeout=60).stderr.replace(": warning: ", ": ").splitlines()
    with pytest.warns(UserWarning) as caught:
        results, (row,) = zorvel.replay(path), zorvel.summarize(path)
        zorvel.summary_csv(path, "a")
        zorvel.report(path, tmp_path / "a.html")
    assert [(str(each.message), each.filename) for each in caught] == 4 * [
        (line, __file__) for line in told] != []
    assert row["valence_mean"] == row["valence_deviation"] == 0.0
    assert math.isnan(row["attention_mean"]) and math.isnan(row["attentive"])
    for axes, known in zip(results.plot().axes, (True, False, False)):
        assert numpy.isnan(axes.lines[0].get_ydata()).any() != known
        assert ["not measured"] * (not known) == [text.get_text().strip() for text in axes.texts]


def test_a_figure_shows_every_person_with_gaps_as_gaps(scene: pathlib.Path) -> None:
    results = zorvel.replay(scene)
    figure = results.plot()
    persons = len(zorvel.summarize(scene))
    labels = [axes.get_ylabel().split(" ")[0] for axes in figure.axes]
    quantities = [name for name, values in results.timeline.items()
                  if f"{name}_confidence" in results.timeline and values.dtype.kind == "f"]
    assert labels == [*quantities, "scopes"]
    assert [len(axes.lines) for axes in figure.axes[:3]] == [persons] * 3
    assert len(figure.axes[3].patches) == (results.scopes["label"] != "error").sum() > 0
    assert "(s)" in figure.axes[-1].get_xlabel()
    one = results.plot(1, begin=5.0, end=10.0, quantities=["attention"], width=86.0, grey=True)
    assert one.get_size_inches()[0] == pytest.approx(86.0 / 25.4)
    assert len(one.axes[0].lines) == 1 and one.axes[0].get_xlim() == (5.0, 10.0)
    with pytest.raises(ValueError, match="person 99 has no cycle"):
        results.plot(99)

    def seen(second: float) -> zorvel.Event:
        return zorvel.Event.observation(second, 1, zorvel.Observation(time=second, smile=(1, 1)))

    pause = zorvel.replay([seen(tenth / 10) for tenth in [*range(20), *range(60, 80)]])
    axes = pause.plot().axes[0]
    assert numpy.flatnonzero(numpy.isnan(axes.lines[0].get_xdata())).tolist() == [20]
    # The valence stays 0, least sure in the first cycle. The axis is 2 tall; the band would be 1 tall
    # at a confidence of 0.
    band = axes.collections[0].get_paths()[0].get_extents()
    assert band.height == pytest.approx(1 - pause.timeline["valence_confidence"][0])


def test_a_figure_can_be_of_several_recordings_and_in_axes_of_ones_own(scene: pathlib.Path) -> None:
    results = zorvel.replay(scene)
    one, other = matplotlib.figure.Figure().subplots(2)
    figure = results.plot(1, quantities="mood", axes=[one, other])
    assert figure is one.figure and other.get_ylabel() == "scopes"
    assert one.lines[0].get_drawstyle() == "steps-post" and not one.collections
    both = zorvel.plot({"before": results, "after": results}, [2], quantities="valence")
    assert [line.get_label() for line in both.axes[0].lines] == [
        "before, person 2", "after, person 2"]
    assert both.canvas.manager is None and both._repr_png_().startswith(b"\x89PNG")
    wrong: list[tuple[dict[str, Any], str]] = [
        ({"persons": []}, "persons: must be at least one"), ({"axes": one}, "axes: must be 3"),
        ({"quantities": []}, "quantities: must be at least one")]
    for chosen, words in wrong:
        with pytest.raises(ValueError, match=words):
            results.plot(**chosen)

    def scope(begin: int, end: int, name: str) -> list[zorvel.Event]:
        return [zorvel.Event.start_recording(float(begin), 1, name),
                zorvel.Event.not_seen(float(end), 1), zorvel.Event.stop_recording(float(end), 1, name)]

    touching = zorvel.replay([*scope(0, 1, "short"), *scope(1, 30, "Ж")])
    *_, lane = parts = matplotlib.figure.Figure().subplots(4)
    with matplotlib.rc_context({"font.family": ["cmr10"]}):  # which knows no Cyrillic
        figure = touching.plot(axes=parts)
    assert [bar.get_linewidth() > 0 and bar.get_edgecolor()[3] for bar in lane.patches] == [1.0, 1.0]
    drawn = io.StringIO()
    with matplotlib.rc_context({"svg.fonttype": "none"}):
        figure.savefig(drawn, format="svg")
    assert "Ж: " in drawn.getvalue() and "short: " not in drawn.getvalue()
    assert "DejaVu" in re.findall("[^>]*>[^<>]*Ж: ", drawn.getvalue())[0]


def test_notebooks_and_pandas_show_what_there_is(scene: pathlib.Path, tmp_path: pathlib.Path) -> None:
    results = zorvel.replay(scene)
    frame = pandas.DataFrame(results.timeline)
    assert frame.equals(results.timeline.to_pandas()) and len(frame) == results.timeline.rows
    page = results._repr_html_()
    assert page.count("<table>") == 3 and f"… {len(frame) - 10} more rows" in page
    (tmp_path / "faces.csv").write_text(OPENFACE)
    facts = zorvel.import_openface(tmp_path / "faces.csv", tmp_path / "faces.jsonl")
    assert "<td>observations</td><td>2</td>" in facts._repr_html_()
    state = zorvel.SocialGraph().not_seen(7)
    assert "<td>person</td><td>7</td>" in state._repr_html_()
    odd = zorvel.replay([zorvel.Event.stop_recording(0, 1, "<b>")])
    assert "<td>&lt;b&gt;</td>" in odd.scopes._repr_html_()


def test_a_figure_is_made_from_the_shell(scene: pathlib.Path, tmp_path: pathlib.Path) -> None:
    def plot(*arguments: str | pathlib.Path) -> subprocess.CompletedProcess[str]:
        return subprocess.run([sys.executable, "-m", "zorvel", "plot", *arguments], text=True,
                              capture_output=True, timeout=60)

    made = plot(scene, "--person", "1", "--from", "0:05", "--to", "20", "-o", tmp_path / "a.svg")
    assert (made.returncode, made.stderr) == (0, "")
    text = (tmp_path / "a.svg").read_text()
    assert "valence [−1, 1]" in text and "DejaVuSans-76" in text  # the shape of a "v"
    own = tmp_path / "own.svg"
    own.write_bytes(scene.read_bytes())
    assert "is an input, which would be overwritten" in plot(own, "-o", own).stderr
    assert own.read_bytes() == scene.read_bytes()
    assert plot(scene, "--grey", "-o", tmp_path / "a.pdf").returncode == 0
    assert b"/FontFile2" in (tmp_path / "a.pdf").read_bytes()
    cases: list[tuple[list[str | pathlib.Path], str]] = [
        ([tmp_path / "none"], "No such file"), ([scene, "--person", "9"], "person 9"),
        ([FAILING], "cut_off_utf8.jsonl:"),
        ([scene, tmp_path / "none"], "No such file")]
    for arguments, words in cases:
        failed = plot(*arguments, "-o", tmp_path / "b.png")
        assert failed.returncode == 1 and words in failed.stderr and "Traceback" not in failed.stderr


def test_the_notebook_runs(tmp_path: pathlib.Path) -> None:
    header, *_ = OPENFACE.splitlines()
    (tmp_path / "faces.csv").write_text("\n".join([header, *(
        f"{frame},0,{frame / 30:.3f},0.98,1,-0.02,0.12,-0.01,{3 * (frame > 60)}"
        for frame in range(120))]))
    printed = subprocess.run([sys.executable, ROOT / "examples/notebook/face_analysis.py", "faces.csv"],
                             cwd=tmp_path, check=True, text=True, stdout=subprocess.PIPE, timeout=60,
                             env={**os.environ, "MPLBACKEND": "agg"}).stdout
    assert "120 frames in 4.0 s" in printed and "smile: 120" in printed
    assert "Face characteristics: up" in printed and "Head Angles" in printed
    assert (tmp_path / "faces.png").stat().st_size > 10_000
