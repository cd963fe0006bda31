"""Where frames are in each other, at any recent moment, by /tf and /tf_static of ROS."""

from __future__ import annotations

import math
from collections import deque
from typing import NamedTuple, TypeAlias

Vector: TypeAlias = tuple[float, float, float]
"""x forward, y to the left, z up (REP-103), in metres."""

Quaternion: TypeAlias = tuple[float, float, float, float]
"""A rotation as (x, y, z, w), the order of geometry_msgs/Quaternion; of any length but 0."""


def unit(orientation: Quaternion) -> Quaternion | None:
    """The same rotation with the length 1; None where there is none."""
    length = math.hypot(*orientation)
    if length == 0.0 or not math.isfinite(length):
        return None
    x, y, z, w = orientation
    return x / length, y / length, z / length, w / length


def inverse(rotation: Quaternion) -> Quaternion:
    """The rotation back; both have the length 1."""
    x, y, z, w = rotation
    return -x, -y, -z, w


def product(left: Quaternion, right: Quaternion) -> Quaternion:
    """The rotation `right`, followed by `left`."""
    x1, y1, z1, w1 = left
    x2, y2, z2, w2 = right
    return (
        w1 * x2 + x1 * w2 + y1 * z2 - z1 * y2,
        w1 * y2 - x1 * z2 + y1 * w2 + z1 * x2,
        w1 * z2 + x1 * y2 - y1 * x2 + z1 * w2,
        w1 * w2 - x1 * x2 - y1 * y2 - z1 * z2,
    )


def rotated(rotation: Quaternion, vector: Vector) -> Vector:
    """The vector, turned by a rotation of the length 1."""
    x, y, z, w = rotation
    vx, vy, vz = vector
    tx, ty, tz = 2.0 * (y * vz - z * vy), 2.0 * (z * vx - x * vz), 2.0 * (x * vy - y * vx)
    return (vx + w * tx + y * tz - z * ty, vy + w * ty + z * tx - x * tz,
            vz + w * tz + x * ty - y * tx)


class Pose(NamedTuple):
    """Where a frame is in another; the orientation has the length 1."""

    position: Vector
    orientation: Quaternion

    def then(self, inner: Pose) -> Pose:
        """Where a frame is in the other that is at `inner` in this one."""
        x, y, z = rotated(self.orientation, inner.position)
        px, py, pz = self.position
        return Pose((px + x, py + y, pz + z), product(self.orientation, inner.orientation))

    def inverse(self) -> Pose:
        """Where the other frame is in this one."""
        back = inverse(self.orientation)
        x, y, z = rotated(back, self.position)
        return Pose((-x, -y, -z), back)


class _Sample(NamedTuple):
    stamp: int
    parent: str
    pose: Pose


_KEPT = 10_000_000_000  # nanoseconds; what ROS's own buffer keeps
_MOST_SAMPLES = 1000  # of a frame
_DEEPEST = 100  # from a frame to the root of its tree


def _between(first: _Sample, second: _Sample, stamp: int) -> _Sample:
    """The pose at a moment between two, by linear and by spherical interpolation."""
    share = (stamp - first.stamp) / (second.stamp - first.stamp)
    a, b = first.pose.orientation, second.pose.orientation
    cosine = sum(p * q for p, q in zip(a, b))
    if cosine < 0.0:
        b, cosine = (-b[0], -b[1], -b[2], -b[3]), -cosine
    if cosine > 1.0 - 1e-9:
        wa, wb = 1.0 - share, share
    else:
        angle = math.acos(cosine)
        wa, wb = math.sin((1.0 - share) * angle), math.sin(share * angle)
    turned = unit((wa * a[0] + wb * b[0], wa * a[1] + wb * b[1],
                   wa * a[2] + wb * b[2], wa * a[3] + wb * b[3])) or a
    (x1, y1, z1), (x2, y2, z2) = first.pose.position, second.pose.position
    position = (x1 + share * (x2 - x1), y1 + share * (y2 - y1), z1 + share * (z2 - z1))
    return _Sample(stamp, first.parent, Pose(position, turned))


class Transforms:
    """The frames of a robot and of what it sees, as trees that change with time.

    A frame is where it was said to be at the moment asked for, or in between where it was at the moments
    around that; before the first or after the last, it is where it was then, for up to `reach` nanoseconds.
    """

    def __init__(self, reach: int) -> None:
        self._reach = reach
        self._moving: dict[str, deque[_Sample]] = {}
        self._fixed: dict[str, _Sample] = {}
        self._tidy_from = 0

    def add(self, parent: str, child: str, stamp: int, position: Vector, orientation: Quaternion,
            *, fixed: bool = False) -> bool:
        """Takes one transform; False, and nothing is taken, where a number makes no sense."""
        turned = unit(orientation)
        x, y, z = position
        if turned is None or not math.isfinite(x + y + z) or parent == child:
            return False
        sample = _Sample(stamp, parent, Pose(position, turned))
        if fixed:
            self._fixed[child] = sample
            return True
        samples = self._moving.get(child)
        if samples is None:
            self._tidy(stamp)
            samples = self._moving[child] = deque(maxlen=_MOST_SAMPLES)
        elif stamp < samples[-1].stamp - _KEPT:  # the clock was set back
            samples.clear()
        later = []
        while samples and samples[-1].stamp >= stamp:
            later.append(samples.pop())
        if not (later and later[-1].stamp == stamp):  # what is said twice counts once
            samples.append(sample)
        samples.extend(reversed(later))
        while samples[0].stamp < samples[-1].stamp - _KEPT:
            samples.popleft()
        return True

    def find(self, frame: str, target: str, stamp: int) -> Pose | None:
        """Where `frame` was in `target`; None where nothing connects the two."""
        pose = Pose((0.0, 0.0, 0.0), (0.0, 0.0, 0.0, 1.0))
        above = {frame: pose}  # where the frame is in those above it
        here = frame
        while here != target and len(above) < _DEEPEST:
            sample = self._at(here, stamp)
            if sample is None or sample.parent in above:
                break
            here = sample.parent
            pose = above[here] = sample.pose.then(pose)
        pose, here, steps = Pose((0.0, 0.0, 0.0), (0.0, 0.0, 0.0, 1.0)), target, 0
        while here not in above:
            sample = self._at(here, stamp)
            steps += 1
            if sample is None or steps > _DEEPEST:
                return None
            here = sample.parent
            pose = sample.pose.then(pose)
        return above[here] if here == target else pose.inverse().then(above[here])

    def _at(self, frame: str, stamp: int) -> _Sample | None:
        """Where a frame was in the one above it."""
        later = None
        for sample in reversed(self._moving.get(frame, ())):
            if sample.stamp <= stamp:
                if later is None or later.parent != sample.parent:
                    if stamp - sample.stamp <= self._reach:
                        return sample
                    break
                return _between(sample, later, stamp)
            later = sample
        if later is not None and later.stamp - stamp <= self._reach:
            return later
        return self._fixed.get(frame)

    def _tidy(self, stamp: int) -> None:
        """Forgets, from time to time, the frames of which nothing has been heard for long."""
        if abs(stamp - self._tidy_from) > _KEPT:
            self._tidy_from = stamp
            self._moving = {frame: samples for frame, samples in self._moving.items()
                            if abs(samples[-1].stamp - stamp) <= _KEPT}
