"""The figures of a study, in the look of those of a replay."""

from __future__ import annotations

from collections.abc import Sequence
from typing import Any

import matplotlib.axes
import numpy
import pandas

from ..figure import MILLIMETRES_PER_INCH, Figure, look
from .columns import QUANTITIES
from .cycles import band

#: The size of texts.
_POINTS = 8.0


def _axes(quantities: Sequence[str], width: float) -> tuple[Figure, list[matplotlib.axes.Axes]]:
    for name in quantities:
        if name not in QUANTITIES:
            raise ValueError(f"{name} is not a quantity; these are: {list(QUANTITIES)}")
    inches = width / MILLIMETRES_PER_INCH
    figure = Figure(figsize=(inches, 0.7 + len(quantities) * (0.6 + 0.2 * inches)), layout="constrained")
    axes = list(figure.subplots(len(quantities), sharex=True, squeeze=False)[:, 0])
    for part, name in zip(axes, quantities):
        part.set_ylabel(name, fontsize=_POINTS)
        part.tick_params(labelsize=_POINTS)
        part.grid(alpha=0.3, linewidth=0.5)
    return figure, axes


def _bands(groups: Any, quantity: str) -> Any:
    """The mean of each group of rows, and its band."""
    return numpy.array([band(group[quantity].to_numpy(float)) for _, group in groups]).reshape(-1, 3).T


def _draw_mean(axes: matplotlib.axes.Axes, places: Any, means: Any, index: int, grey: bool,
               label: str) -> None:
    mean, low, high = means
    axes.plot(places, mean, linewidth=1.5, label=label, **look(index, grey))
    axes.fill_between(places, low, high, color=look(index, grey)["color"], alpha=0.2, linewidth=0.0)


def draw_timeline(frame: pandas.DataFrame, quantities: Sequence[str], width: float, grey: bool) -> Figure:
    figure, axes = _axes(quantities, width)
    for part, name in zip(axes, quantities):
        for _, person in frame.groupby(["recording", "person"], sort=False):
            part.plot(person["seconds"], person[name], color="0.6", linewidth=0.4)
        at_once = frame.groupby("seconds")
        _draw_mean(part, list(at_once.groups), _bands(at_once, name), 0, grey, "mean")
    axes[-1].set_xlabel("time (s)", fontsize=_POINTS)
    return figure


def draw_persons(frame: pandas.DataFrame, quantities: Sequence[str], width: float, grey: bool) -> Figure:
    names = list(dict.fromkeys(frame["recording"]))
    return _draw_groups(frame.assign(group=frame["recording"]), "group", names, quantities, width, grey, [])


def draw_scopes(frame: pandas.DataFrame, quantities: Sequence[str], scopes: Sequence[str] | None,
                width: float, grey: bool) -> Figure:
    names = list(dict.fromkeys(frame["scope"])) if scopes is None else list(scopes)
    return _draw_groups(frame, "scope", names, quantities, width, grey, ["recording", "person"])


def _draw_groups(frame: pandas.DataFrame, group: str, names: list[str], quantities: Sequence[str],
                 width: float, grey: bool, connected: list[str]) -> Figure:
    """The means of each row side by side, and of each group the mean with its interval."""
    figure, axes = _axes(quantities, width)
    frame = frame[frame[group].isin(names)]
    frame = frame.assign(place=frame[group].map({name: place for place, name in enumerate(names)}))
    for part, name in zip(axes, quantities):
        column = f"{name}_mean"
        if connected:
            means = frame.groupby([*connected, "place"], observed=True)[column].mean().reset_index()
            for _, person in means.groupby(connected, observed=True):
                part.plot(person["place"], person[column], color="0.6", linewidth=0.6, marker=".",
                          markersize=3.0)
            by_place = means.groupby("place")
        else:
            part.plot(frame["place"], frame[column], ".", color="0.5", markersize=4.0)
            by_place = frame.groupby("place")
        mean, low, high = _bands(by_place, column)
        part.errorbar(list(by_place.groups), mean, [mean - low, high - mean], fmt="o", capsize=3.0,
                      markersize=4.0, color=look(0, grey)["color"])
    axes[-1].set_xticks(range(len(names)), names, rotation=90 if len(names) > 12 else 0)
    axes[-1].margins(x=0.2 if len(names) < 4 else 0.05)
    return figure


def draw_epochs(frame: pandas.DataFrame, quantities: Sequence[str], width: float, grey: bool) -> Figure:
    figure, axes = _axes(quantities, width)
    events = list(dict.fromkeys(frame["event"]))
    for part, name in zip(axes, quantities):
        for index, event in enumerate(events):
            rows = frame[(frame["event"] == event) & (frame["quantity"] == name)]
            _draw_mean(part, rows["offset"], rows[["mean", "low", "high"]].to_numpy(float).T, index, grey,
                       event)
        part.axvline(0.0, color="0.3", linewidth=0.6)
    axes[-1].set_xlabel("time since the event (s)", fontsize=_POINTS)
    if len(events) > 1:
        axes[0].legend(loc="lower left", bbox_to_anchor=(0.0, 1.0), ncol=6, frameon=False,
                       fontsize=_POINTS)
    return figure
