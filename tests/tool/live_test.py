"""Feeds the service line by line."""

import json
import os
import signal
import subprocess
import sys
import time

from tool import SOURCE, TOOL, FolderTest, lines, rows, run

EXAMPLE = SOURCE / "examples/live/watch_mood.py"


def live(text, *options):
    return run("live", *options, input=text)


def answers(text):
    return [json.loads(line) for line in text.splitlines()]


class LiveTest(FolderTest):
    def setUp(self):
        super().setUp()
        self.recording = self.folder / "scene.jsonl"
        run("simulate", "--seconds", "20", "--output", self.recording, check=True)

    def service(self, *options, **environment):
        process = subprocess.Popen([TOOL, "live", *options], text=True, stdin=subprocess.PIPE,
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                   env={**os.environ, **environment})
        self.addCleanup(process.communicate)
        self.addCleanup(process.kill)
        return process

    def test_on_the_recordings_clock_gives_what_replay_gives(self):
        run("replay", self.recording, "-q", "-o", self.folder, check=True)
        result = live(self.recording.read_text(), "--clock", "recording")
        self.assertEqual(result.returncode, 0, result.stderr)
        states = [row for row in answers(result.stdout) if "valence" in row]
        timeline = rows(self.folder / "timeline.csv")
        self.assertEqual(len(states), len(timeline))
        for state, row in zip(states, timeline):
            values = {}
            for name, value in state.items():
                pair = value if isinstance(value, dict) else {"value": value}
                values[name] = float(pair["value"])
                if "confidence" in pair:
                    values[name + "_confidence"] = float(pair["confidence"])
            # Both texts are shortest digits of the same float.
            self.assertEqual(values, {name: float(row[name]) for name in values})
            self.assertEqual(set(row) - set(values), {"seconds", "event", "visit"})
        self.assertEqual(len([row for row in answers(result.stdout) if "label" in row]),
                         len(rows(self.folder / "scopes.csv")))

    def test_answers_each_line_at_once(self):
        service = self.service()
        before = time.time_ns()
        for event in ("observation", "not_seen", "stop_recording"):
            scope = ',"scope":"s\\n"' if event == "stop_recording" else ""
            service.stdin.write(f'{{"event":"{event}","person":3{scope}}}\n')
            service.stdin.flush()
            answer = json.loads(service.stdout.readline())
            self.assertEqual(answer["person"], 3)
            self.assertTrue(before <= answer["time"] <= time.time_ns())
        service.stdin.write('{"event":"activity","value":0.05}\n')
        service.stdin.flush()
        answer = json.loads(service.stdout.readline())
        self.assertEqual((answer["agitation"], answer["calm"]), (0.1, 0.9))

    def test_skips_bad_lines(self):
        text = '{"event":"activity","value":0}\n' + "x" * (16 * 2**20 + 1) + (
            '\n{"event":"activity"}\n{"event":"activity","value":0}\n')
        result = live(text)
        self.assertEqual((result.returncode, len(answers(result.stdout))), (1, 2))
        self.assertEqual(result.stderr.splitlines(), [
            "-:2: longer than 16777216 bytes", '-:3: lacks the key "value"',
            "bad lines skipped: 2"])
        strict = live(text, "--strict")
        self.assertEqual((strict.returncode, len(answers(strict.stdout))), (1, 1))
        untimed = live('{"event":"movement"}', "--clock", "recording")
        self.assertIn('-:1: lacks the key "time"', untimed.stderr)

    def test_warns_once_of_readings_far_from_the_clock(self):
        def observation(seconds, field, value):
            field_text = json.dumps({field: {**value, "time": int(seconds * 1e9)}})[1:-1]
            return f'{{"time":100000000000,"event":"observation","person":1,{field_text}}}\n'

        result = live(observation(93, "distance", {"value": 1})
                      + observation(92.999, "distance", {"value": 1})
                      + observation(92.999, "distance", {"value": 1})
                      + observation(80, "contextEmotion", {"emotion": 1, "duration": 5})
                      + observation(100.5, "asrEmotion", {"value": 1}), "--clock", "recording")
        self.assertEqual(result.returncode, 0)
        self.assertEqual(result.stderr.splitlines(), [
            "-:2: warning: person 1: distance is from 7.001 s ago, and remembered for 7 s; "
            "it counts in its cycle at most",
            "-:5: warning: person 1: asrEmotion is from 0.500 s in the future; "
            "it is used as it is"])

    def test_leaves_out_what_is_ahead_of_the_clock(self):
        def touched(person, ahead):
            return json.dumps({"event": "observation", "person": person, "touchEmotion": {
                "value": 1, "time": time.time_ns() + ahead * 10**9}}) + "\n"

        lines = touched(1, 3600) + touched(1, 3600) + touched(2, 3600)
        result = live(lines + touched(3, 0))
        self.assertEqual([row["valence"]["value"] > 0 for row in answers(result.stdout)],
                         [False, False, False, True])
        self.assertRegex(result.stderr, r"""\A-:1: warning: person 1: touchEmotion is from 3\d{3}\.\d{3} s in the future; such readings are left out
-:3: warning: person 2: touchEmotion is .*
readings from the future left out: 3
\Z""")
        allowed = live(lines, "--ahead", "7200")
        self.assertEqual((allowed.stderr, answers(allowed.stdout)[0]["valence"]["value"] > 0), ("", True))
        self.assertIn("is for the system's clock",
                      live("", "--ahead", "1", "--clock", "recording").stderr)

    def test_an_output_that_takes_nothing_is_an_error(self):
        lines = self.recording.read_text()
        with open("/dev/full", "w") as full:
            result = run("live", "--clock", "recording", input=lines, stdout=full)
            self.assertEqual((result.returncode, result.stderr.splitlines()[-1]),
                             (1, "standard output: No space left on device"))
            bad = run("live", input="bad\n" * 1000, stderr=full)
            self.assertEqual((bad.returncode, bad.stdout), (1, ""))

    def test_everybody_begins_anew_when_the_clock_is_set_back(self):
        offset = self.folder / "offset"
        service = self.service(LD_PRELOAD=os.environ["CLOCK_LIBRARY"], CLOCK_OFFSET=str(offset),
                               ASAN_OPTIONS="verify_asan_link_order=0")

        def answer(*events):
            service.stdin.writelines(json.dumps(event) + "\n" for event in events)
            service.stdin.flush()
            return json.loads(service.stdout.readline())

        seen = answer({"event": "start_recording", "person": 1, "scope": "s"},
                      {"event": "observation", "person": 1, "touchEmotion": {"value": 1}})
        self.assertGreater(seen["valence"]["value"], 0)
        offset.write_text("-3600")
        stopped = answer({"event": "stop_recording", "person": 1, "scope": "s"})
        self.assertEqual((stopped["label"], stopped["samples"]), ("error", 0))
        self.assertEqual(answer({"event": "not_seen", "person": 1})["valence"]["value"], 0)
        service.send_signal(signal.SIGTERM)
        self.assertRegex(service.stderr.read(), r"^-:3: warning: the clock was set back by "
                         r"3[56]\d\d\.\d{3} s; everybody begins anew, and scopes")

    def test_warns_by_line_and_at_the_end(self):
        def line(seconds, event, **keys):
            return {"time": round(seconds * 10**9), "event": event, **keys}

        unseen = [line(second, "not_seen", person=1) for second in (0, 1, 0.5, 2, 1.5)]
        later = [line(10**8 + second, "not_seen", person=1) for second in range(6)]
        events = [*unseen, line(2, "stop_recording", person=1, scope="s"), *later,
                  *2 * [line(10**8 + 9, "start_recording", person=1, scope="s")]]
        result = live(lines(*events), "--clock", "recording")
        expected = ("-:3: warning: The time runs backwards", "-:6: warning: 1 scope closed without",
                    "-:7: warning: The time jumps ahead by 3.2 years",
                    "-:14: warning: 1 scope opened while open", "-: warning: No gaze or headPosture",
                    "-: warning: No smile", "-: warning: 1 scope never closed")
        told = result.stderr.splitlines()
        self.assertEqual([text[:len(start)] for text, start in zip(told, expected)],
                         list(expected), told)
        self.assertEqual(len(told), len(expected))

    def test_forgets_people_unseen_for_long(self):
        def line(seconds, event, scope=""):
            return f'{{"time":{int(seconds * 1e9)},"event":"{event}","person":1{scope}}}\n'

        smile = ',"smile":{"value":1,"confidence":1},"expressions":{"joy":{"value":1,"confidence":1}}'
        scope = ',"scope":"s"'
        result = live(line(0, "observation", smile) + line(0, "start_recording", scope)
                      + line(9, "not_seen") + line(10, "stop_recording", scope)
                      + line(10, "start_recording", scope) + line(10.001, "not_seen")
                      + line(10.001, "stop_recording", scope), "--clock", "recording", "--forget", "10")
        first, before, kept, after, gone = answers(result.stdout)
        self.assertGreater(before["valence"]["value"], 0)
        self.assertEqual((kept["samples"], gone["label"]), (1, "error"))
        self.assertEqual(after["valence"]["value"], 0)

    def test_ends_cleanly(self):
        for number in (signal.SIGINT, signal.SIGTERM):
            service = self.service()
            service.stdin.write('x\n{"event":"not_seen","person":1}\n')
            service.stdin.flush()
            service.stdout.readline()
            service.send_signal(number)
            self.assertEqual(service.wait(), 0)
        service = self.service()
        service.stdout.close()
        service.stdin.write('{"event":"not_seen","person":1}\n')
        service.stdin.flush()
        self.assertEqual(service.wait(), 1)
        self.assertEqual(service.stderr.read(), "standard output: Broken pipe\n")

    def test_the_example_prints_changes_of_mood(self):
        result = subprocess.run([sys.executable, "-B", EXAMPLE, TOOL, self.recording],
                                capture_output=True, text=True)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertRegex(result.stdout, r"(?m)^\d+ person 1 is positive: valence 0\.\d+ \(")
