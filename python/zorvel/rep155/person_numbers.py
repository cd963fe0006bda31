"""Numbers for persons whose ids are texts."""

from __future__ import annotations


class PersonNumbers:
    """Numbers for the persons of `/humans/persons`, whose ids are texts in REP-155.

    A person gets the next number, from 1 on, when its id first appears. No number is given twice.
    """

    def __init__(self) -> None:
        self._numbers: dict[str, int] = {}
        self._count = 0

    def number(self, person: str) -> int:
        """The number of a person, which is a new one for an id that has none."""
        if person not in self._numbers:
            self._count += 1
            self._numbers[person] = self._count
        return self._numbers[person]

    def alias(self, person: str, alias: str) -> tuple[int, int] | None:
        """Makes one person of two, when `/humans/persons/<person>/alias` says that it is `alias`.

        Both ids have the older of the two numbers from then on. Returns the number that is given up
        and the one that stays, for `SocialGraph.rename`, or `Event.rename` after the time; None
        where nothing is given up: one of them had no number yet, or both the same, as when a latched
        message comes again. The empty alias of somebody who has none gives None, too.

        >>> numbers = PersonNumbers()
        >>> numbers.number("anonymous_7"), numbers.number("ada")
        (1, 2)
        >>> numbers.alias("anonymous_7", "ada")
        (2, 1)
        >>> numbers.number("ada")
        1
        """
        if not alias:
            return None
        known = [name for name in (person, alias) if name in self._numbers]
        if len(known) < 2:
            self._numbers[person] = self._numbers[alias] = self.number(known[0] if known else person)
            return None
        older, newer = sorted((self.number(person), self.number(alias)))
        if older == newer:
            return None
        self._numbers = {name: older if number == newer else number
                         for name, number in self._numbers.items()}
        return newer, older

    def drop(self, person: str) -> None:
        """The id is nobody's any more; the others with its number keep it."""
        self._numbers.pop(person, None)

    def known(self, person: str) -> int | None:
        """The number of a person, if the id has one."""
        return self._numbers.get(person)

    def ids(self) -> dict[int, list[str]]:
        """The ids of each number."""
        found: dict[int, list[str]] = {}
        for person, number in self._numbers.items():
            found.setdefault(number, []).append(person)
        return found

    def forget(self, person: str) -> None:
        """The person is given up: the ids with its number have none any more."""
        gone = self._numbers.get(person)
        self._numbers = {name: number for name, number in self._numbers.items() if number != gone}
