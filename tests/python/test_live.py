"""The live objects: what goes in, what comes out, who keeps whom, and which threads wait."""

from __future__ import annotations

import datetime
import gc
import pickle
import subprocess
import sys
import threading
import weakref
from collections.abc import Callable
from time import sleep, time_ns
from typing import Any

import numpy
import pytest

import zorvel

NANOSECONDS = 1_704_067_200 * 10**9
MOMENT = datetime.datetime(2024, 1, 1, tzinfo=datetime.timezone.utc)


def smiling() -> zorvel.Observation:
    return zorvel.Observation(smile=(0.8, 0.9), expressions={"joy": (0.9, 0.8)},
                              head_posture=(3.5, -1.0, 0.0))


def numbers(state: zorvel.PersonState) -> tuple[Any, ...]:
    return (*state.valence, state.mood, *state.cycle_mood, *state.attention, *state.ease)


def test_a_restored_graph_goes_on_with_the_same_numbers() -> None:
    with zorvel.SimulatedClock(NANOSECONDS) as clock:
        graph, other = zorvel.SocialGraph(), zorvel.SocialGraph()
        for person in (1, 2, 1):
            graph.update(person, smiling())
            clock.advance(0.5)
        text = graph.save()
        other.update(1, zorvel.Observation(touch_emotion=-1))
        before = numbers(other.persons()[1])
        for bad in (text.replace('"headHeight":', '"headHeight":1', 2), text[:-9], "x",
                    text[:text.rindex('{"time"')], text + '{"time":1,"event":"movement"}'):
            with pytest.raises(ValueError, match="state: line [1234]: "):
                other.restore(bad)
        assert numbers(other.persons()[1]) == before and list(other.persons()) == [1]
        other.restore(text)
        copied = pickle.loads(pickle.dumps(graph))
        clock.advance(0.5)
        for person in (1, 2):
            states = [numbers(each.update(person, zorvel.Observation(gaze=(30, 0))))
                      for each in (graph, other, copied)]
            assert states[0] == states[1] == states[2]
        with pytest.raises(RuntimeError, match="must not use the graph"):
            graph.update(1, lambda _: graph.save())


@pytest.mark.parametrize("time", [
    NANOSECONDS, float(NANOSECONDS // 10**9), MOMENT, numpy.int64(NANOSECONDS),
    MOMENT.astimezone(datetime.timezone(datetime.timedelta(hours=-3))),
    numpy.datetime64("2024-01-01"), numpy.datetime64("2024-01-01T00:00:00.000000000")])
def test_a_reading_has_the_time_it_is_given(time: zorvel.Time) -> None:
    observation = zorvel.Observation(time=time, height=1.5, gaze=zorvel.Reading((1, 2), 7))
    assert observation.time == NANOSECONDS
    assert observation.height == zorvel.Reading(1.5, NANOSECONDS)
    assert observation.gaze == zorvel.Reading((1.0, 2.0), 7)
    with zorvel.SimulatedClock(time) as clock:
        observation = zorvel.Observation(height=1)
        clock.advance(datetime.timedelta(milliseconds=2))
        observation.distance = numpy.float32(0.1)
        clock.advance(0.5)
        clock.advance(3_000_000)
        with pytest.raises(ValueError, match="step: 3 would be 3 ns; seconds are a float"):
            clock.advance(3)
        assert zorvel.now() == clock.time == NANOSECONDS + 505_000_000
    assert time_ns() <= zorvel.now() <= time_ns()
    assert observation.height == zorvel.Reading(1.0, NANOSECONDS)
    assert observation.distance == zorvel.Reading(float(numpy.float32(0.1)),
                                                  NANOSECONDS + 2_000_000)


def test_every_field_keeps_its_value() -> None:
    values: dict[str, Any] = {
        "looking_at_robot": True, "height": 1.5, "distance": 0.75, "gaze": (1.5, -2.0),
        "smile": (0.5, 0.25), "head_posture": (1.0, -2.0, 3.0), "gender": (False, 0.5),
        "age": (4294967295, 0.25), "face_detected": False, "asr_emotion": -0.5,
        "touch_emotion": -2147483648, "context_emotion": (-1, 2.5),
        "facial_points": tuple((float(n), -float(n), n / 16) for n in range(12)),
        "expressions": {name: (n / 8, 1.0) for n, name in enumerate(
            ["calm", "anger", "joy", "sorrow", "laughter", "excitement", "surprise"])},
        "voice_emotion": {name: (n / 8, 1.0) for n, name in enumerate(
            ["calm", "anger", "joy", "sorrow", "laughter", "excitement"])}}
    observation = zorvel.Observation(**values)
    for name, value in values.items():
        assert getattr(observation, name).value == value
        setattr(observation, name, None)
        assert getattr(observation, name) is None
    observation.facial_points = numpy.eye(12, 3)
    observation.facial_points = {3: (1, 2, 0.5)}
    assert observation.facial_points is not None
    assert observation.facial_points.value[3:5] == ((1.0, 2.0, 0.5), (0.0, 0.0, 0.0))


@pytest.mark.parametrize("field, value, error, words", [
    ("smile", 0.5, TypeError, "smile: must be (value, confidence)"),
    ("smile", "ab", TypeError, "smile: must be (value, confidence)"),
    ("head_posture", (1, 2), TypeError, "head_posture: must be (yaw, pitch, roll)"),
    ("smile", (0.5, "x"), TypeError, "smile.confidence: must be a number, not str"),
    ("smile", (float("nan"), 1), ValueError, "smile.value: is not a number"),
    ("distance", 1e39, ValueError, "distance: is beyond the range of a 32-bit float"),
    ("distance", True, TypeError, "distance: must be a number, not bool"),
    ("touch_emotion", 1.5, TypeError, "touch_emotion: must be an integer, not float"),
    ("touch_emotion", 2**31, ValueError, "touch_emotion: must be from -2147483648"),
    ("age", (-1, 1), ValueError, "age.value: must be from 0 to 4294967295"),
    ("looking_at_robot", 1, TypeError, "looking_at_robot: must be True or False, not int"),
    ("expressions", (1, 1), TypeError, "expressions: must be a dict"),
    ("expressions", {"glee": (1, 1)}, ValueError, "expressions: has no 'glee'"),
    ("height", 10**400, ValueError, "height: is beyond the range"),
    ("height", numpy.array([1.0, 2.0]), TypeError, "height: must be a number, not numpy.ndarray"),
    ("smile", bytearray(b"ab"), TypeError, "smile: must be (value, confidence)"),
    ("expressions", {"joy": (1, None)}, TypeError, "expressions.joy.confidence: must be"),
    ("voice_emotion", {"surprise": (1, 1)}, ValueError, "voice_emotion: has no 'surprise'"),
    ("facial_points", [(1, 1, 1)], TypeError, "facial_points: must be a dict by point, or 12"),
    ("facial_points", {12: (1, 1, 1)}, ValueError, "facial_points[12]: a point is from 0 to 11"),
    ("smiles", (1, 1), TypeError, "an observation has no smiles"),
    ("time", datetime.datetime(2024, 1, 1), ValueError, "time: the datetime has no time zone"),
    ("time", 1_704_067_200, ValueError, "time: 1704067200 is a date in seconds"),
    ("time", 1_704_067_200_000, ValueError, "is a date in milliseconds"),
    ("time", numpy.datetime64("NaT"), ValueError, "time: is not a time"),
    ("time", numpy.datetime64("2300-01-01"), ValueError, "time: is out of range"),
    ("time", numpy.float32(1.5), TypeError, "time: must be a datetime"),
    ("time", float("inf"), ValueError, "time: is out of range"),
    ("time", "2024", TypeError, "time: must be a datetime"),
])
def test_what_is_wrong_is_named(field: str, value: object, error: type[Exception],
                                words: str) -> None:
    with pytest.raises(error) as raised:
        zorvel.Observation(**{field: value})  # type: ignore[arg-type]
    assert words in str(raised.value)


def test_a_state_has_what_moved_it_and_outlives_its_graph() -> None:
    seen: list[zorvel.Force] = []
    graph = zorvel.SocialGraph()
    with zorvel.SimulatedClock(NANOSECONDS):
        state = graph.update(1, smiling(), forces=True, observer=seen.append)
    assert state.forces is not None and len(state.forces) == len(seen) > 5
    valence = 0.0
    for force, same in zip(state.forces, seen):
        assert repr(force) == repr(same)
        if force.quantity == "valence":
            assert force.before == valence
            valence = force.after
    assert valence == state.valence.value > 0.2 and state.mood == 1
    before = numbers(state)
    assert graph.not_seen(1).forces is None
    assert graph.read(1) is not None and graph.read(2) is None
    assert list(graph.persons()) == [1]
    graph.remove(1)
    graph.remove(1)
    assert graph.persons() == {}
    del graph
    gc.collect()
    assert numbers(state) == before and state.forces[0].after == seen[0].after


def test_steps_in_a_callback_are_those_of_the_graph() -> None:
    kept: list[zorvel.Person] = []

    def steps(person: zorvel.Person) -> None:
        kept.append(person)
        person.update(smiling())
        person.not_seen()
        assert numbers(person.state) != (0.0,) * 9

    one, other = zorvel.SocialGraph(), zorvel.SocialGraph()
    with zorvel.SimulatedClock(NANOSECONDS):
        state = one.update(7, steps)
        other.update(7, smiling())
        assert numbers(other.not_seen(7)) == numbers(state)
    with pytest.raises(RuntimeError, match="only in the callback"):
        kept[0].state


def test_one_person_under_two_numbers() -> None:
    graph, recorder, other = zorvel.SocialGraph(), zorvel.Recorder(), zorvel.Recorder()
    other.start("scope")
    graph.update(3, smiling())
    graph.rename(3, 1)
    other.update(graph.not_seen(4))
    graph.merge(1, 4)
    recorder.merge(other)
    assert graph.persons()[4].valence.value > 0.5 and len(recorder.stop("scope")[1]) == 1


def test_what_a_callback_raises_is_passed_on_as_it_is() -> None:
    class Mine(Exception):
        pass

    def fail(_: object) -> None:
        raise Mine

    graph = zorvel.SocialGraph()

    def fail_late(person: zorvel.Person) -> None:
        person.update(smiling())
        fail(person)

    for what, observer in ((fail, None), (fail_late, None), (smiling(), fail)):
        with pytest.raises(Mine):
            graph.update(1, what, observer=observer)  # type: ignore[call-overload]
    with pytest.raises(Mine):
        graph.not_seen(1, observer=fail)
    with pytest.raises(TypeError, match="observer: must be callable"):
        graph.update(1, smiling(), observer=1)  # type: ignore[call-overload]
    with pytest.raises(ValueError, match="person: must be from -2147483648"):
        graph.not_seen(2**31)
    # The lock is free, and the observer gone.
    assert graph.update(1, smiling()).person == 1


def test_a_callback_that_would_wait_for_itself_is_told_so() -> None:
    graph = zorvel.SocialGraph()
    lent: list[zorvel.Person] = []

    def change(_: object) -> None:
        lent[0].update(smiling())

    def observed(person: zorvel.Person) -> None:
        lent.append(person)
        person.update(smiling())

    for use in (lambda _: graph.read(1), lambda _: graph.persons(), lambda _: graph.remove(1),
                lambda _: graph.rename(1, 2), lambda _: graph.merge(2, 1),
                lambda _: graph.update(1, smiling())):
        with pytest.raises(RuntimeError, match="must not use the graph"):
            graph.update(1, use)
    with pytest.raises(RuntimeError, match="must not change the person that it observes"):
        graph.update(1, observed, observer=change)

    def elsewhere(person: zorvel.Person) -> None:
        def look() -> None:
            with pytest.raises(RuntimeError):
                person.state
            refused.append(person)

        thread = threading.Thread(target=look)
        thread.start()
        thread.join(10)

    refused: list[zorvel.Person] = []
    graph.update(1, elsewhere)
    assert refused


def test_threads_may_go_on_until_the_end() -> None:
    code = """if True:
        import atexit, sys, threading, time, zorvel
        atexit.register(print, "of the user")
        graph, inside = zorvel.SocialGraph(), threading.Event()
        def rest(_=None):
            inside.set()
            time.sleep(0.001)
        def events():
            while True:
                rest()
                yield zorvel.Event.not_seen(0, 1)
        def work(seen=zorvel.Observation(height=1.0)):
            while True:
                %s
        for _ in range(2):
            threading.Thread(target=work, daemon=True).start()
        inside.wait()
        print("of the program", end=", ")"""
    for work in ("inside.set(); graph.update(1, seen)", "graph.update(1, rest)",
                 "graph.update(1, seen, observer=rest)", "zorvel.replay(events())",
                 "zorvel.replay([]); inside.set()"):
        for _ in range(2):
            ended = subprocess.run([sys.executable, "-c", code % work], timeout=60, text=True,
                                   capture_output=True)
            assert (ended.returncode, ended.stdout, ended.stderr) == (
                0, "of the program, of the user\n", ""), work


def test_an_object_that_was_not_initialized_is_of_no_use() -> None:
    class Mine(zorvel.SocialGraph):
        def __init__(self) -> None:
            self.persons()

    clock = zorvel.SimulatedClock
    uses: list[Callable[[], object]] = [
        Mine, lambda: zorvel.Observation.__new__(zorvel.Observation).smile,
        lambda: zorvel.PersonState.__new__(zorvel.PersonState).valence,
        lambda: zorvel.replay([zorvel.Event.__new__(zorvel.Event)]),
        lambda: zorvel.Recorder.__new__(zorvel.Recorder).stop("game"),
        lambda: clock.__new__(clock).__enter__()]
    for use in uses:
        with pytest.raises(TypeError, match="__init__ was not called"):
            use()


def test_a_value_that_changes_its_container_is_harmless() -> None:
    class Hostile:
        def __float__(self) -> float:
            container.clear()
            return 0.5

    container: list[Any] = [Hostile(), 1.0]
    assert zorvel.Observation(smile=container).smile is not None
    assert (zorvel.Reading(1.0, 5) == None) is False  # noqa: E711


def test_nothing_is_kept_longer_than_its_use() -> None:
    class Callback:
        def __call__(self, _: object) -> None:
            gc.collect()  # the graph lives on, although only this call holds it

    callback = Callback()
    zorvel.SocialGraph().update(1, callback)
    zorvel.SocialGraph().update(1, smiling(), observer=callback)
    gone = weakref.ref(callback)
    del callback
    gc.collect()
    assert gone() is None


def test_threads_with_graphs_of_their_own_run_at_once() -> None:
    # Each waits, inside its update, for the other to be inside its own.
    both = threading.Barrier(2)
    failed: list[BaseException] = []

    def work() -> None:
        try:
            zorvel.SocialGraph().update(1, lambda person: both.wait(10))
        except BaseException as error:
            failed.append(error)

    threads = [threading.Thread(target=work) for _ in range(2)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join(20)
    assert not failed

    # One that waits for a graph's lock lets the holder of the lock go on.
    graph = zorvel.SocialGraph()
    inside = threading.Event()

    def hold(person: zorvel.Person) -> None:
        inside.set()
        sleep(0.2)
        person.not_seen()

    holder = threading.Thread(target=graph.update, args=(1, hold))
    holder.start()
    assert inside.wait(10)
    graph.not_seen(1)
    holder.join(10)
    assert not holder.is_alive()


def test_a_clock_belongs_to_its_thread_and_to_its_block() -> None:
    outer, inner = zorvel.SimulatedClock(1), zorvel.SimulatedClock(2)
    others: list[int] = []
    with outer:
        with inner:
            assert zorvel.now() == 2
            with pytest.raises(RuntimeError, match="in reverse order"):
                outer.__exit__(None, None, None)
            thread = threading.Thread(target=lambda: others.append(zorvel.now()))
            thread.start()
            thread.join(10)
        assert zorvel.now() == 1
        with outer:
            outer.set(5)
        assert zorvel.now() == 5
    assert others[0] > NANOSECONDS
    with pytest.raises(RuntimeError):
        outer.__exit__(None, None, None)


def test_scopes_have_labels_and_the_room_its_levels() -> None:
    graph, recorder = zorvel.SocialGraph(), zorvel.Recorder()
    with zorvel.SimulatedClock(NANOSECONDS) as clock:
        with recorder.scope("game") as game, recorder.scope("start", samples=2) as start:
            for _ in range(20):
                clock.advance(0.1)
                state = graph.update(1, smiling())
                recorder.update(state)
    assert game.label == "positive" and len(game.samples) == 20
    assert start.label == "error" and not start.samples  # dropped by its third update
    last = game.samples[-1]
    assert (last.time, *last.valence) == (NANOSECONDS + 2 * 10**9, *state.valence)
    assert recorder.stop("game") == ("error", [])

    room = zorvel.Ambiance()
    room.movement()
    room.update(0.05)
    # A fifth of the way to 0.5, and 0.04 for the movement.
    assert room.agitation == pytest.approx(0.14) and room.calm == pytest.approx(0.86)
    with pytest.raises(ValueError, match="activity: is not a number"):
        room.update(float("nan"))
