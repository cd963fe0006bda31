from enum import Enum

class DurabilityPolicy(Enum):
    SYSTEM_DEFAULT = 0
    TRANSIENT_LOCAL = 1
    VOLATILE = 2

class ReliabilityPolicy(Enum):
    SYSTEM_DEFAULT = 0
    RELIABLE = 1
    BEST_EFFORT = 2

class QoSProfile:
    durability: DurabilityPolicy
    reliability: ReliabilityPolicy
    def __init__(self, *, depth: int, durability: DurabilityPolicy, reliability: ReliabilityPolicy) -> None: ...
