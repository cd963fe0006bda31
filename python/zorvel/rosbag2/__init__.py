"""Bags of ROS 2, in SQLite and in MCAP, read without ROS.

A bag may be cut off, damaged or made to harm: what can be read is read, what cannot is named with
its place, and nothing takes memory out of proportion to the file.
"""

from .bag import Bag

__all__ = ["Bag"]
