"""The mapping between REP-155 and zorvel. All expected numbers are worked by hand."""

import doctest
import importlib
import math
import pkgutil
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


START, MS = 1_700_000_000_000_000_000, 1_000_000
BACK, AHEAD = (0.0, 0.0, 1.0, 0.0), (0.0, 0.0, 0.0, 1.0)  # who looks back along x
OPTICAL = (-0.5, 0.5, -0.5, 0.5)  # z where x was
# What each message has in the definitions of hri_msgs. In 0.6.0 some had no header.
FIELDS = {"IdsList": "ids", "Expression": "expression valence arousal confidence",
          "FacialActionUnits": "intensity confidence", "Gaze": "sender receiver",
          "FacialLandmarks": "landmarks height width",
          "SoftBiometrics": "age age_confidence gender gender_confidence"}


def stamped(nanoseconds: int, version: str = "2.0.0", frame: str = "") -> Message:
    """A header of ROS 1 or of ROS 2."""
    names = ("sec", "nanosec") if version == "2.0.0" else ("secs", "nsecs")
    return Message(stamp=Message(**dict(zip(names, divmod(nanoseconds, 10**9)))), frame_id=frame)


def message(version: str, kind: str, stamp: int, **values: Any) -> Message:
    made = Message(**{name: values.get(name, []) for name in FIELDS[kind].split()})
    if version != "0.6.0" or kind in ("IdsList", "FacialActionUnits"):
        made.header = stamped(stamp, version)
    return made


def frames(stamp: int, *moved: tuple[str, str, Any, Any], version: str = "2.0.0") -> Message:
    return Message(transforms=[
        Message(header=stamped(stamp, version, parent), child_frame_id=child,
                transform=Message(translation=Message(**dict(zip("xyz", position))),
                                  rotation=Message(**dict(zip("xyzw", turned)))))
        for parent, child, position, turned in moved])


@pytest.mark.parametrize("version", ["0.6.0", "0.9.0", "2.0.0"])
def test_messages_of_each_version_become_fields(version: str) -> None:
    people, measured, now = People("eyes", gender_true=Gender.MALE), START + 20 * MS, START + 50 * MS
    of_face, point = "/humans/faces/a/", Message(x=0.5, y=0.25, c=0.75)
    named = message(version, "Expression", measured, confidence=0.5,
                    expression=1 if version == "0.6.0" else "happy")
    for topic, received in (
            # The camera's picture has z forward; the gaze is 20 degrees beside the head's direction.
            ("/tf_static", frames(0, ("eyes", "optical", (0.0, 0.0, 0.0), OPTICAL), version=version)),
            ("/humans/faces/tracked", message(version, "IdsList", measured, ids=["a"])),
            ("/tf", frames(measured, ("optical", "face_a", (0.0, 0.0, 2.0), (0.5, 0.5, -0.5, 0.5)),
                           ("face_a", "gaze_a", (0.0, 0.0, 0.0), product(quaternion(20, 0, 0), OPTICAL)),
                           version=version)),
            (of_face + "facs", message(
                version, "FacialActionUnits", measured, confidence=by_code(dict.fromkeys(ROW, 0.5)),
                intensity=by_code({code: 0.2 * unit for code, unit in ROW.items()}))),
            (of_face + "landmarks", message(version, "FacialLandmarks", measured, width=640, height=480,
                                            landmarks=[point] * 70)),
            (of_face + "softbiometrics", message(version, "SoftBiometrics", measured, age=34, gender=2,
                                                 age_confidence=0.5, gender_confidence=0.25)),
            ("/humans/persons/ada/face_id", Message(data="a"))):
        assert people.receive(topic, received, now) == []
    first, = people.advance(START + 100 * MS)
    # A name takes the place of the units; an empty id is the robot's.
    for topic, received in ((of_face + "expression", named), (
            "/anywhere", message(version, "Gaze", measured, sender="ada",
                                 receiver="bob" if version == "0.9.0" else ""))):
        people.receive(topic, received, START + 100 * MS)
    second, = people.advance(START + 200 * MS)
    assert not people.left_out and first.fields is not None and second.fields is not None
    # A message without a header counts from its receipt. A smile is given again.
    known = now if version == "0.6.0" else measured
    for reading, value, time in (
            (first.fields.head_posture, (0, 0, 0), measured), (first.fields.distance, 2, measured),
            (first.fields.gaze, (-20, 0), measured), (first.fields.smile, (0.5, 0.5), measured),
            (second.fields.smile, (0.5, 0.5), measured + 1), (second.fields.distance, 2, measured),
            (first.fields.age, (34, 0.5), known), (first.fields.gender, (True, 0.25), known)):
        assert reading is not None and reading.time == time
        assert reading.value == pytest.approx(value, abs=1e-5)
    points, shown = first.fields.facial_points, [first.fields.expressions, second.fields.expressions]
    assert points is not None and points.value[11] == (320, 120, 0.75)
    assert [faces and faces.value["joy"] for faces in shown] == [(0.75, 0.5), (1, 0.5)]
    assert second.fields.looking_at_robot is not None
    assert second.fields.looking_at_robot.value == (version != "0.9.0")


def test_the_last_of_a_slow_topic_is_given_until_it_is_too_old() -> None:
    people, events = People("eyes", hold=0.5), []
    shown = Message(header=stamped(0), expression="happy", confidence=1.0)
    for step in range(60):
        now = START + 100 * MS * step + MS
        if step % 5 == 0 and step < 30:
            events += people.receive("/humans/faces/a/expression", shown, now)
        events += people.receive("/humans/faces/tracked", Message(ids=["a"]), now)
    given = [event.fields.expressions for event in events if event.fields is not None]
    assert [reading and (reading.time - START) // MS for reading in given] == [
        500 * (step // 5) + 1 if step < 30 else None for step in range(59)]
    # Once in five cycles, they would come to a confidence of 0.09.
    assert zorvel.replay(events).timeline["valence_confidence"][10:30].min() > 0.98


def test_people_come_go_and_turn_out_to_be_one() -> None:
    people, events = People("eyes", removal=0.3, hold=0.2), []
    for milliseconds, topic, received in (
            (10, "faces/tracked", ["a", "b"]), (110, "persons/ada/face_id", "b"),  # 2 was ada already
            (110, "faces/tracked", ["b"]), (210, "faces/tracked", ["b", "c"]),     # c waits for a person
            (310, "faces/tracked", ["b", "c"]), (410, "faces/tracked", ["b", "c"]),
            (510, "persons/ada/face_id", "c"), (510, "faces/tracked", ["c"]),      # in vain, but for now
            (610, "persons/bob/alias", "ada"), (620, "persons/ada/face_id", ""),   # nobody has seen bob
            (710, "faces/tracked", ["a", "c"]),
            (810, "voices/tracked", ["v"]), (820, "persons/bob/voice_id", "v"),    # who is heard
            (1700, "faces/tracked", ["a"]), (1800, "faces/tracked", ["a"])):
        events += people.advance(START + milliseconds * MS - 1)  # when a timer calls makes no difference
        events += people.receive(f"/humans/{topic}", Message(ids=received, data=received),
                                 START + milliseconds * MS)
    told: dict[int, str] = {}
    for event in events:
        step = (event.time - START) // (100 * MS)
        told[step] = told.get(step, "") + f" {event.kind} {event.person}{event.to or ''}"
    seen, away = " observation {}".format, " not_seen {}".format
    assert told == {
        1: seen(1) + seen(2), 2: away(1) + seen(2), 3: away(1) + seen(2), 4: away(1) + seen(2),
        5: " remove 1" + seen(2) + seen(3), 6: " rename 32" + seen(2), 7: seen(2), 8: seen(1) + seen(2),
        9: seen(1) + seen(2), 10: away(1) + seen(2), 11: away(1) + away(2), 12: away(1) + away(2),
        13: " remove 1" + away(2), 14: " remove 2", 18: seen(1)}
    assert people.ids() == {1: ["face a"], 2: ["ada", "bob"]}


@pytest.mark.parametrize("use, degrees, given", [
    ("auto", [0.5] * 8, []), ("always", [0.5] * 8, list(range(8))), ("never", [20.0] * 8, []),
    ("auto", [0.0] * 8, []),  # with x forward, as the head
    # A gaze that meets the head's direction now and then is one; after three cycles it is not.
    ("auto", [0.5, 20.0, 0.5, 0.5, 1.5, 0.5, 0.5, 0.5], [1, 2, 3, 4, 5, 6])])
def test_a_gaze_that_copies_the_head_is_none(use: Any, degrees: list[float], given: list[int]) -> None:
    people, events = People("eyes", gaze=use), []
    for step, aside in enumerate([*degrees, 0.0]):
        stamp = START + 100 * MS * step + MS
        turned = product(quaternion(aside, 0, 0), OPTICAL) if degrees[0] else AHEAD
        events += people.receive("/tf", frames(stamp, ("eyes", "face_a", (2.0, 0.0, 0.0), BACK),
                                               ("face_a", "gaze_a", (0.0, 0.0, 0.0), turned)), stamp)
    assert [step for step, event in enumerate(events) if event.fields and event.fields.gaze] == given


def test_a_pose_is_composed_for_the_time_of_its_picture() -> None:
    people, taken = People("eyes"), START + 50 * MS
    # A neck 1 m ahead turns to the left, 40 degrees in 0.1 s: 20 when the picture is taken. Somebody 1 m
    # ahead of it is seen from the eyes in half that direction, and looks to the neck.
    for milliseconds, turn in ((100, 40), (900, 0), (0, 0)):
        people.receive("/tf", frames(START + milliseconds * MS, (
            "eyes", "neck", (1.0, 0.0, 0.0), quaternion(turn, 0, 0))), taken)
    # A voice that ends takes no head from the body of the same id.
    people.receive("/humans/voices/tracked", Message(ids=["k"]), START - 950 * MS)
    for topic, received in (
            ("/humans/bodies/tracked", Message(ids=["k"])), ("/humans/persons/bob/body_id", Message(data="k")),
            ("/tf", frames(taken, ("neck", "face_a", (1.0, 0.0, 0.0), BACK),
                           ("eyes", "head_k", (0, 3, 4), AHEAD)))):
        people.receive(topic, received, taken)
    event, body = people.advance(START + 100 * MS)
    assert body.fields is not None and body.fields.distance is not None and body.fields.distance.value == 5
    assert event.fields is not None and event.fields.head_posture is not None
    assert event.fields.head_posture.value == pytest.approx((-10, 0, 0), abs=1e-4)
    assert event.fields.distance is not None
    assert event.fields.distance.value == pytest.approx(2 * math.cos(math.radians(10)))
    # A second beyond what is known of the neck, nothing is.
    late = START + 2500 * MS
    people.receive("/tf", frames(late, ("neck", "face_b", (1.0, 0.0, 0.0), BACK)), late)
    assert not any(event.fields and event.fields.head_posture for event in people.advance(late + 100 * MS))
    assert people.left_out == {"cycles with a pose in a frame that nothing connects with the robot's": 1}


@pytest.mark.parametrize("start", [0, 10**9, 10**12, 10**15, START, -10**17])  # as simulations have it, too
def test_what_is_not_used_is_counted(start: int) -> None:
    people, now = People("eyes"), start + 50 * MS
    for topic, received in (
            # A clock that is ahead or of its own: both count from their receipt.
            ("/tf", frames(now + 100 * MS, ("eyes", "face_y", (2.0, 0.0, 0.0), BACK))),
            ("/tf", frames(now + 8000 * MS, ("eyes", "face_z", (2.0, 0.0, 0.0), BACK))),
            ("/tf", frames(now, ("eyes", "face_b", (1, 0, 0), (0, 0, 0, 0)))),
            ("/tf_static", frames(now, ("eyes", "face_link", (1.0, 0.0, 0.0), BACK))),
            ("/tf", frames(now, ("face_link", "face_c", (0.0, 0.0, 0.0), BACK))),
            ("/tf", frames(now, ("eyes", "face_d", (NAN, 0, 0), BACK))),
            ("/humans/faces/z/facs", Message(intensity=by_code(ROW), confidence=by_code({12: 1.0}))),
            *[("/humans/faces/z/expression", Message(expression=shown, confidence=1.0))
              for shown in ("happy", "bored")],
            ("/humans/faces/z/landmarks", Message(landmarks=[], width=1, height=1)),
            ("/humans/faces/z/roi", Message()), ("/gaze", Message(sender="", receiver="ada"))):
        people.receive(topic, received, now)
    seen = [event.fields for event in people.advance(now + 50 * MS) if event.fields]
    assert [fields.head_posture and fields.head_posture.time for fields in seen] == [now] * 2 + [None] * 3
    assert not any(fields.expressions for fields in seen)
    assert sum(people.left_out.values()) == 10, people.left_out
    with pytest.raises(ValueError):
        People("eyes", cycle=0.0)


def test_examples_of_the_documentation() -> None:
    modules = [importlib.import_module(f"zorvel.rep155.{found.name}")
               for found in pkgutil.iter_modules(zorvel.rep155.__path__)]
    assert [sum(counts) for counts in zip(*map(doctest.testmod, modules))] == [0, 4]
