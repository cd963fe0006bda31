"""Named scopes, each summed up in one label."""

from __future__ import annotations

import types

from . import _zorvel


class Scope:
    """A scope of a Recorder, open for the length of a `with` block."""

    def __init__(self, recorder: Recorder, name: str, samples: int | None) -> None:
        self._recorder = recorder
        self._limit = samples
        self.name = name
        #: "positive", "negative", "neutral" or "unknown" once the block has ended; "error" when the
        #: scope was closed or used up before.
        self.label: str | None = None
        #: What was recorded, oldest first, once the block has ended.
        self.samples: list[_zorvel.Sample] = []

    def __enter__(self) -> Scope:
        self._recorder.start(self.name, self._limit)
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None,
                 traceback: types.TracebackType | None) -> None:
        self.label, self.samples = self._recorder.stop(self.name)


class Recorder(_zorvel.Recorder):
    """Records the states of one person over named scopes and sums up each scope in one label.

    Several scopes may be open at once; every update adds a sample to all of them. The label is the
    mean valence, weighted by confidence: "unknown" below a mean confidence of 0.4, "positive" above
    0.2, "negative" below -0.2, else "neutral". May be used from any thread.
    """

    def scope(self, name: str, samples: int | None = None) -> Scope:
        """A scope for a `with` block; it takes at most so many updates, None for no limit."""
        return Scope(self, name, samples)
