"""The figure of a replay."""

from __future__ import annotations

from collections.abc import Sequence
from typing import TYPE_CHECKING, Any

if TYPE_CHECKING:
    import matplotlib.axes
    import matplotlib.figure
    import numpy

    from .results import Results

#: What can be drawn, with its range.
QUANTITIES = {"valence": (-1.0, 1.0), "attention": (0.0, 1.0), "ease": (-0.5, 0.5)}
#: Told apart by those who are colour-blind (Okabe and Ito), and with lines of their own in greys.
_COLOURS = ("#0072b2", "#d55e00", "#009e73", "#cc79a7", "#e69f00", "#56b4e9")
_GREYS = ("0.0", "0.45", "0.25", "0.6")
_STYLES = ("-", "--", "-.", ":")
#: A pause is a gap from a second on, when it is also this many times as long as usual.
_GAP_SECONDS = 1.0
_GAP_MEDIANS = 3.0
_MILLIMETRES_PER_INCH = 25.4
#: How wide "not measured" is, with the margins of the figure.
_WORDS_MILLIMETRES = 22.0


def _look(index: int, grey: bool) -> dict[str, Any]:
    if grey:
        return {"color": _GREYS[index % len(_GREYS)], "linestyle": _STYLES[index % len(_STYLES)]}
    return {"color": _COLOURS[index % len(_COLOURS)],
            "linestyle": _STYLES[index // len(_COLOURS) % len(_STYLES)]}


def _with_gaps(seconds: numpy.ndarray[Any, Any], visits: numpy.ndarray[Any, Any],
               values: numpy.ndarray[Any, Any]) -> tuple[Any, Any]:
    """The curves with a NaN in each gap, which no line crosses."""
    import numpy

    steps = numpy.diff(seconds)
    if not len(steps):
        return seconds, values
    limit = max(_GAP_SECONDS, _GAP_MEDIANS * float(numpy.median(steps)))
    gaps = numpy.flatnonzero((steps > limit) | (numpy.diff(visits) != 0)) + 1
    return numpy.insert(seconds, gaps, numpy.nan), numpy.insert(values, gaps, numpy.nan, axis=1)


def _hatch(axes: matplotlib.axes.Axes, spans: Sequence[tuple[float, float]], bottom: float,
           height: float, color: str, room: float) -> None:
    """Says "not measured" where a curve would be a line at 0, in a person's part of the axis.

    A span shorter than `room` has no words.
    """
    for left, right in spans:
        axes.axvspan(left, right, bottom, bottom + height, fill=False, hatch="///", edgecolor=color,
                     alpha=0.25, linewidth=0.0)
        if right - left >= room:
            axes.annotate("not measured", (left, bottom + height / 2.0), color=color,
                          xycoords=axes.get_xaxis_transform(), xytext=(2.0, 0.0),
                          textcoords="offset points", va="center", fontsize="x-small")


def _unknown_spans(seconds: numpy.ndarray[Any, Any], known: numpy.ndarray[Any, Any],
                   shown: tuple[float, float]) -> list[tuple[float, float]]:
    """Where a value is not known, up to the row that knows it again; both have NaN in gaps."""
    import numpy

    edges = numpy.flatnonzero(numpy.diff(known == 0.0, prepend=False, append=False))
    spans = []
    for first, end in zip(edges[::2], edges[1::2]):
        continues = end < len(seconds) and not numpy.isnan(seconds[end])
        left, right = numpy.clip([seconds[first], seconds[end if continues else end - 1]], *shown)
        if left < right:
            spans.append((float(left), float(right)))
    return spans


def _draw_quantity(axes: matplotlib.axes.Axes, results: Results, persons: Sequence[int], name: str,
                   grey: bool, shown: tuple[float, float], room: float) -> None:
    import numpy

    timeline = results.timeline
    lowest, highest = QUANTITIES[name]
    for index, person in enumerate(persons):
        rows = timeline["person"] == person
        known = results._known[name][rows] != 0
        seconds, (value, confidence, known) = _with_gaps(
            timeline["seconds"][rows], timeline["visit"][rows], numpy.stack([
                numpy.where(known, timeline[name][rows], numpy.nan),
                timeline[f"{name}_confidence"][rows], known]).astype(float))
        look = _look(index, grey)
        _hatch(axes, _unknown_spans(seconds, known, shown), 1.0 - (index + 1) / len(persons),
               1.0 / len(persons), look["color"], room)
        axes.plot(seconds, value, linewidth=1.0, label=f"person {person}", **look)
        unsure = (1.0 - numpy.clip(confidence, 0.0, 1.0)) * (highest - lowest) / 4.0
        axes.fill_between(seconds, numpy.clip(value - unsure, lowest, highest),
                          numpy.clip(value + unsure, lowest, highest), color=look["color"],
                          alpha=0.15, linewidth=0.0)
    margin = (highest - lowest) / 20.0
    axes.set_ylim(lowest - margin, highest + margin)
    axes.set_ylabel(f"{name} [{lowest:g}, {highest:g}]".replace("-", "−"))
    axes.grid(alpha=0.3, linewidth=0.5)


def _scope_lanes(results: Results, persons: Sequence[int], begin: float | None,
                 end: float | None) -> list[tuple[int, list[int]]]:
    """A person and rows of the shown scopes, for each lane: those in one do not overlap."""
    import numpy

    scopes = results.scopes
    lanes: list[tuple[int, list[int]]] = []
    for row in numpy.argsort(scopes["begin"], kind="stable"):
        person = int(scopes["person"][row])
        if person not in persons or scopes["label"][row] == "error":
            continue
        if (begin is not None and scopes["end"][row] < begin or
                end is not None and scopes["begin"][row] > end):
            continue
        for owner, rows in lanes:
            if owner == person and scopes["end"][rows[-1]] <= scopes["begin"][row]:
                rows.append(row)
                break
        else:
            lanes.append((person, [row]))
    return sorted(lanes, key=lambda lane: list(persons).index(lane[0]))


def _draw_scopes(axes: matplotlib.axes.Axes, results: Results, persons: Sequence[int],
                 lanes: list[tuple[int, list[int]]], grey: bool) -> None:
    """A bar for each scope that was closed, with its name and label."""
    scopes = results.scopes
    leftmost, _ = axes.get_xlim()
    for lane, (person, rows) in enumerate(lanes):
        look = _look(list(persons).index(person), grey)
        for row in rows:
            begin, end = scopes["begin"][row], scopes["end"][row]
            axes.barh(lane, end - begin, left=begin, height=0.8, alpha=0.3, color=look["color"])
            axes.text(max(begin, leftmost), lane,
                      f" {scopes['scope'][row]}: {scopes['label'][row]}", va="center",
                      fontsize="x-small", clip_on=True, parse_math=False)
    axes.set_ylim(len(lanes) - 0.5, -0.5)
    axes.set_yticks(range(len(lanes)), [f"person {person}" for person, _ in lanes])
    axes.set_ylabel("scopes")


def draw(results: Results, persons: Sequence[int] | None, begin: float | None, end: float | None,
         quantities: Sequence[str] | None, width: float, grey: bool) -> matplotlib.figure.Figure:
    """What Results.plot draws."""
    import matplotlib.pyplot
    import numpy

    if not 0.0 < width < 10_000.0:
        raise ValueError(f"width: {width:g} mm is no width")
    if begin is not None and end is not None and begin >= end:
        raise ValueError(f"begin: {begin:g} s is not before the end, {end:g} s")
    seconds = results.timeline["seconds"]
    if not ((seconds >= (-numpy.inf if begin is None else begin)) & (seconds <= (numpy.inf if end is None else end))).any():
        raise ValueError("nobody has a cycle there")
    there = [int(number) for number in numpy.unique(results.timeline["person"])]
    for person in persons or ():
        if person not in there:
            raise ValueError(f"person {person} has no cycle; those who have: {there}")
    for quantity in quantities or ():
        if quantity not in QUANTITIES:
            raise ValueError(f"{quantity} is no quantity; these are: {list(QUANTITIES)}")
    persons = list(persons or there)
    shown = (seconds.min() if begin is None else begin, seconds.max() if end is None else end)
    room = (shown[1] - shown[0]) * _WORDS_MILLIMETRES / width
    names = list(quantities or QUANTITIES)
    lanes = _scope_lanes(results, persons, begin, end)
    inches = width / _MILLIMETRES_PER_INCH
    heights = [0.4 + 0.17 * inches] * len(names) + [0.1 + 0.18 * len(lanes)] * bool(lanes)
    with matplotlib.pyplot.rc_context({"font.size": 8.0}):
        figure, grid = matplotlib.pyplot.subplots(
            len(heights), sharex=True, squeeze=False, layout="constrained",
            gridspec_kw={"height_ratios": heights}, figsize=(inches, 0.7 + sum(heights)))
        figure.get_layout_engine().set(w_pad=0.1)  # for the last number below an axis
        all_axes = grid[:, 0]
        for axes, name in zip(all_axes, names):
            _draw_quantity(axes, results, persons, name, grey, shown, room)
        all_axes[-1].set_xlabel("time (s)")
        all_axes[-1].set_xlim(begin, end)
        if lanes:
            _draw_scopes(all_axes[-1], results, persons, lanes, grey)
        if len(persons) > 1:
            all_axes[0].legend(loc="lower left", bbox_to_anchor=(0.0, 1.0), ncol=6, frameon=False)
    return figure
