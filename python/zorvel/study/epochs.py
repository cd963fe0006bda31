"""What happens around events."""

from __future__ import annotations

from collections.abc import Sequence
from typing import TYPE_CHECKING

import pandas

from ..html import table
from .columns import QUANTITIES, listed
from .cycles import band

if TYPE_CHECKING:
    import matplotlib.figure


class Epochs:
    """What happens around events: see Study.epochs."""

    def __init__(self, each: pandas.DataFrame) -> None:
        #: A row for each recording, person, event and its number, and `offset`, the seconds since the
        #: event, with the quantities.
        self.each = each
        #: A row for each event's name, offset and quantity: the mean and its interval of 95 %, the
        #: people and the events in it. Events of one person are not independent, so where there are
        #: several people, it is one over people, of each person's mean over events; with one person, it is
        #: one over events.
        self.mean = self._mean()

    def _mean(self) -> pandas.DataFrame:
        keys = ["event", "offset"]
        rows = []
        for quantity in QUANTITIES:
            known = self.each.dropna(subset=[quantity])
            people = known.groupby([*keys, "recording", "person"], observed=True)[quantity].mean()
            several = people.groupby(level=keys).size().max() > 1 if len(people) else False
            values = people if several else known.set_index(keys)[quantity]
            events = known.groupby(keys).size()
            counts = people.groupby(level=keys).size()
            for key, of_key in values.groupby(level=keys):
                rows.append((*key, quantity, *band(of_key.to_numpy(float)), counts[key], events[key]))
        return pandas.DataFrame(rows, columns=[*keys, "quantity", "mean", "low", "high", "people", "events"])

    def plot(self, quantities: Sequence[str] | str = QUANTITIES, *, width: float = 178.0,
             grey: bool = False) -> matplotlib.figure.Figure:
        """The means around the event with their bands, an axis for each quantity."""
        from .figure import draw_epochs

        return draw_epochs(self.mean, listed(quantities), width, grey)

    def _repr_html_(self) -> str:
        counts = self.each.drop_duplicates(["recording", "person", "event", "number"])
        return table(["event", "events", "people"], [
            (name, len(of_name), len(of_name.drop_duplicates(["recording", "person"])))
            for name, of_name in counts.groupby("event")])
