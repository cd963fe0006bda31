"""Calls the interface for C by what its header declares: LIBRARY is the path of libzorvel."""

import ctypes
import json
import math
import os
import re
import threading

from replay_test import everything
from tool import SECOND, SOURCE, FolderTest, lines, rows, run

HEADER = re.sub("//.*", "", (SOURCE / "include/zv/zorvel.h").read_text())
VALUES = {name: int(value) << int(shift or 0)
          for name, value, shift in re.findall(r"(ZV_\w+) = (\d+)(?: << (\d+))?", HEADER)}
TYPES = {name: getattr(ctypes, re.sub(r"(\d)_t", r"\1", f"c_{name}"))
         for name in ("int32_t", "int64_t", "uint32_t", "uint64_t", "size_t", "float")}
TYPES.update({"zv_code": ctypes.c_int, "zv_field": ctypes.c_int, "const char*": ctypes.c_char_p,
              "void": None})
for struct, text in re.findall(r"typedef struct (\w+) {(.*?)}", HEADER, re.S):
    members = re.findall(r"(\w+) (\w+)(?:\[(\d+)\])?;", text)
    TYPES[struct] = type(struct, (ctypes.Structure,), {"_fields_": [
        (name, TYPES[kind] * int(count) if count else TYPES[kind]) for kind, name, count in members]})
Emotion, Frame, Observation, Point, Report, State = (TYPES["zv_" + name] for name in (
    "emotion", "frame", "observation", "point", "guard_report", "state"))

library = ctypes.CDLL(os.environ["LIBRARY"])
for result, name, text in re.findall(r"^ZV_API (.*?) ?(zv_\w+)\((.*?)\);", HEADER, re.M | re.S):
    function = getattr(library, name)
    function.argtypes = [ctypes.c_void_p if "*" in argument else TYPES[argument.split()[0]]
                         for argument in text.split(",") if argument != "void"]
    function.restype = TYPES.get(result, ctypes.c_void_p)


def new(struct, **members):
    return struct(size=ctypes.sizeof(struct), **members)


def observation(time, **readings):
    seen = new(Observation)
    for key in readings.keys() - {"event", "person"}:
        name = re.sub("[A-Z]", lambda letter: "_" + letter[0].lower(), key)
        seen.fields |= (field := VALUES["ZV_" + name.upper()])
        assert library.zv_field_name(field).decode() == key
        reading = getattr(seen, name)
        for part, value in {"time": time, **readings[key]}.items():
            if part == "points":
                for point in value:
                    reading.points[point.pop("point")] = Point(**point)
            else:
                setattr(reading, part, Emotion(**value) if isinstance(value, dict) else value)
    return seen


class CInterfaceTest(FolderTest):
    def setUp(self):
        super().setUp()
        self.clock = self.create("clock", 0)
        library.zv_clock_use(self.clock)
        self.addCleanup(library.zv_clock_use, None)
        self.graph = self.create("graph")
        self.room = self.create("ambiance")

    def create(self, kind, *arguments):
        handle = getattr(library, f"zv_{kind}_create")(*arguments)
        self.assertIsNotNone(handle, library.zv_error_text())
        self.addCleanup(getattr(library, f"zv_{kind}_destroy"), handle)
        return handle

    def check(self, function, *arguments, code="ZV_OK"):
        pointers = (ctypes.byref(each) if isinstance(each, ctypes.Structure) else each
                    for each in arguments)
        result = getattr(library, "zv_" + function)(*pointers)
        self.assertEqual(result, VALUES[code], library.zv_error_text())

    def test_a_recording_gives_the_numbers_of_a_replay(self):
        recording = self.folder / "recording.jsonl"
        recording.write_text(lines(*everything()))
        run("replay", "-q", recording, "-o", self.folder, check=True)
        timeline, ambiance = (iter(rows(self.folder / f"{name}.csv"))
                              for name in ("timeline", "ambiance"))
        for entry in map(json.loads, recording.read_text().splitlines()[1:]):
            event, person = entry["event"], entry.get("person")
            self.check("clock_set", self.clock, max(library.zv_now(), entry["time"]))
            if event in ("observation", "not_seen"):
                state, row = new(State), next(timeline)
                if event == "observation":
                    self.check("graph_update", self.graph, person, observation(**entry), state)
                else:
                    self.check("graph_not_seen", self.graph, person, state)
                expected = new(State, **{name: json.loads(row[name]) for name, _ in State._fields_[1:]})
                self.assertEqual(bytes(state), bytes(expected), row)
            elif event == "remove":
                self.check("graph_remove", self.graph, person)
            elif event == "rename":
                self.check("graph_rename", self.graph, person, entry["to"])
            elif event == "movement":
                self.check("ambiance_movement", self.room)
            elif event == "activity":
                levels, row = (ctypes.c_float * 2)(), next(ambiance)
                self.check("ambiance_update", self.room, entry["value"])
                self.check("ambiance_read", self.room, levels, ctypes.byref(levels, 4))
                expected = (ctypes.c_float * 2)(float(row["agitation"]), float(row["calm"]))
                self.assertEqual(bytes(levels), bytes(expected), row)
        self.assertEqual([*timeline, *ambiance], [])

    def test_what_is_refused_changes_nothing(self):
        before, state = new(State), new(State)
        self.check("graph_update", self.graph, 1, observation(0, smile={"value": 0.8}), before)
        sizes = (ctypes.sizeof(Observation) + more for more in (-8, 1, 2**20))
        for text, graph, seen, after in (
                ("The graph is null.", None, new(Observation), None),
                ("The observation is null.", self.graph, None, None),
                *(("The observation has a wrong size.", self.graph, Observation(size), None)
                  for size in sizes),
                ("The observation has a field that this version does not know.", self.graph,
                 new(Observation, fields=1 << 15), None),
                ("The state has a wrong size.", self.graph, new(Observation), State()),
                ("smile has a number that is not finite.", self.graph,
                 observation(0, smile={"value": math.nan}), None)):
            self.check("graph_update", graph, 1, seen, after, code="ZV_INVALID_ARGUMENT")
            self.assertEqual(library.zv_error_text().decode(), text)
            self.check("graph_read", self.graph, 1, state)
            self.assertEqual(bytes(state), bytes(before), text)
        self.check("graph_read", self.graph, 2, state, code="ZV_UNKNOWN_PERSON")
        self.assertIsNone(library.zv_board_create(self.graph, None))

    def test_a_guard_looks_at_every_number_and_time(self):
        guard, report, counts = self.create("guard", SECOND), new(Report), []
        for name, kind in Observation._fields_[2:]:
            field, count = VALUES["ZV_" + name.upper()], 0
            for offset in range(4, ctypes.sizeof(kind), 4):  # the upper half of a time: centuries ahead
                seen = new(Observation, fields=field)
                ctypes.c_float.from_buffer(getattr(seen, name), offset).value = math.nan
                self.check("guard_clean", guard, seen, report)
                found = (field, 0) if offset == 4 else (0, field)
                count += (report.ahead, report.not_finite, seen.fields) == (*found, 0)
            counts.append(count)
        self.assertEqual(counts, [1, 2, 2, 3, 3, 15, 4, 2, 2, 1, 37, 13, 2, 1, 2])
        self.check("clock_set", self.clock, -2 * SECOND)
        self.check("guard_clean", guard, new(Observation), report)
        self.assertEqual(report.clock_set_back, 2 * SECOND)

    def test_frames_are_whole_beside_a_thread_that_publishes(self):
        """The reader's states are of a later version, and it has room for two of three people."""
        class Later(ctypes.Structure):
            _fields_ = [("state", State), ("added", ctypes.c_int64)]

        board = self.create("board", self.graph, self.room)

        def publish():
            library.zv_clock_use(self.clock)
            for number in range(1, 301):
                self.check("clock_set", self.clock, number * SECOND)
                seen = observation(number * SECOND, touchEmotion={"value": number % 3 - 1})
                for person in (3, -1, 2):
                    self.check("graph_update", self.graph, person, seen, None)
                self.check("board_publish", board, number)

        (publisher := threading.Thread(target=publish)).start()
        alive = True
        while alive:
            alive = publisher.is_alive()
            frame, states = new(Frame), (Later * 2)(Later(added=-1), Later(added=-1))
            states[0].state.size = size = ctypes.sizeof(Later)
            self.check("board_latest", board, frame, states, 2)
            if frame.number:
                self.assertEqual((frame.time, frame.persons, frame.states), (frame.number, 3, 2))
                valence = states[0].state.valence
                self.assertEqual([(each.state.size, each.state.person, each.state.valence, each.added)
                                  for each in states], [(size, -1, valence, 0), (size, 2, valence, 0)])
        self.assertEqual(frame.number, 300)
