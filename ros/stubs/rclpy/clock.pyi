from enum import Enum
from typing import Any

class ClockType(Enum):
    ROS_TIME = 1
    SYSTEM_TIME = 2
    STEADY_TIME = 3

class Time:
    @property
    def nanoseconds(self) -> int: ...
    def to_msg(self) -> Any: ...

class Clock:
    def __init__(self, *, clock_type: ClockType = ...) -> None: ...
    def now(self) -> Time: ...
