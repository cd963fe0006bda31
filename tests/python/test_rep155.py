"""The mapping between REP-155 and zorvel. All expected numbers are worked by hand."""

import doctest
import math
from typing import Any

import pytest

from zorvel import rep155
from zorvel.rep155 import Engagement, EngagementLevel, Gender, PersonNumbers

NAN = math.nan
# Intensities as OpenFace writes them, from 0 to 5.
ROW = {1: 0.6, 2: 1.2, 4: 1.5, 5: 3.0, 6: 4.8, 7: 0.9, 12: 1.5, 15: 0.75, 23: 0.0, 26: 2.4}


def test_expressions_by_name() -> None:
    assert rep155.expressions_from_name("furious", 1.5) == {
        "calm": (0, 1), "anger": (1, 1), "joy": (0, 1), "sorrow": (0, 1), "surprise": (0, 1)}
    for name, confidence in (("disgusted", 0.9), ("", 0.9), ("happy", NAN)):
        assert rep155.expressions_from_name(name, confidence) is None


@pytest.mark.parametrize("scale, options", [(1.0, {"full_intensity": 3.0}), (0.2, {})])
def test_action_units_agree_with_a_row_of_openface(scale: Any, options: Any) -> None:
    units = rep155.action_units(ROW, [scale * unit for unit in ROW.values()], [0.9] * 9 + [0.8])
    assert rep155.smile_from_action_units(units, **options) == pytest.approx((0.5, 0.9))
    worked = {"calm": 0.25, "anger": 0.45, "joy": 0.75, "sorrow": 0.95 / 3, "surprise": 0.6}
    expressions = rep155.expressions_from_action_units(units, **options)
    assert expressions is not None
    assert {name: value for name, (value, _) in expressions.items()} == pytest.approx(worked)
    assert {confidence for _, confidence in expressions.values()} == {0.8}


def test_action_units_that_are_missing() -> None:
    units = rep155.action_units([12, 6], [0.9, NAN], [7.0, 1.0])
    assert rep155.smile_from_action_units(units) == (1, 1)
    assert rep155.expressions_from_action_units(units) is None
    assert rep155.smile_from_action_units({6: (1.0, 1.0)}) is None
    with pytest.raises(ValueError):
        rep155.action_units([12], [0.3], [])


def test_left_and_right_of_landmarks() -> None:
    # In the picture of somebody who faces the camera, the person's right is on the left.
    named = rep155.facial_points(
        {"RIGHT_EYE_OUTSIDE": (0.25, 0.5, 0.9), "LEFT_EYEBROW_INSIDE": (0.5, 0.25, -1),
         "MOUTH_OUTER_LEFT": (0.75, NAN, 1), "MENTON": (0.5, 1, 1)}, 640, 480)
    assert named == {0: (160, 240, 0.9), 6: (320, 120, 0)}
    assert rep155.facial_points({"MENTON": (0.5, 1, 1)}, 640, 480) is None
    points = rep155.facial_points_from_68([(k, 0, 1) for k in range(70)], 1, 1)
    assert points is not None
    assert [points[point][0] for point in range(12)] == [
        36, 39, 42, 45, 17, 21, 22, 26, 30, 33, 48, 54]
    with pytest.raises(ValueError):
        rep155.facial_points_from_68([(0, 0, 1)] * 67, 1, 1)


def quaternion(yaw: float, pitch: float, roll: float,
               length: float = 1.0) -> rep155.Quaternion:
    """Of turns about z, then y, then x, in degrees, in the closed form of the textbooks."""
    halves = [math.radians(angle) / 2 for angle in (yaw, pitch, roll)]
    (cy, sy), (cp, sp), (cr, sr) = ((math.cos(half), math.sin(half)) for half in halves)
    return (length * (sr * cp * cy - cr * sp * sy), length * (cr * sp * cy + sr * cp * sy),
            length * (cr * cp * sy - sr * sp * cy), length * (cr * cp * cy + sr * sp * sy))


def test_head_posture() -> None:
    for angles in ((30, 0, 0), (0, 20, 0), (0, 0, 15), (-170, -60, 100), (35, 50, -25)):
        opposite = [-angle for angle in angles]
        assert rep155.head_posture(quaternion(*angles, length=-2)) == pytest.approx(opposite)
    assert rep155.head_posture((0, 0, 0, 0)) is None
    assert rep155.gaze((NAN, 0, 0, 1)) is None


def test_gaze() -> None:
    assert rep155.gaze((-0.5, 0.5, -0.5, 0.5)) == pytest.approx((0, 0))
    assert rep155.gaze((-0.5, 0.5, 0, 0)) == pytest.approx((0, -90))  # z straight down
    # z straight to the left: y, which is down, about -90°.
    assert rep155.gaze((-math.sqrt(0.5), 0, 0, math.sqrt(0.5))) == pytest.approx((-90, 0))


@pytest.mark.parametrize("position, turns, posture", [
    ((2, 0, 0), (180, 0, 0), (0, 0, 0)),
    ((1, 1, 0), (180, 0, 0), (45, 0, 0)),  # at the robot's left, it looks past the robot's
    ((1, -1, 0), (180, 0, 0), (-45, 0, 0)),
    ((1, 0, -1), (180, 0, 0), (0, -45, 0)),  # below the robot, it should look up
    ((1, 1, math.sqrt(2)), (-135, 45, 10), (0, 0, -10)),  # above, it looks down at the robot
])
def test_seen_from_robot(position: Any, turns: Any, posture: Any) -> None:
    seen = rep155.seen_from_robot(position, quaternion(*turns))
    assert rep155.head_posture(seen) == pytest.approx(posture, abs=1e-9)


def test_soft_biometrics() -> None:
    assert rep155.age(34, 0.5) == (34, 0.5)
    assert rep155.age(0, 0.0) is rep155.age(-1, 1.0) is rep155.age(34, NAN) is None
    assert rep155.gender(2, 0.7, true_for=Gender.MALE) == (True, 0.7)
    assert rep155.gender(2, 0.7, true_for=Gender.FEMALE) == (False, 0.7)
    for value, confidence in ((0, 1.0), (3, 1.0), (1, 0.0)):
        assert rep155.gender(value, confidence, true_for=Gender.FEMALE) is None


def test_an_alias_goes_on_under_the_older_number() -> None:
    numbers = PersonNumbers()
    assert [numbers.number(person) for person in "abcb"] == [1, 2, 3, 2]
    assert [numbers.alias(*ids) for ids in ("bc", "ca", "ab", ("a", ""), "da")] == [
        (3, 2), (2, 1), None, None, (4, 1)]
    numbers.forget("c")
    assert [numbers.number(person) for person in "ad"] == [5, 6]


def test_engagement_does_not_flicker() -> None:
    engagement = Engagement()
    for attention, confidence, level in (
            (1.0, 0.39, "UNKNOWN"), (0.5, 0.4, "ENGAGING"), (0.39, 0.1, "ENGAGING"),
            (0.29, 1, "DISENGAGED"), (0.39, 1, "DISENGAGED"), (0.4, 1, "ENGAGING"),
            (0.69, 1, "ENGAGING"), (0.7, 1, "ENGAGED"), (0.6, 1, "ENGAGED"),
            (0.59, 1, "DISENGAGING"), (0.69, 1, "DISENGAGING"), (0.3, 1, "DISENGAGING"),
            (0.7, 1, "ENGAGED"), (0.2, 1, "DISENGAGED"), (0.9, 0.09, "UNKNOWN"),
            (0.9, 0.39, "UNKNOWN"), (0.39, 1, "DISENGAGED"), (NAN, 1, "UNKNOWN"),
            (0.7, 1, "ENGAGED"), (1, NAN, "UNKNOWN")):
        assert engagement.update(attention, confidence) is EngagementLevel[level]
    with pytest.raises(ValueError):
        Engagement(engaged_from=0.5)


def test_examples_of_the_documentation() -> None:
    assert doctest.testmod(rep155) == (0, 5)
