"""Describes recordings and types, and looks at what is said."""

import json
import random
import statistics

from tool import SECOND, START, FolderTest, line, lines, run


def at(seconds, **keys):
    return {**keys, "time": START + round(seconds * SECOND)}


def described(entries):
    return json.loads(run("info", "-", "--json", input=lines(*entries)).stdout)


def healthy(count=120, period=1 / 30, person=lambda cycle: 1, **change):
    """A person in front of a robot; `change` may replace fields."""
    for cycle in range(count):
        wave = cycle % 10 / 10
        fields = {
            "headPosture": {"yaw": 20 * wave, "pitch": 2, "roll": 0},
            "gaze": {"yaw": -9 * wave, "pitch": 1},
            "smile": {"value": wave, "confidence": 0.5},
            "distance": {"value": 1 + wave},
        }
        fields.update({name: make(cycle) for name, make in change.items()})
        yield line(cycle * period, "observation", person=person(cycle),
                   **{name: field for name, field in fields.items() if field})


class InfoTest(FolderTest):
    maxDiff = None

    def test_counts_by_hand(self):
        told = described([
            {"event": "header", "version": 1, "source": "hand"},
            line(0, "start_recording", person=1, scope="kept"),
            line(0, "start_recording", person=1, scope="short", samples=1),
            line(0, "observation", person=1, gaze=at(0, yaw=1, pitch=2)),
            # One sample was asked for: this one drops the scope.
            line(0.5, "observation", person=1, gaze=at(0, yaw=1, pitch=2), height=at(-9, value=1)),
            line(1, "observation", person=1, gaze=at(1.25, yaw=3, pitch=4),
                 faceDetected={"value": True}),
            line(0.25, "movement"),
            # The gaze at 1.25 is remembered with other numbers; 7000 ms are remembered, 7001 not.
            line(4, "observation", person=1, gaze=at(1.25, yaw=3, pitch=5),
                 smile=at(-3, value=1, confidence=1),
                 contextEmotion=at(-16, emotion=1, duration=2)),
            line(4.5, "observation", person=1, smile=at(-2.501, value=1, confidence=1),
                 contextEmotion=at(-15.501, emotion=1, duration=2)),
            line(5, "stop_recording", person=1, scope="short"),
            line(5, "remove", person=1),
            # A removed person remembers nothing, and the time since the removal is no gap.
            line(8, "observation", person=1, gaze=at(1.25, yaw=0, pitch=0)),
            line(8.5, "not_seen", person=1),
            line(8.5, "start_recording", person=-2, scope="left"),
            line(8.5, "start_recording", person=-2, scope="left"),
            line(8.5, "rename", person=-2, to=5), line(8.5, "rename", person=-2, to=6),
        ])
        person, other = told["persons"][1], told["persons"][0]
        self.assertEqual(told["source"], "hand")
        self.assertEqual((told["lines"], told["seconds"], told["lines_back_in_time"],
                          told["farthest_back_seconds"]), (17, 8.5, 1, 0.75))
        self.assertEqual(told["events"], {
            "observation": 6, "not_seen": 1, "remove": 1, "rename": 2, "restore": 0,
            "start_recording": 4, "stop_recording": 1, "movement": 1, "activity": 0})
        self.assertEqual((other["person"], other["observations"], other["fields"]), (-2, 0, {}))
        # Intervals 0.5, 0.5, 3, 0.5 and, after the removal, 0.5: a gap is longer than 1.5 s.
        self.assertEqual(
            {key: person[key] for key in person if key != "fields"},
            {"person": 1, "observations": 6, "not_seen": 1, "faces": 2, "removed": 1,
             "first_time": START, "last_time": START + 17 * SECOND // 2, "rate_hz": 2, "gaps": 1,
             "longest_gap_seconds": 3, "longest_gap_time": START + SECOND})
        fields = {
            name: (field["readings"], field["lateness_seconds"]["min"],
                   field["lateness_seconds"]["max"], field["repeated"],
                   field["repeated_with_other_numbers"], field["future"], field["expired"])
            for name, field in person["fields"].items()}
        self.assertEqual(fields, {
            "gaze": (5, -0.25, 6.75, 2, 1, 1, 0),
            "height": (1, 9.5, 9.5, 0, 0, 0, 0),
            "faceDetected": (1, 0, 0, 0, 0, 0, 0),
            "smile": (2, 7, 7.001, 0, 0, 0, 1),
            "contextEmotion": (2, 20, 20.001, 0, 0, 0, 1)})
        self.assertEqual(person["fields"]["gaze"]["share"], 5 / 7)
        self.assertEqual(told["numbers"]["gaze.pitch"],
                         {"count": 5, "lowest": 0, "highest": 5, "zeros": 1})
        self.assertEqual(told["scopes"], {
            "opened": 4, "closed": 1, "closed_without_being_open": 1, "opened_while_open": 1,
            "dropped_after_last_sample": 1, "dropped_with_person": 1,
            "left_open": [{"person": 5, "scope": "left", "line": 15}]})
        self.assertEqual([(found["kind"], found["first_line"]) for found in told["findings"]],
                         [("time_backwards", 7), ("repeated_time", 8), ("future", 6),
                          ("expired", 9), ("scopes", 10), ("scopes", 15), ("scopes", 5),
                          ("scopes", 11), ("open_scopes", 15)])

    def test_medians_are_within_their_precision(self):
        draw = random.Random(3)
        spread = [round(10 ** draw.uniform(-3, 11)) for _ in range(999)]
        for late in (spread, [-1 - each for each in spread], [each - 10**8 for each in spread],
                     [1000] * 51 + [1015] * 49, [33_333_333] * 3, [0], [2**61]):
            told = described({"time": START, "event": "observation", "person": 1,
                              "height": {"value": 1, "time": START - nanoseconds}}
                             for nanoseconds in late)
            lateness = told["persons"][0]["fields"]["height"]["lateness_seconds"]
            median = statistics.median_low(late) / SECOND
            self.assertAlmostEqual(lateness["median"], median, delta=0.004 * abs(median))
            self.assertEqual((lateness["min"], lateness["max"]),
                             (min(late) / SECOND, max(late) / SECOND))

    def test_says_what_looks_wrong_and_only_that(self):
        def head(yaw):
            return {"yaw": yaw, "pitch": 0, "roll": 0}

        # A clock may count from the epoch or from when the robot was switched on.
        for per_second, unit, period, start in (
                (1, "seconds", 1 / 30, 0), (1000, "milliseconds", 1, 0),
                (10**6, "microseconds", 1 / 30, 0), (1000, "milliseconds", 1 / 30, START),
                (10**6, "microseconds", 1 / 30, START)):
            entries = [{**entry, "time": (entry["time"] - start) * per_second // SECOND}
                       for entry in healthy(period=period)]
            with self.subTest(unit=unit, period=period, start=start):
                self.assertIn(f"in {unit}?", described(entries)["findings"][0]["text"])
        cases = [
            ([], []),
            ([], healthy(count=20, headPosture=lambda cycle: head(0))),
            ([], healthy(person=lambda cycle: cycle // 10)),
            ([("time_unit", "do not tell"), ("repeated_time", "headPosture (90.0 %)")],
             healthy(period=0)),
            ([("radians", "headPosture is larger than 0.35")],
             healthy(headPosture=lambda cycle: head(0.035 * (cycle % 11)))),
            ([], healthy(headPosture=lambda cycle: head(0.17 * (cycle % 11)))),
            ([("constant", "gaze never changes")],
             healthy(gaze=lambda cycle: {"yaw": 5, "pitch": 5})),
            ([("out_of_range", "in 100.0 % of its numbers, which go from 50 to 60; first in line "
                               "1. Centimetres")],
             healthy(distance=lambda cycle: {"value": 50 + cycle % 11})),
            ([("out_of_range", "intensity from 0 to 5")],
             healthy(smile=lambda cycle: {"value": cycle % 6, "confidence": 1})),
            ([("out_of_range", "smile.confidence is outside 0 to 1 in 0.8 % ")],
             healthy(smile=lambda cycle: {"value": cycle % 2, "confidence": 1 + (cycle == 7)})),
            ([("zero_confidence", "no smile counts")],
             healthy(smile=lambda cycle: {"value": cycle % 2, "confidence": 0})),
            ([("beyond_limits", "never below 1.75 m")],
             healthy(height=lambda cycle: {"value": 1.75})),
            ([], healthy(height=lambda cycle: {"value": 1.5})),
            ([("fleeting_persons", "24 person ids share 120 cycles")],
             healthy(person=lambda cycle: cycle // 5)),
            ([("asr_zero", "counts as positive")], healthy(asrEmotion=lambda cycle: {"value": 0})),
            ([("future", "gaze (50.0 %, up to 2.0 s); first in line 1")],
             healthy(gaze=lambda cycle: at(cycle / 30 + 2 - cycle % 2 * 2.51, yaw=cycle,
                                           pitch=0))),
            ([("expired", "smile (100.0 %, up to 53.9 years where 7 s are kept)")],
             healthy(smile=lambda cycle: {"value": cycle % 2, "confidence": 1, "time": cycle})),
            ([("repeated_time", "smile (96.7 %); first in line 2")],
             healthy(smile=lambda cycle: at(cycle // 30, value=cycle / 200, confidence=1))),
            ([], healthy(smile=lambda cycle: at(cycle // 30, value=cycle // 30 / 9, confidence=1))),
            ([("no_attention_input", "stays 0")],
             healthy(headPosture=lambda cycle: None, gaze=lambda cycle: None)),
            ([("no_valence_input", "valence")], healthy(smile=lambda cycle: None)),
            # Rarer than one reading in a hundred is an accident.
            *[([("future", "smile (1.0 %, up to 2.0 s)")] if count == 100 else [],
               healthy(count=count, smile=lambda cycle: at(cycle / 30 + 2.01 * (cycle == 5),
                                                           value=cycle / 200, confidence=1)))
              for count in (100, 101)],
            ([("zero_landmarks", "at (0, 0)")],
             healthy(facialPoints=lambda cycle: {"points": [
                 {"point": 3, "x": 0, "y": 0, "confidence": 0.9}]})),
            ([("time_jump", "ahead by 2.0 years in line 8:")],
             ({**entry, "time": entry["time"] + (place > 6) * 731 * 86400 * SECOND}
              for place, entry in enumerate(healthy()))),
            ([("new_starts", "99.2 % of the cycles")],
             (entry for cycle, seen in enumerate(healthy(period=2))
              for entry in (line(cycle * 2, "remove", person=1), seen))),
            ([("few_faces", "Only 8.3 %")],
             healthy(faceDetected=lambda cycle: {"value": cycle % 12 == 0})),
        ]
        for number, (expected, entries) in enumerate(cases):
            expected = expected or ([("no_cycles", "No person")] if number == 0 else [])
            with self.subTest(number=number, expected=expected):
                found = described(entries)["findings"]
                self.assertEqual([each["kind"] for each in found], [kind for kind, _ in expected])
                for each, (_, text) in zip(found, expected):
                    self.assertIn(text, each["text"])

    def test_replay_and_report_warn_too(self):
        # Nobody comes near enough, which is not a fault of the recording.
        entries = [*healthy(gaze=lambda cycle: {"yaw": 5, "pitch": 5},
                            distance=lambda cycle: {"value": 2 + cycle % 10 / 10}),
                   line(9, "movement"), line(8, "stop_recording", person=1, scope="s")]
        found = [f"-: warning: {each['text']}" for each in described(entries)["findings"]
                 if each["kind"] != "beyond_limits"]
        self.assertEqual(len(found), 3, found)
        for options, expected in ((["replay", "-", "-o", self.folder], found),
                                  (["replay", "-", "--timeline", "-"], found),
                                  (["report", "-", "-o", self.folder / "report.html"], found),
                                  (["replay", "-", "-q", "-o", self.folder], [])):
            warned = run(*options, input=lines(*entries)).stderr.splitlines()
            self.assertEqual(warned, expected, options)

    def test_a_bad_line_ends_it_after_what_came_before(self):
        entries = [*healthy(person=lambda cycle: cycle // 8, count=240), line(9, "oops")]
        result = run("info", "-", input=lines(*entries))
        self.assertEqual((result.returncode, result.stderr),
                         (1, '-:241: event: "oops" is not an event\n'))
        for text in ("observation           240", "and 10 more", "share 240 cycles"):
            self.assertIn(text, result.stdout)
        self.assertLessEqual(max(map(len, result.stdout.splitlines())), 100)
        self.assertEqual(described(entries)["error"], result.stderr.rstrip())

    def test_handles_are_bouncers_among_the_records_of_other_modules(self):
        kinds = {record["class"]: record["kind"]
                 for record in json.loads(run("types", "--json").stdout)}
        self.assertEqual((len(kinds), set(kinds.values())), (13, {"plain", "bouncer"}))
        self.assertEqual({name for name, kind in kinds.items() if kind == "bouncer"},
                         {"::ZV::BodyLanguageState", "::ZV::PersonState"})
