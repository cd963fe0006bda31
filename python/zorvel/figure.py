"""The figure of a replay."""

from __future__ import annotations

from typing import TYPE_CHECKING, Any

if TYPE_CHECKING:
    import matplotlib.axes
    import matplotlib.figure
    import numpy

    from .results import Results

_QUANTITIES = (("valence", (-1.0, 1.0)), ("attention", (0.0, 1.0)), ("ease", (-0.5, 0.5)))
#: A pause is a gap from a second on, when it is also this many times as long as usual.
_GAP_SECONDS = 1.0
_GAP_MEDIANS = 3.0


def _with_gaps(seconds: numpy.ndarray[Any, Any],
               values: numpy.ndarray[Any, Any]) -> tuple[Any, Any]:
    """The curve with a NaN in each gap, which no line crosses."""
    import numpy

    steps = numpy.diff(seconds)
    if not len(steps):
        return seconds, values
    limit = max(_GAP_SECONDS, _GAP_MEDIANS * float(numpy.median(steps)))
    gaps = numpy.flatnonzero(steps > limit) + 1
    return numpy.insert(seconds, gaps, numpy.nan), numpy.insert(values, gaps, numpy.nan, axis=1)


def _draw_quantity(axes: matplotlib.axes.Axes, results: Results, persons: list[int], name: str,
                   limits: tuple[float, float]) -> None:
    import numpy

    lowest, highest = limits
    for person in persons:
        rows = results.timeline["person"] == person
        seconds, curves = _with_gaps(
            results.timeline["seconds"][rows],
            numpy.stack([results.timeline[name][rows],
                         results.timeline[f"{name}_confidence"][rows]]).astype(float))
        value, confidence = curves
        line, = axes.plot(seconds, value, linewidth=1.2, label=f"person {person}")
        unsure = (1.0 - numpy.clip(confidence, 0.0, 1.0)) * (highest - lowest) / 4.0
        axes.fill_between(seconds, numpy.clip(value - unsure, lowest, highest),
                          numpy.clip(value + unsure, lowest, highest), color=line.get_color(),
                          alpha=0.2, linewidth=0.0)
    margin = (highest - lowest) / 20.0
    axes.set_ylim(lowest - margin, highest + margin)
    axes.set_ylabel(f"{name}\n[{lowest:g}, {highest:g}]".replace("-", "−"))
    axes.grid(alpha=0.3)


def draw(results: Results, person: int | None) -> matplotlib.figure.Figure:
    """What Results.plot draws."""
    import matplotlib.pyplot
    import numpy

    persons = [int(number) for number in numpy.unique(results.timeline["person"])]
    if person is not None:
        if person not in persons:
            raise ValueError(f"person: {person} has no cycle; there are {persons}")
        persons = [person]
    figure, all_axes = matplotlib.pyplot.subplots(len(_QUANTITIES), sharex=True,
                                                  layout="constrained", figsize=(8.0, 6.0))
    for axes, (name, limits) in zip(all_axes, _QUANTITIES):
        _draw_quantity(axes, results, persons, name, limits)
    all_axes[-1].set_xlabel("time since the start of the recording (s)")
    if len(persons) > 1:
        all_axes[0].legend(loc="lower left", bbox_to_anchor=(0.0, 1.0), ncol=6, frameon=False)
    return figure
