"""Whole recordings: the same numbers, bytes and words as the tool, whose path is in ZORVEL."""

from __future__ import annotations

import concurrent.futures
import copy
import csv
import functools
import io
import json
import math
import multiprocessing
import os
import pathlib
import pickle
import signal
import subprocess
import sys
import threading
from collections.abc import Callable, Iterable, Iterator
from typing import Any

import numpy
import pandas
import pytest

import zorvel

TOOL = os.environ["ZORVEL"]
ROOT = pathlib.Path(__file__).parents[2]
RECORDINGS = sorted((ROOT / "fuzz/corpus/recording").glob("*.jsonl"))
FAILING = ROOT / "fuzz/corpus/recording/cut_off_utf8.jsonl"
OPENFACE = """frame,face_id,timestamp,confidence,success,pose_Rx,pose_Ry,pose_Rz,AU12_r
1,0,0.0,0.98,1,-0.02,0.12,-0.01,0.5
2,0,0.04,0.9,1,-0.03,0.13,-0.02,1.5
3,0,0.08,0.1,0,0,0,0,0
"""
PYFEAT = "frame,FaceRectX,FaceScore,Pitch,happiness\n0,1,0.9,3,0.8\n1,1,0.9,3,0.7\n"


def tool(*arguments: str | pathlib.Path, check: bool = True) -> str:
    return subprocess.run([TOOL, *arguments], check=check, capture_output=True, text=True,
                          timeout=60).stdout


def same(text: str, value: object) -> bool:
    if isinstance(value, numpy.floating):
        return bool(type(value)(text or "nan") == value or (text in ("", "nan") and math.isnan(value)))
    return text == str(value)


def test_a_replay_has_the_numbers_of_the_tool(scene: pathlib.Path, tmp_path: pathlib.Path) -> None:
    far = tmp_path / "far.jsonl"  # its seconds in nanoseconds take more than the 53 bits of a double
    far.write_text("\n".join(json.dumps({"time": time, "event": "not_seen", "person": 1})
                             for time in (-2**62, *range(17 * 10**17, 18 * 10**17, 10**15 + 7))))
    for recording in [scene, far, *RECORDINGS]:
        folder = tmp_path / recording.stem
        tool("replay", recording, "--forces", "--quiet", "-o", folder, check=False)
        try:
            results = zorvel.replay(recording, forces=True)
        except zorvel.DataError as error:
            results = error.results
        for name in ("timeline", "scopes", "ambiance", "forces"):
            rows = list(csv.DictReader(io.StringIO((folder / f"{name}.csv").read_text(), newline="")))
            table = getattr(results, name)
            assert table.rows == len(rows)
            for column in rows[0] if rows else []:
                for row, value in zip(rows, table[column]):
                    assert same(row[column], value), (recording, name, column)
            assert list(table)[-1] == "seconds" or name in ("timeline", "scopes")
    results = zorvel.replay(scene)
    assert results.forces is None
    start = next(zorvel.read_recording(scene)).time
    assert list(results.timeline["seconds"]) == list((results.timeline["time"] - start) / 1e9)
    frame = results.scopes.to_pandas()
    assert list(frame.columns) == list(results.scopes) and len(frame) == results.scopes.rows


def test_what_is_read_is_written_as_it_was(scene: pathlib.Path, tmp_path: pathlib.Path) -> None:
    for recording in [scene, *RECORDINGS]:
        reader = zorvel.read_recording(recording)
        events: list[zorvel.Event] = []
        try:
            events.extend(reader)
        except zorvel.DataError:
            continue
        copies = [tmp_path / "one.jsonl", tmp_path / "two.jsonl"]
        with zorvel.Recording(copies[0], reader.source, reader.origin) as copy:
            for event in events:
                copy.write(event)
        with zorvel.Recording(copies[1], reader.source, reader.origin) as copy:
            for event in events:
                copy.write(rebuilt(event))
        written = copies[0].read_text()
        assert written == copies[1].read_text() == "".join(
            [written.splitlines(keepends=True)[0], *(event.line for event in events)])
        one = zorvel.replay(recording).timeline
        two = zorvel.replay(zorvel.read_recording(copies[0])).timeline
        three = zorvel.replay(clocked(events)).timeline
        for column in one:
            numpy.testing.assert_array_equal(one[column], two[column])
            if column != "seconds":  # a header says where they count from
                numpy.testing.assert_array_equal(one[column], three[column])
    assert copies[0].read_text().startswith('{"event":"header","version":1')
    assert (tmp_path / "one.jsonl").stat().st_mode & 0o777 == 0o666 & ~umask()


def clocked(events: list[zorvel.Event]) -> Iterator[zorvel.Event]:
    """The events, from a source that has a clock of its own."""
    with zorvel.SimulatedClock(1.0):
        yield from events


def umask() -> int:
    mask = os.umask(0)
    os.umask(mask)
    return mask


def rebuilt(event: zorvel.Event) -> zorvel.Event:
    """The event, made anew of its members."""
    time, person = event.time, event.person
    if event.state is not None:
        return zorvel.Event.restore(time, event.state, person)
    if person is None:
        return (zorvel.Event.movement(time) if event.value is None
                else zorvel.Event.activity(time, event.value))
    if event.fields is not None:
        fields = {name: getattr(event.fields, name) for name in dir(event.fields)
                  if not name.startswith("_")}
        return zorvel.Event.observation(time, person, zorvel.Observation(**fields))
    if event.to is not None:
        return zorvel.Event.rename(time, person, event.to)
    if event.scope is None:
        return {"not_seen": zorvel.Event.not_seen,
                "remove": zorvel.Event.remove}[event.kind](time, person)
    if event.kind == "start_recording":
        return zorvel.Event.start_recording(time, person, event.scope, event.samples)
    return zorvel.Event.stop_recording(time, person, event.scope)


def test_an_unfinished_recording_leaves_no_trace(tmp_path: pathlib.Path) -> None:
    path = tmp_path / "recording.jsonl"
    with pytest.raises(KeyError):
        with zorvel.Recording(path) as recording:
            recording.write(zorvel.Event.movement(0))
            raise KeyError
    recording = zorvel.Recording(path)
    recording.write(zorvel.Event.movement(0))
    del recording
    assert not list(tmp_path.iterdir())
    forked = zorvel.Recording(path)
    if os.fork() == 0:
        del forked
        os._exit(0)
    os.wait()
    forked.write(zorvel.Event.not_seen(0, 1))
    forked.close()
    assert [event.kind for event in zorvel.read_recording(path)] == ["not_seen"]
    closed = zorvel.Recording(path)
    closed.close()
    closed.close()
    with pytest.raises(ValueError, match="is closed"):
        closed.write(zorvel.Event.movement(0))


def test_what_is_wrong_with_a_file_is_said_with_its_place(tmp_path: pathlib.Path) -> None:
    good = '{"time":5,"event":"observation","person":1,"smile":{"value":1,"confidence":1}}\n'
    path = tmp_path / "bad.jsonl"
    for line, key in (('{"time":6,"event":"observation","person":1,"gaze":{"yaw":"x","pitch":0}}', "gaze.yaw"),
                      ('{"time":6,"event":"observation","person":1,"gaze":{"yaw":1}}', "gaze.pitch"),
                      ('{"time":6,"event":"not_seen","person":1,"smiles":0}', "smiles"), ("{", None)):
        path.write_text(good + line)
        with pytest.raises(zorvel.DataError) as raised:
            zorvel.replay(path)
        error = raised.value
        assert (error.file, error.line, error.key) == (str(path), 2, key)
        assert str(error).startswith(f"{path}:2: ") and error.results.timeline.rows == 1
        with pytest.raises(zorvel.DataError):
            list(zorvel.read_recording(path))
    uses: list[Callable[[pathlib.Path], object]] = [zorvel.replay, zorvel.Recording, zorvel.explain]
    for use in uses:
        with pytest.raises(FileNotFoundError) as not_found:
            use(tmp_path / "a/b")
        assert not_found.value.filename.startswith(str(tmp_path))
    table = tmp_path / "faces.csv"
    table.write_text("frame,timestamp,confidence,success,AU12_r\n1,0,0.9,1,much\n")
    with pytest.raises(zorvel.DataError) as raised:
        zorvel.import_openface(table, path)
    assert (raised.value.line, raised.value.key) == (2, "AU12_r")
    assert path.read_text().endswith("{")
    link = tmp_path / "link"
    link.symlink_to(path)
    writers: list[Callable[[pathlib.Path, pathlib.Path], object]] = [
        zorvel.import_openface, zorvel.report, zorvel.cut, functools.partial(zorvel.annotate, FAILING),
        lambda read, written: zorvel.annotate(read, tmp_path / "none.csv", written)]
    for write in writers:
        for output in (path, link):
            with pytest.raises(zorvel.DataError, match="is an input, which would be overwritten"):
                write(path, output)
    assert path.read_text().endswith("{")

    def events() -> Iterator[zorvel.Event]:
        yield zorvel.Event.not_seen(0, 1)
        raise KeyError("of the caller")

    with pytest.raises(KeyError, match="of the caller"):
        zorvel.replay(events())
    with pytest.raises(TypeError, match="must give events, dicts or lines, not int"):
        zorvel.replay([1])  # type: ignore[list-item]
    path.write_text(good + "{")
    with pytest.raises(zorvel.DataError) as raised:
        zorvel.replay(zorvel.read_recording(path))
    assert raised.value.line == 2 and raised.value.results.timeline.rows == 1
    odd = os.fsdecode(os.fsencode(tmp_path) + b"/\xff.jsonl")
    os.rename(path, odd)
    with pytest.raises(zorvel.DataError) as raised:
        zorvel.summarize(odd)
    assert raised.value.file == odd and len(raised.value.results) == 1


def test_any_log_can_be_replayed(scene: pathlib.Path) -> None:
    lines = scene.read_text().splitlines(keepends=True)
    whole = zorvel.replay(scene).timeline
    dicts = [json.loads(line) for line in lines]
    dicts[1]["time"] = numpy.int64(dicts[1]["time"])
    logs: list[Iterable[zorvel.Event | dict[str, Any] | str | bytes]] = [
        lines, (line.encode() for line in lines), dicts, ["\n", *zorvel.read_recording(scene)]]
    for log in logs:
        timeline = zorvel.replay(log).timeline
        for column in whole:
            numpy.testing.assert_array_equal(timeline[column], whole[column])
    film = ROOT / "fuzz/corpus/recording/film.jsonl"  # whose header says what second 0 is
    assert [*zorvel.replay(film.read_text().splitlines()).timeline["seconds"]] == [
        *zorvel.replay(film).timeline["seconds"]]
    with pytest.raises(zorvel.DataError, match="line 3: person") as raised:
        zorvel.replay([lines[1], lines[2], {**dicts[3], "person": "one"}])
    error = raised.value
    assert (error.file, error.line, error.key, error.results.ambiance.rows) == (None, 3, "person", 2)
    with pytest.raises(TypeError, match="not something that a recording holds"):
        zorvel.replay([{"time": object()}])


def test_what_is_read_goes_to_other_processes(scene: pathlib.Path, tmp_path: pathlib.Path) -> None:
    for recording in (scene, ROOT / "fuzz/corpus/recording/every_event_and_field.jsonl"):
        events = list(zorvel.read_recording(recording))
        assert pickle.loads(pickle.dumps(events)) == copy.deepcopy(events) == events
        assert all(one != other for one, other in zip(events, events[1:]))
    assert zorvel.Event.rename(5.0, 1, 2) != zorvel.Event.rename(5.0, 1, 3)
    observation = zorvel.Observation(time=5, gaze=zorvel.Reading((-0.0, 1.0), 1.7))
    clone = copy.copy(observation)
    assert pickle.loads(pickle.dumps(observation)) == clone == observation
    clone.gaze = None
    assert observation.gaze is not None and clone != observation
    state = zorvel.SocialGraph().update(1, observation, forces=True)
    assert state.forces is not None
    for value in (state, state.forces, state.valence, state.cycle_mood):
        assert pickle.loads(pickle.dumps(value)) == copy.deepcopy(value) == value
    assert state != zorvel.SocialGraph().update(1, observation)
    graph = zorvel.SocialGraph()
    restores = []
    for _ in range(2):
        graph.update(1, zorvel.Observation(touch_emotion=1))
        saved = graph.save().splitlines()[0].partition('"state":')[2][:-1]
        restores.append(zorvel.Event.restore(5, saved, 1))
    assert restores[0] == pickle.loads(pickle.dumps(restores[0])) != restores[1]
    tables = [tmp_path / f"{name}.csv" for name in "ab"]
    for table in tables:
        table.write_text(OPENFACE)
    with concurrent.futures.ProcessPoolExecutor(
            2, multiprocessing.get_context("spawn")) as pool:
        one, other = pool.map(zorvel.import_openface, tables, [tmp_path / "a", tmp_path / "b"])
        assert one == other and one.observations == 2
        failed = pool.submit(zorvel.replay, FAILING).exception(60)
    assert isinstance(failed, zorvel.DataError) and failed.line == 1 and failed.results.forces is None


def test_explanations_reports_and_imports_are_those_of_the_tool(
        scene: pathlib.Path, tmp_path: pathlib.Path) -> None:
    cases: list[tuple[list[str], dict[str, Any]]] = [
        ([], {}), (["--at", "12.5"], {"at": 12.5}),
        (["--person", "1", "--from", "3", "--to", "1:00"],
         {"person": 1, "begin": 3.0, "end": 60 * 10**9})]
    for options, chosen in cases:
        lines = [json.loads(line)
                 for line in tool("explain", scene, "--json", *options).splitlines()]
        explained = zorvel.explain(scene, **chosen)
        assert [{"person": person, **why} for person, why in explained.items()] == lines
    with pytest.raises(zorvel.DataError, match="that is after the end"):
        zorvel.explain(scene, at=1000.0)
    assert zorvel.greatest_changes(scene, 2) == [
        json.loads(line) for line in tool("explain", scene, "--json", "--greatest", "2").splitlines()]
    assert zorvel.what_mattered(scene, ["smile", "gaze"]) == [
        json.loads(line) for line in tool("explain", scene, "--json", "--without", "smile",
                                          "--without", "gaze").splitlines()]
    with pytest.raises(ValueError, match='"laugh" is not a field'):
        zorvel.what_mattered(scene, ["laugh"])
    with pytest.raises(ValueError, match="at: excludes begin and end"):
        zorvel.explain(scene, at=1.0, end=2.0)

    tool("report", scene, "--mattered", "-o", tmp_path / "a.html")
    assert zorvel.report(scene, tmp_path / "b.html", mattered=True) == []
    assert (tmp_path / "a.html").read_bytes() == (tmp_path / "b.html").read_bytes()
    tool("report", scene, scene, "--align", "visit", "-o", tmp_path / "a.html")
    assert zorvel.report([scene, scene], tmp_path / "b.html", align="visit") == []
    assert (tmp_path / "a.html").read_bytes() == (tmp_path / "b.html").read_bytes()

    told = json.loads(tool("info", FAILING, "--json", check=False))
    with pytest.raises(zorvel.DataError) as raised:
        zorvel.info(FAILING)
    assert raised.value.results == told and zorvel.info(scene)["error"] is None
    tool("cut", scene, "--from", "3", "--to", "8.5", "--lead-in", "1", "--person", "7", "--every", "0.2",
         "--rename", "1=7", "--keep-state", "-o", tmp_path / "a.jsonl")
    zorvel.cut(scene, tmp_path / "b.jsonl", begin=3.0, end=8.5, lead_in=1.0, person=7, every=0.2,
               rename={1: 7}, keep_state=True)
    assert (tmp_path / "a.jsonl").read_bytes() == (tmp_path / "b.jsonl").read_bytes()
    phases = pandas.DataFrame([[1, "phase", 1.5, 3.0]], columns=["person", "scope", "begin", "end"])
    phases.to_csv(tmp_path / "phases.csv")
    tool("annotate", scene, tmp_path / "phases.csv", "--offset", "1.2", "-o", tmp_path / "a.jsonl")
    for table in (tmp_path / "phases.csv", phases):
        zorvel.annotate(scene, table, tmp_path / "b.jsonl", offset=1.2)
        assert (tmp_path / "a.jsonl").read_bytes() == (tmp_path / "b.jsonl").read_bytes()
    with pytest.raises(zorvel.DataError, match="^data frame:2: ") as raised:
        zorvel.annotate(scene, phases.assign(end=1.0), tmp_path / "b.jsonl")
    assert (raised.value.file, raised.value.line, raised.value.key) == (None, 2, "end")

    faces = tmp_path / "faces.csv"
    faces.write_text(OPENFACE)
    tool("import", "openface", faces, "-o", tmp_path / "a.jsonl", "--mirrored",
         "--start", "2024-01-01T00:00:00Z", "--gap", "1")
    facts = zorvel.import_openface(faces, tmp_path / "b.jsonl", mirrored=True,
                                   start=1_704_067_200.0, gap=1.0)
    assert (facts.rows, facts.observations, facts.seconds) == (3, 2, 0.08)
    assert {field.name: field.observations for field in facts.fields}["smile"] == 2
    assert (tmp_path / "a.jsonl").read_bytes() == (tmp_path / "b.jsonl").read_bytes()
    faces.write_text(PYFEAT)
    tool("import", "pyfeat", faces, "--fps", "25", "-o", tmp_path / "a.jsonl")
    for table in (faces, pandas.read_csv(faces)):
        zorvel.import_pyfeat(table, tmp_path / "b.jsonl", fps=25)
        assert (tmp_path / "a.jsonl").read_bytes() == (tmp_path / "b.jsonl").read_bytes()


def test_a_summary_adds_up(scene: pathlib.Path) -> None:
    results = zorvel.replay(scene)
    timeline, scopes = results.timeline, results.scopes
    rows = zorvel.summarize(scene)
    named = [{"recording": str(scene), **row} for row in rows]
    assert zorvel.summarize([scene, scene]) == named + named
    with pytest.raises(zorvel.DataError, match=r"cut_off_utf8.jsonl:\d+: .*\n/none: No such") as raised:
        zorvel.summarize([FAILING, "/none", scene])
    assert raised.value.results == named
    assert [row["person"] for row in rows] == sorted(set(timeline["person"]))
    unseen = [event.person for event in zorvel.read_recording(scene) if event.kind == "not_seen"]
    for row in rows:
        of = timeline["person"] == row["person"]
        seconds = timeline["seconds"][of]
        assert (row["first"], row["last"], row["cycles"]) == (seconds[0], seconds[-1], of.sum())
        assert row["unseen_cycles"] == unseen.count(row["person"])
        for name in ("valence", "attention", "ease"):
            values = timeline[name][of].astype(float)
            assert row[f"{name}_mean"] == pytest.approx(values.mean())
            assert row[f"{name}_deviation"] == pytest.approx(values.std(ddof=1))
            assert row[f"{name}_confidence"] == pytest.approx(
                timeline[f"{name}_confidence"][of].astype(float).mean())
        for label, mood in (("positive", 1), ("neutral", 0), ("negative", -1)):
            assert row[label] == pytest.approx((timeline["mood"][of] == mood).mean())
            closed = (scopes["person"] == row["person"]) & (scopes["label"] == label)
            assert row[f"{label}_scopes"] == closed.sum()
        assert row["attentive"] == pytest.approx((timeline["attention"][of] > 0.5).mean())
        for name in ("valence", "attention"):
            change, values = row[f"{name}_change"], timeline[name][of].astype(float)
            end = int(numpy.searchsorted(seconds, row[f"{name}_change_at"]))
            assert any(change == pytest.approx(values[end] - values[begin])
                       for begin in range(end) if seconds[end] - seconds[begin] <= 1.0)
            assert abs(change) >= 0.1


def test_a_long_replay_can_be_interrupted(scene: pathlib.Path) -> None:
    def lines() -> Iterator[zorvel.Event]:
        while True:
            yield from zorvel.read_recording(scene)

    timer = threading.Timer(0.3, lambda: os.kill(os.getpid(), signal.SIGINT))
    timer.start()
    with pytest.raises(KeyboardInterrupt):
        zorvel.replay(lines())


def test_importing_the_module_needs_no_other() -> None:
    modules = subprocess.run([sys.executable, "-c", "import sys, zorvel; print(*sys.modules)"],
                             check=True, text=True, capture_output=True, timeout=60).stdout
    assert not {"numpy", "pandas", "matplotlib"} & set(modules.split())
