"""The figure of replays."""

from __future__ import annotations

import functools
import io
from collections.abc import Mapping, Sequence
from typing import Any, NamedTuple

import matplotlib
import matplotlib.axes
import matplotlib.colors
import matplotlib.figure
import matplotlib.font_manager
import matplotlib.ft2font
import matplotlib.text
import numpy

from .tables import QUANTITIES, Tables

_USUAL = list(QUANTITIES)[:3]
#: Told apart by those who are colour-blind (Okabe and Ito), and with lines of their own in greys.
_COLOURS = ("#0072b2", "#d55e00", "#009e73", "#cc79a7", "#e69f00", "#56b4e9")
_GREYS = ("0.0", "0.45", "0.25", "0.6")
_STYLES = ("-", "--", "-.", ":")
#: A pause is a gap from a second on, when it is also this many times as long as usual.
_GAP_SECONDS = 1.0
_GAP_MEDIANS = 3.0
MILLIMETRES_PER_INCH = 25.4


class Figure(matplotlib.figure.Figure):  # type: ignore[misc]
    """A figure that a notebook shows where it is the value of a cell, and that nothing keeps open."""

    def _repr_png_(self) -> bytes:
        picture = io.BytesIO()
        self.savefig(picture, format="png")
        return picture.getvalue()


class _Curve(NamedTuple):
    """One person of one recording."""

    results: Tables
    person: int
    label: str


def look(index: int, grey: bool) -> dict[str, Any]:
    if grey:
        return {"color": _GREYS[index % len(_GREYS)], "linestyle": _STYLES[index % len(_STYLES)]}
    return {"color": _COLOURS[index % len(_COLOURS)],
            "linestyle": _STYLES[index // len(_COLOURS) % len(_STYLES)]}


def _with_gaps(seconds: numpy.ndarray[Any, Any], visits: numpy.ndarray[Any, Any],
               values: numpy.ndarray[Any, Any]) -> tuple[Any, Any]:
    """The curves with a NaN in each gap, which no line crosses."""
    steps = numpy.diff(seconds)
    if not len(steps):
        return seconds, values
    limit = max(_GAP_SECONDS, _GAP_MEDIANS * float(numpy.median(steps)))
    gaps = numpy.flatnonzero((steps > limit) | (numpy.diff(visits) != 0)) + 1
    return numpy.insert(seconds, gaps, numpy.nan), numpy.insert(values, gaps, numpy.nan, axis=1)


class _FittingText(matplotlib.text.Text):  # type: ignore[misc]
    """A text that is left out where it reaches beyond `end`, or beyond what is shown."""

    def __init__(self, begin: float, y: float, text: str, end: float, **look: Any) -> None:
        super().__init__(begin, y, text, va="center", fontsize="x-small", clip_on=True,
                         parse_math=False, **look)
        self._end = end

    def draw(self, renderer: Any) -> None:
        end, _ = self.axes.transData.transform((self._end, 0.0))
        if self.get_window_extent(renderer).x1 <= min(end, self.axes.bbox.x1):
            super().draw(renderer)


def _families(text: str) -> list[str]:
    """The fonts for a text: the usual ones, and others that are there for what those lack."""
    return _families_with(frozenset(map(ord, text)), *matplotlib.rcParams["font.family"])


@functools.lru_cache(maxsize=256)
def _families_with(characters: frozenset[int], *usual_families: str) -> list[str]:
    families = list(usual_families)
    usual = matplotlib.font_manager.get_font(matplotlib.font_manager.findfont(
        matplotlib.font_manager.FontProperties(family=families)))
    missing = characters - usual.get_charmap().keys()
    for path in sorted(matplotlib.font_manager.findSystemFonts()) if missing else ():
        try:
            font = matplotlib.ft2font.FT2Font(path)
        except RuntimeError:  # no font that can be drawn
            continue
        found = missing & font.get_charmap().keys()
        if found and not font.style_flags:  # neither bold nor italic
            matplotlib.font_manager.fontManager.addfont(path)
            families.append(font.family_name)
            missing -= found
    return families


def _hatch(axes: matplotlib.axes.Axes, spans: Sequence[tuple[float, float]], bottom: float,
           height: float, color: str) -> None:
    """Says "not measured" where a curve would be a line at 0, in a person's part of the axis."""
    for left, right in spans:
        axes.axvspan(left, right, bottom, bottom + height, fill=False, hatch="///", edgecolor=color,
                     alpha=0.25, linewidth=0.0)
        axes.add_artist(_FittingText(left, bottom + height / 2.0, " not measured", right,
                                     color=color, transform=axes.get_xaxis_transform()))


def _unknown_spans(seconds: numpy.ndarray[Any, Any], known: numpy.ndarray[Any, Any],
                   shown: tuple[float, float]) -> list[tuple[float, float]]:
    """Where a value is not known, up to the row that knows it again; both have NaN in gaps."""
    edges = numpy.flatnonzero(numpy.diff(known == 0.0, prepend=False, append=False))
    spans = []
    for first, end in zip(edges[::2], edges[1::2]):
        continues = end < len(seconds) and not numpy.isnan(seconds[end])
        left, right = numpy.clip([seconds[first], seconds[end if continues else end - 1]], *shown)
        if left < right:
            spans.append((float(left), float(right)))
    return spans


def _draw_quantity(axes: matplotlib.axes.Axes, curves: Sequence[_Curve], name: str, grey: bool,
                   shown: tuple[float, float]) -> None:
    lowest, highest = QUANTITIES[name]
    for index, (results, person, label) in enumerate(curves):
        timeline = results.timeline
        rows = timeline["person"] == person
        values = [timeline[name][rows],
                  results._known["valence" if name == "mood" else name][rows]]
        if f"{name}_confidence" in timeline:
            values.append(timeline[f"{name}_confidence"][rows])
        seconds, (value, known, *confidence) = _with_gaps(
            timeline["seconds"][rows], timeline["visit"][rows], numpy.stack(values).astype(float))
        value = numpy.where(known == 0.0, numpy.nan, value)
        style = look(index, grey)
        _hatch(axes, _unknown_spans(seconds, known, shown), 1.0 - (index + 1) / len(curves),
               1.0 / len(curves), style["color"])
        axes.plot(seconds, value, linewidth=1.0, label=label, **style,
                  drawstyle="default" if confidence else "steps-post")
        for share in confidence:
            unsure = (1.0 - numpy.clip(share, 0.0, 1.0)) * (highest - lowest) / 4.0
            axes.fill_between(seconds, numpy.clip(value - unsure, lowest, highest),
                              numpy.clip(value + unsure, lowest, highest), color=style["color"],
                              alpha=0.15, linewidth=0.0)
    margin = (highest - lowest) / 20.0
    axes.set_ylim(lowest - margin, highest + margin)
    axes.set_ylabel(f"{name} [{lowest:g}, {highest:g}]".replace("-", "−"))
    axes.grid(alpha=0.3, linewidth=0.5)


def _scope_lanes(curves: Sequence[_Curve], begin: float | None,
                 end: float | None) -> list[tuple[int, list[int]]]:
    """A curve and rows of its shown scopes, for each lane: those in one do not overlap."""
    lanes: list[tuple[int, list[int]]] = []
    for curve, (results, person, _) in enumerate(curves):
        scopes = results.scopes
        for row in numpy.argsort(scopes["begin"], kind="stable"):
            if scopes["person"][row] != person or scopes["label"][row] == "error":
                continue
            if (begin is not None and scopes["end"][row] < begin or
                    end is not None and scopes["begin"][row] > end):
                continue
            for owner, rows in lanes:
                if owner == curve and scopes["end"][rows[-1]] <= scopes["begin"][row]:
                    rows.append(row)
                    break
            else:
                lanes.append((curve, [row]))
    return lanes


def _draw_scopes(axes: matplotlib.axes.Axes, curves: Sequence[_Curve],
                 lanes: list[tuple[int, list[int]]], grey: bool) -> None:
    """A bar for each scope that was closed, with its name and label."""
    leftmost, _ = axes.get_xlim()
    for lane, (curve, rows) in enumerate(lanes):
        scopes = curves[curve].results.scopes
        color = matplotlib.colors.to_rgba(look(curve, grey)["color"])
        for row in rows:
            begin, end = scopes["begin"][row], scopes["end"][row]
            axes.barh(lane, end - begin, left=begin, height=0.8, color=(*color[:3], 0.3),
                      edgecolor=color, linewidth=0.5)
            text = f" {scopes['scope'][row]}: {scopes['label'][row]}"
            axes.add_artist(_FittingText(max(begin, leftmost), lane, text, end,
                                         family=_families(text)))
    axes.set_ylim(len(lanes) - 0.5, -0.5)
    labels = [curves[curve].label for curve, _ in lanes]
    axes.set_yticks(range(len(lanes)), labels, family=_families("".join(labels)))
    axes.set_ylabel("scopes")


def _chosen_curves(recordings: Mapping[str, Tables], persons: Sequence[int] | None,
                   begin: float | None, end: float | None) -> list[_Curve]:
    curves: list[_Curve] = []
    everybody: set[int] = set()
    has_cycles = False
    for name, results in recordings.items():
        seconds = results.timeline["seconds"]
        has_cycles |= bool(((seconds >= (-numpy.inf if begin is None else begin)) &
                            (seconds <= (numpy.inf if end is None else end))).any())
        there = [int(number) for number in numpy.unique(results.timeline["person"])]
        everybody.update(there)
        prefix = f"{name}, " if len(recordings) > 1 else ""
        curves += [_Curve(results, person, f"{prefix}person {person}")
                   for person in (there if persons is None else persons) if person in there]
    if not has_cycles:
        raise ValueError("nobody has a cycle there")
    if persons is not None and not persons:
        raise ValueError("persons: must be at least one")
    for person in persons or ():
        if person not in everybody:
            raise ValueError(f"person {person} has no cycle; these have: {sorted(everybody)}")
    return curves


def draw(recordings: Mapping[str, Tables], persons: Sequence[int] | None, begin: float | None,
         end: float | None, quantities: Sequence[str] | None, width: float, grey: bool,
         axes: Sequence[matplotlib.axes.Axes] | None = None) -> matplotlib.figure.Figure:
    """What `plot` draws, of recordings by name."""
    if not 0.0 < width < 10_000.0:
        raise ValueError(f"width: {width:g} mm is not a width")
    if begin is not None and end is not None and begin >= end:
        raise ValueError(f"begin: {begin:g} s is not before the end, {end:g} s")
    names = list(_USUAL if quantities is None else quantities)
    if not names:
        raise ValueError("quantities: must be at least one")
    for name in names:
        if name not in QUANTITIES:
            raise ValueError(f"{name} is not a quantity; these are: {list(QUANTITIES)}")
    curves = _chosen_curves(recordings, persons, begin, end)
    lanes = _scope_lanes(curves, begin, end)
    if axes is not None:
        if len(axes) not in (len(names), len(names) + 1):
            raise ValueError(f"axes: must be {len(names)}, one for each quantity, or one more for "
                             f"the scopes, not {len(axes)}")
        _draw_all(axes, curves, names, lanes if len(axes) > len(names) else [], begin, end, grey)
        return axes[0].figure
    inches = width / MILLIMETRES_PER_INCH
    heights = [0.4 + 0.17 * inches] * len(names) + [0.1 + 0.18 * len(lanes)] * bool(lanes)
    with matplotlib.rc_context({"font.size": 8.0}):
        figure = Figure(figsize=(inches, 0.7 + sum(heights)), layout="constrained")
        figure.get_layout_engine().set(w_pad=0.1)  # for the last number below an axis
        grid = figure.subplots(len(heights), sharex=True, squeeze=False,
                               gridspec_kw={"height_ratios": heights})
        _draw_all(grid[:, 0], curves, names, lanes, begin, end, grey)
    return figure


def _draw_all(axes: Sequence[matplotlib.axes.Axes], curves: Sequence[_Curve], names: Sequence[str],
              lanes: list[tuple[int, list[int]]], begin: float | None, end: float | None,
              grey: bool) -> None:
    shown = (-numpy.inf if begin is None else begin, numpy.inf if end is None else end)
    for part, name in zip(axes, names):
        _draw_quantity(part, curves, name, grey, shown)
    axes[-1].set_xlabel("time (s)")
    left, right = axes[0].get_xlim()
    for part in axes:
        part.set_xlim(left if begin is None else begin, right if end is None else end)
    if lanes:
        _draw_scopes(axes[-1], curves, lanes, grey)
    if len(curves) > 1:
        axes[0].legend(loc="lower left", bbox_to_anchor=(0.0, 1.0), ncol=6, frameon=False,
                       prop={"family": _families("".join(curve.label for curve in curves))})
