"""What the columns of a study's tables mean: one list, for the data dictionary."""

from __future__ import annotations

from collections.abc import Sequence

from .. import _zorvel

#: The quantities that have a mean.
QUANTITIES = ("valence", "attention", "ease")
#: What the mood's numbers are called, from the highest.
MOODS = {1: "positive", 0: "neutral", -1: "negative"}


def listed(names: Sequence[str] | str) -> list[str]:
    return [names] if isinstance(names, str) else list(names)


def _of_quantity(name: str) -> dict[str, tuple[str, str]]:
    about = getattr(_zorvel.PersonState, name).__doc__
    return {
        name: ("1", about + " On a grid, the mean of the interval; empty where nothing measured it."),
        f"{name}_mean": ("1", f"Mean of the {name} over all cycles; empty where it was never measured."),
        f"{name}_deviation": ("1", f"Standard deviation of the {name} over all cycles (n - 1)."),
        f"{name}_confidence": ("1", f"Mean confidence of the {name}, from 0 to 1."),
        f"{name}_coverage": ("1", f"Share of cycles in which something measured moved the {name}."),
    }


def _of_change(name: str, least: str) -> dict[str, tuple[str, str]]:
    return {
        f"{name}_change": ("1", f"Greatest rise or fall of the {name} within a second, from {least} on."),
        f"{name}_change_at": ("s", "When that ends, since second 0."),
    }


#: Of each column, its unit and its meaning.
COLUMNS: dict[str, tuple[str, str]] = {
    "recording": ("", "The recording, as the study calls it."),
    "person": ("", _zorvel.PersonState.person.__doc__ or ""),
    "scope": ("", "The name of the scope."),
    "label": ("", "The scope's label: positive, neutral, negative, or unknown where confidence is low."),
    "visit": ("", "Which stretch of the person's cycles, from 1; a removal ends one."),
    "first": ("s", "The person's first cycle, since second 0."),
    "last": ("s", "The person's last cycle, since second 0."),
    "begin": ("s", "Where the scope begins, since second 0."),
    "end": ("s", "Where the scope ends, since second 0."),
    "seconds": ("s", "In the scopes' table the length, else the time since second 0; on a grid where "
                     "the interval begins."),
    "cycles": ("", "How many cycles there are."),
    "unseen_cycles": ("", "Cycles in which the person was not perceived."),
    "visits": ("", "Stretches of cycles, separated by removals or by renamings to another id."),
    **_of_quantity("valence"),
    **_of_quantity("attention"),
    **_of_quantity("ease"),
    "mood": ("", (_zorvel.PersonState.mood.__doc__ or "") +
             " On a grid that of the interval's last cycle; empty where the valence is."),
    **{name: ("1", f"Share of cycles with a {name} mood.") for name in MOODS.values()},
    "attentive": ("1", "Share of cycles with an attention above a half."),
    **_of_change("valence", "a tenth"),
    **_of_change("attention", "a twentieth"),
    **{f"{label}_scopes": ("", f"Closed scopes with the label {label}.")
       for label in ("positive", "neutral", "negative", "unknown", "error")},
}
