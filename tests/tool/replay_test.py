"""Replays recordings, and looks at what is written."""

import contextlib
import json
import operator
import os
import pathlib
import re
import resource
import signal
import subprocess
import time

from tool import SECOND, SOURCE, START, TOOL, FolderTest, line, lines, recalculated, rows, run


def late(seconds, **keys):
    return {**keys, "time": START + round(seconds * SECOND)}


def reading(value):
    return {"value": value, "confidence": 0.9}


def everything():
    """Two people, every event and every field: in time, late, repeated, future and expired."""
    # To a known id, to a new one, to one that is gone, and of nobody.
    renames = {60: (1, -2), 100: (-2, 1), 200: (1, 9), 252: (9, -2), 270: (1, 9), 288: (5, 1)}
    yield {"event": "header", "version": 1, "source": "test", "origin": START + 5 * SECOND // 4}
    names = ["calm", "anger", "joy", "sorrow", "laughter", "excitement", "surprise"]
    for person in (1, -2):
        yield line(0, "start_recording", person=person, scope='a, "b"\nc')
    yield line(0, "start_recording", person=1, scope="short", samples=2)
    yield line(0, "start_recording", person=1, scope="Σκηνή", samples=30)
    for samples in (0, 1):
        yield line(0, "start_recording", person=-2, scope=f"{samples}", samples=samples)
    for cycle in range(300):
        now = cycle / 10
        fields = {
            "lookingAtRobot": {"value": cycle % 3 == 0},
            "faceDetected": {"value": True},
            "height": {"value": 1.2 + cycle % 7 / 10},
            "distance": {"value": 0.5 + cycle % 11 / 10},
            "gaze": late(now - 0.03, yaw=cycle % 40 - 20, pitch=3.25),
            "headPosture": {"yaw": cycle % 31 - 15.5, "pitch": cycle % 17 - 8, "roll": 1},
            "smile": reading(cycle % 10 / 10),
            "gender": {"value": False, "confidence": 0.5},
            "age": {"value": 4294967295, "confidence": 0.1},
            "expressions": {name: reading((cycle * k % 13) / 13) for k, name in enumerate(names)},
            "facialPoints": {"points": [
                {"point": k, "x": k, "y": -k, "confidence": (cycle + k) % 9 / 9}
                for k in range(cycle % 13)]},
        }
        if cycle % 20 == 5:
            fields["voiceEmotion"] = late(
                now - 1, **{name: reading(k / 7) for k, name in enumerate(names[:6])})
            fields["asrEmotion"] = {"value": cycle % 3 - 1}
            fields["touchEmotion"] = late(now + 0.5, value=cycle % 7 - 3)
        if cycle % 90 == 10:
            fields["contextEmotion"] = {"emotion": cycle % 4 - 2, "duration": 0.5 + cycle / 50}
        if cycle % 50 == 13:
            fields["smile"] = late(now - 7.001, **reading(1))
            fields["headPosture"] = late(now - 7, yaw=9, pitch=9, roll=9)
            del fields["gaze"]
        for person in (1, -2):
            if (cycle + person) % 60 >= 40:
                yield line(now, "not_seen", person=person)
            elif cycle % 37 != 0:
                yield line(now, "observation", person=person, **fields)
            else:
                yield line(now - 5, "observation", person=person)
        if cycle in renames:
            yield line(now, "rename", person=renames[cycle][0], to=renames[cycle][1])
        if 200 <= cycle < 252 or cycle > 270:
            yield line(now, "not_seen", person=9)
        if cycle % 4 == 0:
            yield line(now, "movement")
        if cycle % 25 == 0:
            yield line(now, "activity", value=cycle % 3 / 10)
        if cycle in (0, 1):
            yield line(now, "stop_recording", person=-2, scope=f"{cycle}")
        if cycle == 100:
            yield line(now, "stop_recording", person=1, scope="short")
            yield line(now, "stop_recording", person=1, scope="Σκηνή")
            yield line(now, "start_recording", person=-2, scope='a, "b"\nc')
        if cycle == 250:
            yield line(now, "remove", person=-2)
            yield line(now, "stop_recording", person=-2, scope="gone")
    for person in (1, -2, 3):
        yield line(31, "stop_recording", person=person, scope='a, "b"\nc')


class ReplayTest(FolderTest):
    def setUp(self):
        super().setUp()
        self.recording = self.folder / "recording.jsonl"
        self.output = self.folder / "new" / "output"

    def replay(self, content, *options, **settings):
        if not isinstance(content, (str, bytes)):
            content = lines(*content)
        if isinstance(content, str):
            content = content.encode()
        self.recording.write_bytes(content)
        return run("replay", self.recording, "--output", self.output, *options, **settings)

    def written(self, name):
        return (self.output / name).read_text()

    def wait_until(self, condition):
        end = time.monotonic() + 60
        while not condition():
            self.assertLess(time.monotonic(), end)

    def test_agrees_with_the_independent_recalculation(self):
        result = self.replay(everything())
        self.assertEqual(result.returncode, 0, result.stderr)
        table = (SOURCE / "recording/observation_fields.hpp").read_text()
        seeds = SOURCE / "fuzz/corpus/recording/every_event_and_field.jsonl"
        for recording in (self.recording, seeds):
            keys = set().union(*map(json.loads, recording.read_text().splitlines()))
            self.assertEqual(set(re.findall(r"field\(&O::(\w+)", table)) - keys, set(), recording)
        run("replay", self.recording, "-q", "--summary", self.output / "persons.csv", check=True)
        self.assertRegex(recalculated(self.recording, self.output), "timeline.csv 681 rows, "
                         "scopes.csv 8 rows, ambiance.csv 12 rows, persons.csv 3 rows; 0")

    def test_what_was_not_measured_is_not_0(self):
        """Who moves what: 1 a calm face once, then unseen; 2 a straight head; 3 a touch that is none;
        4 a gaze, in one cycle; 5 a head for a second, remembered for 7 s more, then nothing."""
        straight = {"yaw": 0, "pitch": 0}
        head = {"headPosture": {**straight, "roll": 0}}
        calm = {"smile": reading(0), "expressions": {"calm": reading(1)}}
        entries = [line(0, "observation", person=1, **calm),
                   line(0, "observation", person=4, gaze=straight)]
        for second in range(16):
            if second in (1, 2, 3):
                entries.append(line(second, "not_seen", person=1))
            for person, fields in ((2, head), (3, {"touchEmotion": {"value": 0}}),
                                   (5, head if second <= 1 else {})):
                entries.append(line(second, "observation", person=person, **fields))
        printed = self.replay(entries).stdout.splitlines()
        self.assertEqual(printed[3].split(), ["3", "16", "15.000", *"-----"])
        total = run("replay", self.recording, "--summary", self.output / "persons.csv").stdout
        recalculated(self.recording, self.output)
        table = rows(self.output / "persons.csv")
        means, cycles = zip(*((float(row["attention_mean"]), int(row["cycles"])) for row in table
                              if row["attention_mean"]))
        self.assertIn(f" {sum(map(operator.mul, means, cycles)) / sum(cycles):.3f} (", total)
        columns = ("valence_mean", "valence_coverage", "neutral", "attention_coverage", "attentive",
                   "ease_deviation", "valence_change")
        self.assertEqual([[row[name] and float(row[name]) for name in columns] for row in table], [
            [0, 0.25, 1, 0, "", "", ""], [0, 1, 1, 1, 1, 0, ""],
            ["", 0, "", 0, "", "", ""], ["", 0, "", 1, 1, "", ""],
            [0, 9 / 16, 1, 9 / 16, 9 / 16, 0, ""]])

    def test_writes_whole_files(self):
        # By hand: joy wins as positive, 0.65, and a level ease takes 6.5 % of it. Straight angles
        # weigh (1 + erf(2)) / 2 = 0.9976611: two forces of 0.65. Confidences: twice 0.35 towards 1
        # for the attention, and for both twice 0.175, as nothing limits the sensor. Not seen: all
        # fall by 0.26 and 0.7.
        self.assertEqual(self.replay([
            line(0, "observation", person=7, smile=reading(1), expressions={"joy": reading(1)},
                 headPosture={"yaw": 0, "pitch": 0, "roll": 0}, gaze={"yaw": 0, "pitch": 0}),
            line(1, "start_recording", person=7, scope="x,y"),
            line(0.5, "not_seen", person=7),
            line(1, "movement"),
            line(1, "activity", value=0.05),
            line(2, "stop_recording", person=7, scope="x,y"),
            line(2, "stop_recording", person=8, scope="z"),
        ]).returncode, 0)
        self.assertEqual(
            self.written("timeline.csv"),
            "time,person,valence,valence_confidence,mood,cycle_mood,cycle_mood_confidence,"
            "attention,attention_confidence,ease,ease_confidence,seconds,event,visit\n"
            f"{START},7,0.60775,0.31937498,1,1,0.31937498,0.87544763,0.7124359,0,0.5,"
            "0,observation,1\n"
            f"{START + SECOND},7,0.449735,0.0958125,1,1,0.0958125,0.64783126,0.21373078,0,0.5,"
            "1,not_seen,1\n")
        self.assertEqual(
            self.written("scopes.csv"),
            "time,person,scope,label,samples,begin,end,mean_valence,mean_confidence,"
            "exact_mean_valence,visit\n"
            f'{START + 2 * SECOND},7,"x,y",unknown,1,1,2,0.449735,0.0958125,0.44973498582839966,1\n'
            f'{START + 2 * SECOND},8,z,error,0,,2,nan,nan,nan,1\n')
        self.assertEqual(self.written("ambiance.csv"),
                         f"time,agitation,calm\n{START + SECOND},0.14,0.86\n")

    def test_standard_input_gives_the_same_bytes(self):
        self.replay(everything())
        first = {file.name: file.read_bytes() for file in self.output.iterdir()}
        (self.output / "forces.csv").write_text("of an earlier replay")
        with open(self.recording) as recording:
            again = run("replay", "-", "-q", "-o", self.output, stdin=recording)
        self.assertEqual((again.returncode, again.stdout, again.stderr), (0, "", ""))
        self.assertEqual({file.name: file.read_bytes() for file in self.output.iterdir()}, first)

    def test_names_what_is_wrong_and_keeps_what_came_before(self):
        good = '{"time":5,"event":"not_seen","person":1}'
        cases = {
            good[:-1]: "not JSON",
            good + "x": "not JSON",
            '{"time":5,"event":"movement"} {}': "not JSON",
            '{"time":5,"event":"movement","a\0":1}': "NUL",
            "{\"time\":5,\"event\":\"\udcff\"}": "not JSON",
            '{"time":5,"event":"stop_recording","person":1,"scope":"\\ud800"}': "not JSON",
            '{"time":5,"event":"\udcf0': "not JSON",  # the first of four bytes
            "[" * 64 + "]" * 64: "must be an object",
            "[" * 65 + "]" * 65: "Nested too deep",
            '{"time":5}': 'lacks the key "event"',
            '{"event":"movement"}': 'lacks the key "time"',
            '{"time":5,"event":"jump"}': 'event: "jump" is not an event',
            '{"event":"header","version":1}': "event: a header must be the first line",
            '{"time":5,"event":"movement","person":1}': 'the key "person" is not known here',
            '{"time":5,"time":5,"event":"movement"}': 'the key "time" is given twice',
            '{"time":5.0,"event":"movement"}': "time: must be an integer",
            '{"time":4611686018427387905,"event":"movement"}': "time: must be from",
            '{"time":9223372036854775808,"event":"movement"}': "time: must be from",
            '{"time":5,"event":"remove","person":2147483648}': "person: must be from",
            '{"time":5,"event":"remove","person":"1"}': "person: must be an integer",
            '{"time":5,"event":"activity","value":1e39}': "value: is beyond the range",
            '{"time":5,"event":"activity","value":1e400}': '"value"',
            '{"time":5,"event":"activity","value":true}': "value: must be a number",
            '{"time":5,"event":"stop_recording","person":1,"scope":1}': "scope: must be a text",
        }
        fields = {
            '"smile":{"value":1}': 'smile: lacks the key "confidence"',
            '"smile":{"value":1,"confidence":1,"x":1}': 'smile: the key "x" is not known here',
            '"smile":1': "smile: must be an object",
            '"smil":{}': 'the key "smil" is not known here',
            '"gaze":{"yaw":1,"pitch":null}': "gaze.pitch: must be a number",
            '"faceDetected":{"value":1}': "faceDetected.value: must be true or false",
            '"age":{"value":-1,"confidence":1}': "age.value: must be from 0 to 4294967295",
            '"touchEmotion":{"value":1.5}': "touchEmotion.value: must be an integer",
            '"height":{"value":1,"time":"now"}': "height.time: must be an integer",
            '"voiceEmotion":{"surprise":{"value":1,"confidence":1}}': 'voiceEmotion: the key "surpr',
            '"expressions":{"joy":{"value":1,"value":1}}': 'expressions.joy: the key "value" is giv',
            '"facialPoints":{"points":{}}': "facialPoints.points: must be a list",
            '"facialPoints":{"points":[{"point":12,"x":0,"y":0,"confidence":0}]}':
                "facialPoints.points[0].point: must be from 0 to 11",
            '"facialPoints":{"points":[{"point":3,"x":0,"y":0,"confidence":0},'
            '{"point":3,"x":0,"y":0,"confidence":0}]}': "points[1]: the point 3 is given twice",
        }
        for text, message in fields.items():
            cases['{"time":5,"event":"observation","person":1,' + text + "}"] = message
        for bad, message in cases.items():
            with self.subTest(bad[:60]):
                content = f"{good}\n\n{bad}\n{good}\n".encode(errors="surrogateescape")
                result = self.replay(content)
                self.assertEqual(result.returncode, 1)
                self.assertTrue(result.stderr.startswith(f"{self.recording}:3: "), result.stderr)
                self.assertIn(message, result.stderr)
                self.assertEqual(len(self.written("timeline.csv").splitlines()), 2)
        for origin in ("4611686018427387905", "1.5", "true", '"x"'):
            result = self.replay('{"event":"header","version":1,"origin":%s}\n' % origin + good)
            self.assertIn(":1: origin: must be", result.stderr)

    def test_reads_what_is_odd_but_right(self):
        cases = {
            "": 0,
            "\n \t\r\n": 0,
            '{"version":1,"event":"header"}\r\n{"person":1,"event":"not_seen","time":-5}': 1,
            '{"time":4611686018427387904,"event":"not_seen","person":-2147483648}\n'
            '{"time":-4611686018427387904,"event":"observation","person":1,"facialPoints":'
            '{"points":[]},"expressions":{},"smile":{"value":1e-400,"confidence":0.'
            + "3" * 400 + "}}": 2,
        }
        for content, rows in cases.items():
            with self.subTest(content[:40]):
                result = self.replay(content)
                self.assertEqual(result.returncode, 0, result.stderr)
                self.assertEqual(len(self.written("timeline.csv").splitlines()), 1 + rows)

    def test_several_recordings_fail_alone(self):
        self.replay(everything())
        timeline = self.written("timeline.csv")
        bad = self.folder / "bad.jsonl"
        bad.write_text(lines(line(0, "not_seen", person=1)) + "{}\n")
        several = run("replay", self.recording, bad, "/nowhere.jsonl", self.recording,
                      "--jobs", "2", "--output", self.output)
        self.assertEqual(several.returncode, 1)
        self.assertEqual([text for text in several.stderr.splitlines() if "warning" not in text],
                         [f'{bad}:2: lacks the key "event"',
                          "/nowhere.jsonl: No such file or directory"])
        self.assertRegex(several.stdout, r"(?m)^total +7 +1363 ")
        self.assertEqual(sorted(file.name for file in self.output.iterdir() if file.is_dir()),
                         ["bad", "recording", "recording-2"])
        for folder in ("recording", "recording-2"):
            self.assertEqual(self.written(folder + "/timeline.csv"), timeline)
        self.assertEqual(len(self.written("bad/timeline.csv").splitlines()), 2)
        with open(self.recording) as recording:
            piped = run("replay", "-", "--timeline", "-", stdin=recording)
        self.assertEqual((piped.returncode, piped.stdout), (0, timeline))

    def test_warns_of_old_voices(self):
        result = self.replay([line(4, "observation", person=1, voiceEmotion=late(0.5))])
        self.assertRegex(result.stderr, r"^\S+ \[warning\] velo.zorvel.emotionalstate: "
                         r"Processing old observation from 3.5 s ago of Voice Emotion\n$")

    def test_failures_of_the_system_leave_no_files(self):
        def small_files():
            signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
            resource.setrlimit(resource.RLIMIT_FSIZE, (1000, 1000))

        result = self.replay(everything(), preexec_fn=small_files)
        self.assertEqual(result.returncode, 1)
        self.assertEqual(result.stderr, f"{self.output}/timeline.csv: File too large\n")
        self.assertEqual(list(self.folder.iterdir()), [self.recording])

        self.output = self.recording / "x"
        blocked = self.replay([])
        self.assertEqual(blocked.returncode, 1)
        self.assertIn("cannot make the folder", blocked.stderr)

    def test_hostile_files(self):
        directory = run("replay", self.folder)
        self.assertEqual((directory.returncode, directory.stderr),
                         (1, f"{self.folder}: Is a directory\n"))

        fifo = self.folder / "fifo"
        os.mkfifo(fifo)
        with subprocess.Popen([TOOL, "replay", fifo, "-q", "-o", self.output],
                              stderr=subprocess.PIPE) as process:
            with contextlib.suppress(BrokenPipeError), open(fifo, "wb", 0) as pipe:
                pipe.write(b'{"time":5,"event":"start_recording","person":1,"scope":"/../../x"}\n')
                pipe.write(b'{"time":6,"event":"stop_recording","person":1,"scope":"/../../x"}\n')
                for _ in range(400):
                    pipe.write(b"[" * 1_000_000)  # one line
            message = process.stderr.read().decode()
            _, status, usage = os.wait4(process.pid, 0)
            process.returncode = os.waitstatus_to_exitcode(status)
        self.assertEqual(process.returncode, 1)
        self.assertEqual(message, f"{fifo}:3: longer than 16777216 bytes\n")
        self.assertLess(usage.ru_maxrss, 300_000)  # kB: less than the line
        # A scope's name is text and nothing else.
        self.assertIn(",1,/../../x,neutral,0,", self.written("scopes.csv"))
        self.assertEqual(sorted(file.name for file in self.output.iterdir()),
                         ["ambiance.csv", "scopes.csv", "timeline.csv"])

        self.recording.write_text(lines(line(0, "not_seen", person=1)))
        with open("/dev/full", "wb") as full:
            disk = run("replay", self.recording, "--timeline", "-", stdout=full)
        self.assertEqual(disk.returncode, 1)

    def test_an_interrupt_leaves_no_files(self):
        with subprocess.Popen([TOOL, "replay", "-", "--output", str(self.output)],
                              stdin=subprocess.PIPE) as process:
            process.stdin.write(lines(line(0, "movement")).encode())
            process.stdin.flush()
            self.wait_until(lambda: self.output.exists() and any(self.output.iterdir()))
            # Asleep, it waits for a line. The thread sanitizer keeps back a signal that comes before.
            status = pathlib.Path(f"/proc/{process.pid}/status")
            self.wait_until(lambda: "State:\tS" in status.read_text())
            process.send_signal(signal.SIGINT)
            self.assertEqual(process.wait(), -signal.SIGINT)
        self.assertEqual(list(self.folder.iterdir()), [])
