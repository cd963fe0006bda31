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
    import_openface,
    import_pyfeat,
    info,
)
from .results import (
    Results,
    Table,
    explain,
    greatest_changes,
    plot,
    replay,
    report,
    summarize,
    summary_csv,
    what_mattered,
)

if _TYPE_CHECKING:
    from ._zorvel import Duration as Duration
    from ._zorvel import Time as Time

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
