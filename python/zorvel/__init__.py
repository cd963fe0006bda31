"""Emotional state of the persons that a robot perceives, with the numbers of the tool zorvel."""

from typing import TYPE_CHECKING as _TYPE_CHECKING

from ._zorvel import (
    SUMMARY_HEADER,
    Ambiance,
    DataError,
    Event,
    Force,
    LabelConfidence,
    Observation,
    Person,
    PersonState,
    Reading,
    Recording,
    RecordingReader,
    Sample,
    SimulatedClock,
    SocialGraph,
    ValueConfidence,
    __version__,
    now,
    read_recording,
)
from .bags import BagFacts, BagTopic, import_bag
from .recorder import Recorder, Scope
from .recordings import (
    ImportedField,
    ImportFacts,
    annotate,
    cut,
    export_elan,
    import_openface,
    import_pyfeat,
    info,
)
from .results import (
    Results,
    explain,
    greatest_changes,
    plot,
    replay,
    report,
    summarize,
    summary_csv,
    what_mattered,
)
from .tables import Table

if _TYPE_CHECKING:
    from . import statistics as statistics
    from ._zorvel import Duration as Duration
    from ._zorvel import Time as Time
    from .study import Epochs as Epochs
    from .study import Study as Study

__all__ = [
    "SUMMARY_HEADER",
    "Ambiance",
    "BagFacts",
    "BagTopic",
    "DataError",
    "Event",
    "Force",
    "ImportFacts",
    "ImportedField",
    "LabelConfidence",
    "Observation",
    "Person",
    "PersonState",
    "Reading",
    "Recorder",
    "Recording",
    "RecordingReader",
    "Results",
    "Sample",
    "Scope",
    "SimulatedClock",
    "SocialGraph",
    "Table",
    "ValueConfidence",
    "annotate",
    "cut",
    "explain",
    "export_elan",
    "greatest_changes",
    "import_bag",
    "import_openface",
    "import_pyfeat",
    "info",
    "now",
    "plot",
    "read_recording",
    "replay",
    "report",
    "summarize",
    "summary_csv",
    "what_mattered",
]


def __getattr__(name: str) -> object:
    """What takes pandas and SciPy, which the module itself does without."""
    import importlib

    if name == "statistics":
        return importlib.import_module(".statistics", __name__)
    if name in ("Epochs", "Study"):
        return getattr(importlib.import_module(".study", __name__), name)
    raise AttributeError(f"module {__name__!r} has no attribute {name!r}")
