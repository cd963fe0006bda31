"""The engagement of a person, in the levels of hri_msgs/EngagementLevel."""

from __future__ import annotations

import math
from dataclasses import dataclass, field
from enum import IntEnum


class EngagementLevel(IntEnum):
    """The levels of hri_msgs/EngagementLevel."""

    UNKNOWN = 0
    DISENGAGED = 1
    ENGAGING = 2
    ENGAGED = 3
    DISENGAGING = 4


@dataclass
class Engagement:
    """The engagement of one person, from the attention that zorvel estimates.

    Each level is left at another value than it was reached at, so that an attention that trembles
    does not make it flicker. Between the levels a person who was engaged is disengaging, and
    everyone else is engaging. Throws ValueError for thresholds out of order.
    """

    engaged_from: float = 0.7
    """The attention from which on a person is engaged; a head that stays turned 18° aside, without
    a gaze, reaches it."""
    disengaging_below: float = 0.6
    """The attention below which one who is engaged no longer is."""
    engaging_from: float = 0.4
    """The attention from which on one who is disengaged no longer is."""
    disengaged_below: float = 0.3
    """The attention below which a person is disengaged; such a head reaches it at 27°."""
    known_from: float = 0.4
    """The confidence of the attention from which on an unknown level becomes known."""
    unknown_below: float = 0.1
    """The confidence below which a known level becomes unknown. Two cycles in which a person is not
    seen bring any confidence below it."""
    level: EngagementLevel = field(default=EngagementLevel.UNKNOWN, init=False)
    """The level of the last update; unknown at first."""

    def __post_init__(self) -> None:
        attentions = (self.disengaged_below, self.engaging_from, self.disengaging_below,
                      self.engaged_from)
        if list(attentions) != sorted(attentions) or self.unknown_below > self.known_from:
            raise ValueError("a level would be left before it is reached")

    def update(self, attention: float, confidence: float) -> EngagementLevel:
        """The level after one more state, of an attention and its confidence, each in 0 to 1.

        What is not a number is unknown.
        """
        level = self.level
        was_unknown = level is EngagementLevel.UNKNOWN
        was_engaged = level is EngagementLevel.ENGAGED
        was_disengaged = level is EngagementLevel.DISENGAGED or was_unknown
        least_confidence = self.known_from if was_unknown else self.unknown_below
        if math.isnan(attention) or not confidence >= least_confidence:
            level = EngagementLevel.UNKNOWN
        elif attention >= (self.disengaging_below if was_engaged else self.engaged_from):
            level = EngagementLevel.ENGAGED
        elif attention < (self.engaging_from if was_disengaged else self.disengaged_below):
            level = EngagementLevel.DISENGAGED
        elif was_engaged:
            level = EngagementLevel.DISENGAGING
        elif was_disengaged:
            level = EngagementLevel.ENGAGING
        self.level = level
        return level
