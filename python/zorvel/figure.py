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


def _draw_quantity(axes: matplotlib.axes.Axes, results: Results, persons: Sequence[int], name: str,
                   grey: bool) -> None:
    import numpy

    timeline = results.timeline
    lowest, highest = QUANTITIES[name]
    for index, person in enumerate(persons):
        rows = timeline["person"] == person
        seconds, (value, confidence) = _with_gaps(
            timeline["seconds"][rows], timeline["visit"][rows],
            numpy.stack([timeline[name][rows], timeline[f"{name}_confidence"][rows]]).astype(float))
        look = _look(index, grey)
        axes.plot(seconds, value, linewidth=1.0, label=f"person {person}", **look)
        unsure = (1.0 - numpy.clip(confidence, 0.0, 1.0)) * (highest - lowest) / 4.0
        axes.fill_between(seconds, numpy.clip(value - unsure, lowest, highest),
                          numpy.clip(value + unsure, lowest, highest), color=look["color"],
                          alpha=0.15, linewidth=0.0)
    margin = (highest - lowest) / 20.0
    axes.set_ylim(lowest - margin, highest + margin)
    axes.set_ylabel(f"{name} [{lowest:g}, {highest:g}]".replace("-", "−"))
    axes.grid(alpha=0.3, linewidth=0.5)


def _draw_scopes(axes: matplotlib.axes.Axes, results: Results, persons: Sequence[int],
                 grey: bool) -> None:
    """A bar for each scope that was closed, with its name and label."""
    scopes = results.scopes
    for row in range(scopes.rows):
        if scopes["person"][row] not in persons or scopes["label"][row] == "error":
            continue
        index = list(persons).index(scopes["person"][row])
        begin, end = scopes["begin"][row], scopes["end"][row]
        axes.barh(-index, end - begin, left=begin, height=0.8, alpha=0.3, linewidth=0.0,
                  color=_look(index, grey)["color"])
        axes.text((begin + end) / 2.0, -index, f"{scopes['scope'][row]}: {scopes['label'][row]}",
                  ha="center", va="center", fontsize="x-small", clip_on=True)
    axes.set_ylim(0.5 - len(persons), 0.5)
    axes.set_yticks([-index for index in range(len(persons))], [str(person) for person in persons])
    axes.set_ylabel("scopes")


def draw(results: Results, persons: Sequence[int] | None, begin: float | None, end: float | None,
         quantities: Sequence[str] | None, width: float, grey: bool) -> matplotlib.figure.Figure:
    """What Results.plot draws."""
    import matplotlib.pyplot
    import numpy

    there = [int(number) for number in numpy.unique(results.timeline["person"])]
    for person in persons or ():
        if person not in there:
            raise ValueError(f"person {person} has no cycle; those who have: {there}")
    for quantity in quantities or ():
        if quantity not in QUANTITIES:
            raise ValueError(f"{quantity} is no quantity; these are: {list(QUANTITIES)}")
    persons = list(persons or there)
    names = list(quantities or QUANTITIES)
    has_scopes = bool(numpy.isin(results.scopes["person"], persons).any())
    heights = [3.0] * len(names) + [0.3 + 0.4 * len(persons)] * has_scopes
    with matplotlib.pyplot.rc_context({"font.size": 8.0}):
        inches = width / _MILLIMETRES_PER_INCH
        figure, grid = matplotlib.pyplot.subplots(
            len(heights), sharex=True, squeeze=False, layout="constrained",
            gridspec_kw={"height_ratios": heights}, figsize=(inches, 0.19 * inches * sum(heights) / 2.4))
        all_axes = grid[:, 0]
        for axes, name in zip(all_axes, names):
            _draw_quantity(axes, results, persons, name, grey)
        if has_scopes:
            _draw_scopes(all_axes[-1], results, persons, grey)
        all_axes[-1].set_xlabel("time since the start of the recording (s)")
        all_axes[-1].set_xlim(begin, end)
        if len(persons) > 1:
            all_axes[0].legend(loc="lower left", bbox_to_anchor=(0.0, 1.0), ncol=6, frameon=False)
    return figure
