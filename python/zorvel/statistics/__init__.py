"""Statistics of series whose cycles are not independent.

The state of a person moves smoothly, so neighbouring cycles say nearly the same, and a test that
takes them for independent finds differences where there are none. Here a series is resampled in
blocks of successive values, long enough that what depends on each other stays together (Künsch
1989, Annals of Statistics 17; circular blocks: Politis and Romano 1992, in LePage and Billard,
Exploring the Limits of Bootstrap). An interval of 95 % is an estimate, plus and minus its
standard error over the resampled series times the quantile of Student's t with one degree of
freedom less than there are blocks.

All of it assumes that a series is stationary: its mean, its variance and the correlation of its
neighbours stay what they are. A trend, or a change half way, breaks that. An interval also needs a
series of a hundred times its memory, the time after which its correlation with itself has fallen to
1/e; docs/study.md says how often intervals of shorter series hold the truth. NaN is a gap: it keeps
its place in time and is not counted.

Draws are made with a fixed `seed`: the same data give the same numbers.
"""

from .block_bootstrap import block_length
from .differences import difference
from .raters import LabelAgreement, agreement, intraclass, label_agreement
from .two_people import Synchrony, synchrony

__all__ = ["LabelAgreement", "Synchrony", "agreement", "block_length", "difference", "intraclass",
           "label_agreement", "synchrony"]
