"""The tables of a replay."""

from __future__ import annotations

from collections.abc import Iterable
from typing import TYPE_CHECKING, Any

from .html import table

if TYPE_CHECKING:
    import numpy
    import pandas

#: What can be drawn, with its range; the first three are drawn unless others are asked for.
QUANTITIES = {"valence": (-1.0, 1.0), "attention": (0.0, 1.0), "ease": (-0.5, 0.5),
              "mood": (-1.0, 1.0)}


class Table(dict[str, "numpy.ndarray[Any, Any]"]):
    """A table of results: from the name of each column to a NumPy array.

    The columns are those of the CSV file, in its order; unless `seconds`, the time since second 0, is
    among them, it comes last. `pandas.DataFrame` takes it as it is.
    """

    @property
    def rows(self) -> int:
        """How many rows there are."""
        return len(self["time"])

    def __repr__(self) -> str:
        return f"<Table of {self.rows} rows: {', '.join(self)}>"

    def _repr_html_(self) -> str:
        most = 10
        rows: list[Iterable[object]] = [
            *zip(*(column[:most].tolist() for column in self.values()))]
        if self.rows > most:
            rows.append([f"… {self.rows - most} more rows"])
        return table(self, rows)

    def to_pandas(self) -> pandas.DataFrame:
        """The table as a pandas data frame; ImportError without pandas."""
        import pandas

        return pandas.DataFrame(self)


class Tables:
    """The tables of a replay, as the figure takes them."""

    def __init__(self, tables: dict[str, dict[str, numpy.ndarray[Any, Any]]]) -> None:
        #: The state of a person after each cycle.
        self.timeline = Table(tables["timeline"])
        #: The scopes, where they were closed.
        self.scopes = Table(tables["scopes"])
        #: The room, after each measurement.
        self.ambiance = Table(tables["ambiance"])
        #: Everything that moved a state, in order; None unless it was asked for.
        self.forces = Table(tables["forces"]) if "forces" in tables else None
        #: Whether each value of the timeline's rows is known, or not measured.
        self._known = tables["known"]

    def _repr_html_(self) -> str:
        return "".join(f"<h4>{name}</h4>{part._repr_html_()}" for name, part in vars(self).items()
                       if isinstance(part, Table))
