"""A study: many recordings, as tables and figures."""

from .epochs import Epochs
from .study import Study

__all__ = ["Epochs", "Study"]
