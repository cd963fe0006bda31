"""The mapping between REP-155 and zorvel. All expected numbers are worked by hand."""

import doctest
import math
from types import SimpleNamespace as Message
from typing import Any

import pytest

import zorvel
from zorvel import rep155
from zorvel.rep155 import Engagement, EngagementLevel, Gender, People, PersonNumbers
from zorvel.transforms import Quaternion, product

NAN = math.nan
# Intensities as OpenFace writes them, from 0 to 5.
ROW = {1: 0.6, 2: 1.2, 4: 1.5, 5: 3.0, 6: 4.8, 7: 0.9, 12: 1.5, 15: 0.75, 23: 0.0, 26: 2.4}


def test_expressions_by_name() -> None:
    assert rep155.expressions_from_name("furious", 1.5) == {
        "calm": (0, 1), "anger": (1, 1), "joy": (0, 1), "sorrow": (0, 1), "surprise": (0, 1)}
    assert rep155.expressions_from_name(3, 1.0) == rep155.expressions_from_name("annoyed", 1.0)
    nothing: list[tuple[str | int, float]] = [
        ("disgusted", 0.9), ("", 0.9), ("happy", NAN), (5, 0.9), (7, 0.9), (-1, 1)]
    for name, confidence in nothing:
        assert rep155.expressions_from_name(name, confidence) is None


def by_code(values: dict[int, float]) -> list[float]:
    """As the arrays of FacialActionUnits have them."""
    return [values.get(code, 0.0) for code in range(99)]


@pytest.mark.parametrize("scale, options", [(1.0, {"full_intensity": 3.0}), (0.2, {})])
def test_action_units_agree_with_a_row_of_openface(scale: Any, options: Any) -> None:
    confidences = {**dict.fromkeys(ROW, 0.9), 26: 0.8}
    units = rep155.action_units(by_code({code: scale * unit for code, unit in ROW.items()}),
                                by_code(confidences))
    assert rep155.smile_from_action_units(units, **options) == pytest.approx((0.5, 0.9))
    worked = {"calm": 0.25, "anger": 0.45, "joy": 0.75, "sorrow": 0.95 / 3, "surprise": 0.6}
    expressions = rep155.expressions_from_action_units(units, **options)
    assert expressions is not None
    assert {name: value for name, (value, _) in expressions.items()} == pytest.approx(worked)
    assert {confidence for _, confidence in expressions.values()} == {0.8}


def test_action_units_that_were_not_measured() -> None:
    # A confidence of 0 says that nobody looked: unit 26 is not at rest, and there are no expressions.
    seen = by_code({**dict.fromkeys(ROW, 0.9), 26: 0.0})
    assert rep155.expressions_from_action_units(rep155.action_units(by_code(ROW), seen)) is None
    assert rep155.action_units([9.0, 0.5, NAN, 0.9], [0.0, 7.0, 1.0, NAN]) == {1: (0.5, 1.0)}
    assert rep155.smile_from_action_units({6: (1.0, 1.0)}) is None
    with pytest.raises(ValueError):
        rep155.action_units([0.3], [])


def test_left_and_right_of_landmarks() -> None:
    # In the picture of somebody who faces the camera, the person's right, 36 to 41, is on the left.
    landmarks = [(0.01 * k, 0.5, 0.9) for k in range(70)]
    landmarks[54] = (0.5, NAN, 1)
    landmarks[30] = (0.5, 0.25, -1)
    points = rep155.facial_points(landmarks, 100, 480)
    assert points is not None and points[8] == (50, 120, 0)
    assert {point: round(x) for point, (x, _, _) in points.items() if point != 8} == {
        0: 36, 1: 39, 2: 42, 3: 45, 4: 17, 5: 21, 6: 22, 7: 26, 9: 33, 10: 48}
    assert rep155.facial_points([(NAN, 0, 1)] * 68, 1, 1) is None
    with pytest.raises(ValueError):
        rep155.facial_points([(0, 0, 1)] * 67, 1, 1)


def quaternion(yaw: float, pitch: float, roll: float,
               length: float = 1.0) -> Quaternion:
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
        (3, 2), (2, 1), None, None, None]
    assert numbers.number("d") == 1
    numbers.forget("c")
    assert [numbers.number(person) for person in "ad"] == [4, 5]


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


START = 1_700_000_000_000_000_000
MS = 1_000_000
# What each message has in the definitions of hri_msgs; 0.6.0 had less, and a list in FacialActionUnits
# that nothing is said of.
FIELDS = {"IdsList": "header ids", "Expression": "header expression valence arousal confidence",
          "FacialActionUnits": "header intensity confidence", "Gaze": "header sender receiver",
          "FacialLandmarks": "header landmarks height width",
          "SoftBiometrics": "header age age_confidence gender gender_confidence"}
FIELDS_OF_0_6 = {kind: fields if kind in ("IdsList", "FacialActionUnits") else fields.removeprefix("header ")
                 for kind, fields in FIELDS.items()} | {
                     "FacialActionUnits": "header FAU intensity confidence"}


def stamped(nanoseconds: int, version: str = "2.0.0", frame: str = "") -> Message:
    """A header of ROS 1 or of ROS 2."""
    seconds, rest = divmod(nanoseconds, 10**9)
    stamp = (Message(sec=seconds, nanosec=rest) if version == "2.0.0"
             else Message(secs=seconds, nsecs=rest))
    return Message(stamp=stamp, frame_id=frame)


def message(version: str, kind: str, stamp: int, **values: Any) -> Message:
    fields = (FIELDS_OF_0_6 if version == "0.6.0" else FIELDS)[kind].split()
    values["header"] = stamped(stamp, version)
    return Message(**{name: values.get(name, []) for name in fields})


def frames(stamp: int, *moved: tuple[str, str, Any, Any], version: str = "2.0.0") -> Message:
    return Message(transforms=[
        Message(header=stamped(stamp, version, parent), child_frame_id=child,
                transform=Message(translation=Message(**dict(zip("xyz", position))),
                                  rotation=Message(**dict(zip("xyzw", turned)))))
        for parent, child, position, turned in moved])


BACK = (0.0, 0.0, 1.0, 0.0)  # who looks back along x
AHEAD = (0.0, 0.0, 0.0, 1.0)
OPTICAL = (-0.5, 0.5, -0.5, 0.5)  # z where x was


def face(stamp: int, name: str = "a", turned: Any = BACK, parent: str = "eyes") -> Message:
    return frames(stamp, (parent, f"face_{name}", (2.0, 0.0, 0.0), turned))


def told(events: list[zorvel.Event]) -> list[tuple[Any, ...]]:
    return [(event.kind, (event.time - START) // MS, event.person, *([event.to] if event.to else []))
            for event in events]


@pytest.mark.parametrize("version", ["0.6.0", "0.9.0", "2.0.0"])
def test_messages_of_each_version_become_fields(version: str) -> None:
    people, now = People("eyes", gender_true=Gender.MALE), START + 50 * MS
    measured = START + 20 * MS
    of_face = "/humans/faces/a/"
    point = Message(x=0.5, y=0.25, c=0.75)
    units = {code: 0.2 * unit for code, unit in ROW.items()}
    known = measured if version != "0.6.0" else now  # a message without a header counts from its receipt
    # The camera's picture has z forward; the gaze is 20 degrees to the side of the head's direction.
    aside = quaternion(20, 0, 0)
    gaze = product(aside, OPTICAL)
    for topic, received in (
            ("/tf_static", frames(0, ("eyes", "optical", (0.0, 0.0, 0.0), OPTICAL), version=version)),
            ("/humans/faces/tracked", message(version, "IdsList", measured, ids=["a"])),
            ("/tf", frames(measured, ("optical", "face_a", (0.0, 0.0, 2.0), (0.5, 0.5, -0.5, 0.5)),
                           ("face_a", "gaze_a", (0.0, 0.0, 0.0), gaze), version=version)),
            (of_face + "facs", message(version, "FacialActionUnits", measured, intensity=by_code(units),
                                       confidence=by_code(dict.fromkeys(ROW, 0.5)))),
            (of_face + "landmarks", message(version, "FacialLandmarks", measured, width=640, height=480,
                                            landmarks=[point] * 70)),
            (of_face + "softbiometrics", message(version, "SoftBiometrics", measured, age=34, gender=2,
                                                 age_confidence=0.5, gender_confidence=0.25)),
            ("/humans/persons/ada/face_id", Message(data="a"))):
        assert people.receive(topic, received, now) == []
    # Who looks at whom: an empty id is the robot. Nobody has a number before the first cycle.
    first, = people.advance(START + 100 * MS)
    assert people.receive("/anywhere", message(version, "Gaze", measured, sender="ada", receiver=""),
                          START + 100 * MS) == []
    event, = people.receive("/tf_static", frames(0), START + 200 * MS)
    seen = event.fields
    assert seen is not None and seen.looking_at_robot is not None and seen.looking_at_robot.value
    for reading, value, time in (
            (seen.head_posture, (0, 0, 0), measured), (seen.distance, 2, measured),
            (seen.gaze, (-20, 0), measured), (seen.smile, (0.5, 0.5), measured + 1),  # again
            (seen.age, (34, 0.5), known), (seen.gender, (True, 0.25), known)):
        assert reading is not None and reading.time == time
        assert reading.value == pytest.approx(value, abs=1e-5)
    assert seen.facial_points is not None and seen.facial_points.value[11] == (320, 120, 0.75)
    # A name takes the place of the units, and a number in 0.6.0.
    people.receive(of_face + "expression", message(
        version, "Expression", measured, expression=1 if version == "0.6.0" else "happy", confidence=0.5),
        START + 210 * MS)
    event, = people.advance(START + 300 * MS)
    assert event.fields is not None and event.fields.expressions is not None
    assert event.fields.expressions.value["joy"] == (1, 0.5)
    assert not people.left_out


def test_the_last_of_a_slow_topic_is_given_until_it_is_too_old() -> None:
    people = People("eyes", hold=0.5)
    shown = Message(header=stamped(0), expression="happy", confidence=1.0)
    events: list[zorvel.Event] = []
    for step in range(30):
        now = START + 100 * MS * step + MS
        if step in (0, 5):
            events += people.receive("/humans/faces/a/expression", shown, now)
        events += people.receive("/humans/faces/tracked", Message(ids=["a"]), now)
    given = [event.fields.expressions for event in events if event.fields is not None]
    assert [reading and (reading.time - START) // MS for reading in given] == (
        [1] * 5 + [501] * 5 + [None] * 19)


def test_expressions_at_2_hz_keep_their_confidence() -> None:
    people, events = People("eyes"), []
    for step in range(60):
        now = START + 500 * MS * step
        events += people.receive("/humans/faces/a/expression", Message(
            header=stamped(now), expression="happy", confidence=1.0), now)
    assert zorvel.replay(events).timeline["valence_confidence"][10:].min() > 0.98  # 0.09 given once each


def test_people_come_go_and_turn_out_to_be_one() -> None:
    people, events = People("eyes", removal=0.3, hold=0.2), []
    for milliseconds, topic, received in (
            (10, "/humans/faces/tracked", Message(ids=["a", "b"])),
            (110, "/humans/persons/ada/face_id", Message(data="b")),   # 2 was ada already
            (110, "/humans/faces/tracked", Message(ids=["b"])),        # a is gone
            (210, "/humans/faces/tracked", Message(ids=["b", "c"])),
            (310, "/humans/persons/ada/face_id", Message(data="c")),   # so is the new face, 3
            (310, "/humans/faces/tracked", Message(ids=["c"])),
            (410, "/humans/persons/bob/alias", Message(data="ada")),   # nobody has seen bob
            (420, "/humans/persons/ada/face_id", Message(data="")),
            (510, "/humans/faces/tracked", Message(ids=["a", "c"])),
            (610, "/humans/voices/tracked", Message(ids=["v"])),       # heard, but by whom?
            (620, "/humans/persons/bob/voice_id", Message(data="v")),
            (1500, "/humans/faces/tracked", Message(ids=["a"])),
            (1600, "/humans/faces/tracked", Message(ids=["a"]))):
        events += people.receive(topic, received, START + milliseconds * MS)
    assert told(events) == [
        ("observation", 100, 1), ("observation", 100, 2),
        ("not_seen", 200, 1), ("observation", 200, 2),
        ("not_seen", 300, 1), ("observation", 300, 2), ("observation", 300, 3),
        ("rename", 400, 3, 2), ("not_seen", 400, 1), ("observation", 400, 2),
        ("remove", 500, 1), ("observation", 500, 2),
        ("observation", 600, 1), ("observation", 600, 2),
        ("observation", 700, 1), ("observation", 700, 2),
        ("not_seen", 800, 1), ("observation", 800, 2),
        ("not_seen", 900, 1), ("not_seen", 900, 2), ("not_seen", 1000, 1), ("not_seen", 1000, 2),
        ("remove", 1100, 1), ("not_seen", 1100, 2), ("remove", 1200, 2),
        ("observation", 1600, 1)]


def test_a_gaze_that_copies_the_head_is_none() -> None:
    copied = {"auto": [], "always": list(range(8)), "never": []}
    for use, degrees, given in (
            ("auto", [0.5] * 8, copied["auto"]), ("always", [0.5] * 8, copied["always"]),
            ("never", [20.0] * 8, copied["never"]), ("auto", [0.0] * 8, []),
            # A gaze that meets the head's direction now and then is one; after three cycles it is not.
            ("auto", [0.5, 20.0, 0.5, 0.5, 1.5, 0.5, 0.5, 0.5], [1, 2, 3, 4, 5, 6])):
        people, seen = People("eyes", gaze=use), []  # type: ignore[arg-type]
        for step, aside in enumerate([*degrees, 0.0]):
            turned = product(quaternion(aside, 0, 0), OPTICAL if degrees[0] else AHEAD)
            stamp = START + 100 * MS * step + MS
            seen += people.receive("/tf", Message(transforms=[
                *face(stamp).transforms,
                *frames(stamp, ("face_a", "gaze_a", (0.0, 0.0, 0.0), turned)).transforms]), stamp)
        assert [step for step, event in enumerate(seen) if event.fields and event.fields.gaze] == given


def test_a_pose_is_composed_for_the_time_of_its_picture() -> None:
    people = People("eyes")
    taken = START + 50 * MS
    # The neck turns to the left, 40 degrees in 0.1 s: 20 when the picture is taken. Somebody ahead of
    # the camera who looks back along its axis is seen from there; from the eyes, straight to them.
    for milliseconds, turn in ((0, 0), (100, 40), (900, 0)):
        people.receive("/tf", frames(START + milliseconds * MS, ("eyes", "neck", (0.0, 0.0, 0.0),
                                                                 quaternion(turn, 0, 0))), taken)
    people.receive("/tf", frames(taken, ("neck", "face_a", (1.0, -1.0, 0.0), BACK)), taken)
    event, = people.advance(START + 100 * MS)
    # At 45 degrees to the right of the neck's axis, passing the robot on the person's right.
    assert event.fields is not None and event.fields.head_posture is not None
    assert event.fields.head_posture.value == pytest.approx((-45, 0, 0), abs=1e-4)
    assert event.fields.distance is not None
    assert event.fields.distance.value == pytest.approx(math.sqrt(2))
    # A second beyond what is known of the neck, nothing is.
    late = START + 2500 * MS
    people.receive("/tf", face(late, "b", parent="neck"), late)
    assert not any(event.fields and event.fields.head_posture for event in people.advance(late + 100 * MS))
    assert people.left_out == {"cycles with a pose in a frame that nothing connects with the robot's": 1}


def test_what_is_not_used_is_counted() -> None:
    people, now = People("eyes"), START
    late = [("/tf", face(START - 8_000_000_000, "z"))]  # a clock of its own: counts from its receipt
    for topic, received in (
            *late, ("/tf", frames(now, ("eyes", "face_b", (1, 0, 0), (0, 0, 0, 0)))),
            ("/tf", frames(now, ("eyes", "face_c", (0.0, 0.0, 0.0), BACK))),
            ("/tf", frames(now, ("eyes", "face_d", (NAN, 0, 0), BACK))),
            ("/tf_static", frames(now, ("base", "face_link", (1.0, 0.0, 0.0), BACK))),
            ("/humans/faces/z/facs", Message(intensity=by_code(ROW), confidence=by_code({12: 1.0}))),
            ("/humans/faces/z/expression", Message(expression="bored", confidence=1.0)),
            ("/humans/faces/z/landmarks", Message(landmarks=[], width=1, height=1)),
            ("/humans/faces/z/roi", Message()), ("/gaze", Message(sender="", receiver="ada"))):
        people.receive(topic, received, now)
    events = people.advance(START + 100 * MS)
    assert len(events) == 4
    readings = [event.fields.head_posture for event in events if event.fields is not None]
    assert [reading and reading.time for reading in readings] == [START, None, None, None]
    assert sum(people.left_out.values()) == 10, people.left_out
    with pytest.raises(ValueError):
        People("eyes", cycle=0.0)


@pytest.mark.parametrize("start", [0, 10**9, 10**12, 10**15, START, -10**17])
def test_the_clock_of_a_simulation_may_begin_at_0(start: int) -> None:
    people = People("eyes")
    people.receive("/tf", face(start + 150 * MS), start + 150 * MS)
    event, = people.advance(start + 200 * MS)
    assert event.fields is not None and event.fields.distance is not None
    assert (event.time, event.fields.distance.time) == (start + 200 * MS, start + 150 * MS)


def test_examples_of_the_documentation() -> None:
    assert doctest.testmod(rep155) == (0, 4)
