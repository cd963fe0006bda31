"""Cuts and annotates recordings, and replays what comes of it."""

import csv
import datetime
import decimal
import json
import re
import unittest
import zlib

import tool
from tool import START, new_folder, rows, run

EMOTIONS = {"touchEmotion", "asrEmotion", "voiceEmotion", "contextEmotion"}
HEADER = b'{"event":"header","version":1}\n'
MARK = b"\xef\xbb\xbf"


def line(seconds, event, person=None, scope=None, samples=None):
    keys = {"person": person, "scope": scope, "samples": samples}
    given = {key: value for key, value in keys.items() if value is not None}
    return json.dumps(tool.line(seconds, event, **given), ensure_ascii=False,
                      separators=(",", ":")).encode() + b"\n"


def table(*rows):
    return "\n".join(["person,scope,begin,end", *rows])


class CutTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = new_folder(cls.addClassCleanup)
        cls.scene = run("simulate", "--seconds", "120", text=False).stdout
        cls.whole = cls.replayed(cls.scene)

    @classmethod
    def replayed(cls, recording):
        """The rows of timeline.csv, scopes.csv and ambiance.csv."""
        results = cls.folder / "results"
        run("replay", "-", "-q", "-o", results, input=recording, text=False, check=True)
        return [rows(results / f"{name}.csv") for name in ("timeline", "scopes", "ambiance")]

    def run_tool(self, command, recording, *arguments):
        return run(command, "-", *arguments, input=recording, cwd=self.folder, text=False)

    def cut(self, recording, *options):
        result = self.run_tool("cut", recording, *options)
        self.assertEqual((result.returncode, result.stderr), (0, b""))
        return result.stdout

    def annotated(self, recording, scopes):
        (self.folder / "scopes.csv").write_text(scopes)
        result = self.run_tool("annotate", recording, "scopes.csv")
        self.assertEqual((result.returncode, result.stderr), (0, b""))
        return result.stdout

    def assert_fails(self, command, recording, arguments, message, status=1):
        path = self.folder / "output"
        result = self.run_tool(command, recording, *arguments, "-o", path)
        self.assertEqual(result.returncode, status)
        self.assertIn(message, result.stderr.decode())
        self.assertFalse(path.exists())

    def test_a_whole_recording_keeps_its_bytes(self):
        lines = self.scene.splitlines(keepends=True)
        blank = b"\n \t\n".join([b"", *lines[:9], b" "])
        for whole in (self.scene, self.scene.rstrip(), b"".join(lines[1:]), blank, MARK + blank,
                      MARK + lines[1], self.scene.replace(b"\n", b"\r\n"),
                      MARK + blank.replace(b"\n", b"\r\n").rstrip()):
            self.assertEqual(self.cut(whole), whole)
            self.assertEqual(self.annotated(whole, table()), whole)

    def test_opens_and_closes_what_reaches_over_an_edge(self):
        before = [
            *(line(0, "start_recording", person, scope, samples) for person, scope, samples in (
                (1, "limited", 3), (1, "open", None), (2, "closed", None), (4, "spent", 1),
                (4, "dropped", 0), (6, "removed", None))),
            line(0, "not_seen", 1), line(0, "not_seen", 4), line(1, "not_seen", 1),
            line(1, "not_seen", 3), line(1, "stop_recording", 2, "closed"), line(1, "remove", 6)]
        span = [line(2, "not_seen", 1), b"\r\n", line(0.5, "movement"), line(2.5, "not_seen", 5),
                line(2.5, "not_seen", 6), line(2.6, "remove", 6), line(3, "not_seen", 1)]
        after = [line(0, "activity").replace(b"}", b',"value":1}'), line(3.5, "not_seen", 1)]
        whole = MARK + HEADER + b"".join(before + span + after[1:])
        opening = [line(2, "start_recording", 1, "limited", 1),
                   line(2, "start_recording", 1, "open"),
                   line(2, "start_recording", 4, "spent", 0)]
        closing = [line(3.2, "stop_recording", 1, "open"), line(3.2, "remove", 1),
                   line(3.2, "stop_recording", 4, "spent"), line(3.2, "remove", 4),
                   line(3.2, "remove", 5)]
        head = MARK + HEADER.replace(b"}", b',"origin":%d}' % START)  # where the whole begins
        kept = head + b"".join(opening + span)
        self.assertEqual(self.cut(whole, "--from", "2", "--to", "3.2"), kept + b"".join(closing))
        self.assertEqual(self.cut(whole, "--from", "3", "--to", "3", "--lead-in", "1"),
                         kept + b"".join(closing).replace(b"003200000000", b"003000000000"))
        # An edge of the recording itself is none; an early line does not end the span.
        self.assertEqual(self.cut(whole, "--from", "2", "--to", "3.5"), kept + after[1])
        self.assertEqual(self.cut(MARK + HEADER + b"".join(before + span + after[:1]),
                                  "--from", "2", "--to", "3"), kept + after[0])
        self.assertEqual(self.cut(whole, "--from", "2", "--to", "3.2", "--person", "5"),
                         head + span[3] + closing[4])
        self.assertEqual(self.cut(whole, "--person", "5"), head + span[3])
        # Without a header, one comes in. A second is the same in what is cut again.
        bare = b"".join(before + span)
        part = self.cut(bare, "--from", "2")
        self.assertEqual(part, kept.replace(MARK, b""))
        self.assertEqual(self.cut(part, "--from", "2.5"), self.cut(bare, "--from", "2.5"))
        # A double has no nanoseconds after 100 days.
        late = [before[6], *(line(8_640_000, "not_seen", 1).replace(b"000,", b"%03d," % last)
                             for last in (1, 2))]
        self.assertEqual(self.cut(b"".join(late), "--from", "2400:00:00.000000002"),
                         head.replace(MARK, b"") + late[2])

    def test_people_who_come_within_the_cut_are_as_in_the_whole(self):
        self.assertEqual(self.cut(self.scene, "--from", "60", "--to", "100", "--lead-in", "20"),
                         self.cut(self.scene, "--from", "40", "--to", "100"))
        timeline, scopes, _ = self.replayed(self.cut(self.scene, "--from", "40", "--to", "100"))
        # Who was removed within the cut has nothing left from before it.
        anew = [row for row in timeline if row.pop("visit") != "1"]
        begins = {row["person"]: int(row["time"]) for row in reversed(anew)}
        self.assertEqual(begins.keys(), {"1", "2", "3"})
        whole = {(row["time"], row["person"]): row for row in self.whole[0]}
        for row in anew:
            self.assertEqual({**row, "visit": None},
                             {**whole[row["time"], row["person"]], "visit": None})
        columns = ("time", "person", "scope", "label", "samples", "mean_valence", "mean_confidence")
        start = int(self.whole[0][0]["time"])
        within = [row for row in self.whole[1]
                  if int(row["time"]) <= START + 100 * 10**9 and
                  start + float(row["begin"]) * 1e9 >= begins[row["person"]]]
        self.assertGreater(len(within), 2)
        told = [[row[column] for column in columns] for row in scopes]
        for row in within:
            self.assertIn([row[column] for column in columns], told)
        self.assertNotIn("error", [row["label"] for row in scopes])

    def test_with_states_it_has_the_rows_of_the_whole(self):
        def remaining(tables, time):
            return [[{name: row[name] for name in row.keys() - {"visit"}}
                     for row in table if int(row["time"]) >= time] for table in tables]

        start = json.loads(self.scene.splitlines()[1])["time"]
        for seconds in (0, 0.05, 3.7, 20, 61.9, 100):
            cut = self.cut(self.scene, "--from", str(seconds + 2), "--lead-in", "2", "--keep-state")
            expected = remaining(self.whole, start + round(seconds * 10**9))
            self.assertEqual(remaining(self.replayed(cut), 0), expected)
            # A cut of the cut is one of the whole, in which restored scopes are closed, too.
            for options in (["--from", str(seconds + 4.4)],
                            ["--from", str(seconds), "--to", str(seconds + 4)]):
                self.assertEqual(*(self.cut(text, *options, "--keep-state")
                                   for text in (cut, self.scene)))
            own = self.cut(cut, "--person", "2", "--from", str(seconds + 0.1), "--keep-state")
            self.assertEqual({json.loads(text).get("person") for text in own.splitlines()[1:]}, {2})
        # So are its explanations, which count what is remembered.
        self.assertEqual(*(self.run_tool("explain", text, "--at", "100.5").stdout
                           for text in (cut, self.scene)))
        # The scopes of a table open after the states, even those that begin earlier.
        told = self.replayed(self.annotated(cut, table("1,new,99,101", "2,new,100,101")))[1]
        for person in "12":
            times = [row["seconds"] for row in self.whole[0]
                     if row["person"] == person and 100 <= float(row["seconds"]) <= 101]
            self.assertIn(("new", person, times[0], str(len(times))), [
                (row["scope"], row["person"], row["begin"], row["samples"]) for row in told])
        (self.folder / "scopes.csv").write_text(table("1,new,0,999"))
        self.assert_fails("annotate", line(0, "not_seen", 1) + cut.split(b"\n", 1)[1], ["scopes.csv"],
                          ':2: column "end": is after person 1 is restored')

    def test_a_state_is_taken_as_it_was_saved_or_not_at_all(self):
        lines = self.cut(self.scene, "--from", "20", "--keep-state").splitlines(keepends=True)
        good = next(text for text in lines if b'"restore","person":1,' in text)
        begin = good.index(b'{"version"')

        def changed(old, new):
            """With a checksum that fits."""
            state = re.sub(old, new, good[begin:good.index(b',"checksum"')], count=1)
            return good[:begin] + state + b',"checksum":"%08x"}}\n' % zlib.crc32(state)

        self.assertEqual(changed(b"x", b"x"), good)
        for bad, message in (
                (good.replace(b'"version":1', b'"version":2'), "state.version: must be 1"),
                (good.replace(b'"headHeight":', b'"headHeight":1'), "checksum: does not fit"),
                (re.sub(b',"checksum":"[^"]*"', b"", good), 'state: lacks the key "checksum"'),
                (good.replace(b'"restore","person":1', b'"restore"'), 'lacks the key "agitation"'),
                (changed(b'"valence":{"value":[^,]*', b'"valence":{"value":1.5'),
                 "state: valence.value is 1.5"),
                (changed(b'"memory":\\[({.*?}),{"time"', b'"memory":[\\1,\\1,{"time"'), "out of order"),
                (changed(b'"recorded":\\[\\[[0-9]*,', b"\\g<0>0,"), "must have a time and four numbers"),
                (changed(b'"scopes":\\[({.*})', b'"scopes":[\\1,\\1'), "is given twice")):
            result = self.run_tool("replay", bad, "-q", "-o", self.folder / "results")
            self.assertIn(message, result.stderr.decode())
            self.assertEqual(result.returncode, 1)
        # Whichever byte is changed: it is refused, or the number stays the same.
        text = bytearray()
        for place in range(begin, len(good) - 2, len(good) // 500):
            other = bytes([good[place] ^ 1])
            text += good + good[:place] + other + good[place + 1:] + line(20, "observation", 1)
        result = run("live", "--clock", "recording", input=bytes(text), text=False)
        states = result.stdout.splitlines()
        self.assertGreater(int(re.search(b"bad lines skipped: (\\d+)", result.stderr)[1]), 490)
        self.assertGreater(len(states), 490)
        self.assertEqual(len(set(states)), 1)

    def test_every_keeps_one_for_each_interval_and_the_rare_ones(self):
        expected, last = [], {}
        origin = START + 12_100_000_000
        scene = self.scene.replace(b"}", b',"origin":%d}' % origin, 1)
        for text in scene.splitlines():
            event = json.loads(text)
            if event["event"] not in ("observation", "not_seen") or event["time"] < START + 10**10:
                continue
            key = event["person"], event["event"]
            interval = (event["time"] - origin) // 300_000_000
            if last.get(key) != interval or EMOTIONS & event.keys():
                expected.append(text)
            last[key] = interval
        self.assertTrue(any(EMOTIONS & json.loads(text).keys() for text in expected))
        self.assertEqual([text for text in self.cut(scene, "--from", "-2.1", "--every",
                                                    "0.3").splitlines()
                          if b'"observation"' in text or b'"not_seen"' in text], expected)

    def test_one_person_under_several_ids(self):
        # Person 1 of the scene is 9 for a while, to a tracker that never lets go of an id.
        split = []
        for text in self.scene.splitlines(keepends=True):
            event = json.loads(text)
            if event.get("person") != 1 or "scope" in event:
                split.append(text)
                continue
            person = 1 if event["time"] % (60 * 10**9) < 40 * 10**9 else 9
            split.append(text.replace(b'"person":1,', b'"person":%d,' % person)
                         .replace(b'"person":1}', b'"person":%d}' % person))
            if event["event"] == "observation":
                split += [line((event["time"] - START) / 1e9, name, 10 - person)
                          for name in ("not_seen", "remove")]
        joined = self.cut(b"".join(split), "--rename", "9=1", "--rename", "7=8")
        self.assertEqual(self.replayed(joined), self.whole)
        one, three, again = (line(second, "observation", second % 2 * -2 + 3) for second in (1, 2, 3))
        scope = line(2, "start_recording", 1, "s")
        told = line(3, "rename", 3).replace(b"}", b',"to":1}')
        self.assertEqual(self.cut(one + three + told, "--rename", "3=1"),
                         one + three.replace(b"3}", b"1}"))
        # The header waits for the first line, which may be another then, or none.
        self.assertEqual(self.cut(HEADER + one.replace(b"1}", b"3}"), "--rename", "3=1"), HEADER + one)
        self.assertEqual(self.cut(HEADER + told + line(4, "observation", 3), "--rename", "3=1"),
                         HEADER.replace(b"}", b',"origin":%d}' % (START + 3 * 10**9))
                         + line(4, "observation", 1))
        for lines, message in ((one + one.replace(b"1}", b"3}"), "-:2: person 3 overlaps person 1 in"),
                               (one + three + again, "-:3: person 1 overlaps person 3 in line 2"),
                               (scope + scope.replace(b"1,", b"3,"), "-:2: person 3 overlaps")):
            self.assert_fails("cut", lines, ["--rename", "3=1"], message)
        for names, message in (("3=1x", "is not like 3=1"), ("1=2", "person 1 is renamed, too")):
            self.assert_fails("cut", one, ["--rename", "3=1", "--rename", names], message, 2)

    def test_errors_of_a_cut(self):
        lines = [HEADER, *(line(second, "not_seen", 1) for second in (0, 1, 4.0009)), b"oops\n"]
        whole = b"".join(lines)
        good = b"".join(lines[:-1])
        length = "the recording is 4.000 s long"
        self.assertEqual(self.cut(whole, "--to", "2").count(b"\n"), 4)
        for recording, options, message in (
                (whole, ["--to", "9"], "-:5: not JSON"),
                (good, ["--from", "4.1"], f"-: that is after the end; {length}"),
                (good, ["--from", "2", "--to", "3"], f"-: there is no event there; {length}"),
                (good, ["--from", "2", "--to", "3", "--lead-in", "2"], f"no event there; {length}"),
                (good, ["--person", "2"], f"-: person 2 has no event there; {length}"),
                (HEADER, [], "no event there; the recording is 0.000 s long"),
                # As far apart as times can be.
                (HEADER.replace(b"}", b',"origin":%d}' % 2**62) +
                 line(0, "not_seen", 1).replace(b"%d" % START, b"%d" % -2**62), ["--from", "0"],
                 "after the end; the recording is 0.000 s long, from -9223372036.855 to")):
            self.assert_fails("cut", recording, options, message)
        self.assert_fails("cut", good, ["--from", "3", "--to", "2"], "is after --to", 2)
        self.assert_fails("cut", good, ["--every", "0"], "is not above 0", 2)

    def test_annotations_cover_their_ends(self):
        cycles = [line(second, "not_seen", 1) for second in (0, 1, 2)]
        gone = line(3, "remove", 1) + line(3, "not_seen", 1)
        late = line(1.5, "not_seen", 2).rstrip()

        def scope(kind, seconds, name, person=1):
            return line(seconds, f"{kind}_recording", person, name)

        date = datetime.datetime.fromtimestamp(START / 1e9 + 2.25, datetime.timezone.utc)
        scopes = ("end;note;Scope;person;begin\n1;;a;1;0\n0:02;;b;1;0:00:01\n"
                  f"2,5;;c;1;{date:%Y-%m-%dT%H:%M:%S.%fZ}\n3;;a;1;1,5\n9;;é;2;3\n")
        expected = MARK + HEADER + b"".join([
            scope("start", 0, "a"), cycles[0], scope("start", 1, "b"), cycles[1],
            scope("stop", 1, "a"), scope("start", 1.5, "a"), cycles[2], scope("stop", 2, "b"),
            scope("start", 2.25, "c"), scope("stop", 2.5, "c"), scope("start", 3, "é", 2),
            scope("stop", 3, "a"), gone, late, b"\n", scope("stop", 3, "é", 2)])
        for last in (late, late + b"\n"):
            recording = MARK + HEADER + b"".join([*cycles, gone, last])
            self.assertEqual(self.annotated(recording, scopes), expected)

    def test_a_row_is_of_one_id(self):
        before = line(0, "start_recording", 2, "own") + line(1, "not_seen", 2)
        renaming = line(3, "rename", 2).replace(b"}", b',"to":7}')
        recording = before + renaming + line(4, "not_seen", 2) + line(5, "not_seen", 7)
        (self.folder / "scopes.csv").write_text(table("2,a,2,4.5", "7,b,2,3.5", "7,c,3.5,4"))
        result = self.run_tool("annotate", recording, "scopes.csv")
        self.assertIn(b"renamings part 1 row into 2 scopes", result.stderr)
        self.assertEqual(result.stdout, b"".join([
            before, line(2, "start_recording", 2, "a"), line(2, "start_recording", 7, "b"),
            line(3, "stop_recording", 2, "a"), renaming, line(3.5, "start_recording", 7, "c"),
            line(3.5, "stop_recording", 7, "b"), line(4, "start_recording", 2, "a"),
            line(4, "not_seen", 2), line(4, "stop_recording", 7, "c"),
            line(4.5, "stop_recording", 2, "a"), line(5, "not_seen", 7)]))
        stop = line(6, "stop_recording", 7, "own")
        self.assertEqual([(row["scope"], row["begin"], row["samples"], row["visit"])
                          for row in self.replayed(result.stdout + stop)[1]],
                         [("a", "2", "0", "1"), ("b", "2", "0", "1"), ("c", "3.5", "0", "1"),
                          ("a", "4", "1", "2"), ("own", "0", "2", "1")])
        (self.folder / "scopes.csv").write_text(table("7,own,2,3"))
        self.assert_fails("annotate", recording, ["scopes.csv"], ":2: overlaps a scope of the recording")

    def test_a_second_is_the_same_everywhere(self):
        """A film whose only face comes after 10 s, is lost for a while, and comes back."""
        start = 4 * 10**18 + 123_456_789
        faces = [(0, 0), (10.1, 1), ("12.000000001", 1), ("12.000000002", 1), (13, 1), (17.1, 0),
                 (20, 1), (21, 1)]
        frames = "frame,timestamp,confidence,success\n" + "".join(
            f"{number},{second},1,{face}\n" for number, (second, face) in enumerate(faces))
        film = run("import", "openface", "-", "-q", f"--start={start}", input=frames.encode(),
                   text=False).stdout
        (self.folder / "scopes.csv").write_text(table(
            "0,a,-0:00.0000000004,12", "0,b,2.0000000009,10.9", "0,b,11,12"))
        result = self.run_tool("annotate", film, "scopes.csv", "--offset", "10")
        self.assertEqual(result.stderr.decode(), "scopes.csv: warning: removals or renamings part 2 "
                         "rows into 4 scopes, one for each visit of the person; the first is line 2\n")
        for options, cycles, begin in (([], 6, "10"), (["--from", "12.000000001"], 5, "12.000000001"),
                                       (["--every", "0:03"], 4, "10")):
            recording = self.cut(result.stdout, *options)
            timeline, scopes, _ = self.replayed(recording)
            with self.subTest(options=options):
                self.assertEqual(len(timeline), cycles)
                path = self.folder / "film.jsonl"
                path.write_bytes(recording)
                tool.recalculated(path, self.folder / "results")
                for row in timeline:
                    self.assertEqual(int(row["time"]) - start,
                                     round(decimal.Decimal(row["seconds"]) * 10**9))
                self.assertEqual(
                    [" ".join((row["scope"], row["begin"], row["end"], row["visit"])) for row in scopes],
                    [f"a {begin} 17.1 1", "b 12.000000001 17.1 1", "b 20 20.9 2", "a 20 21 2",
                     "b 21 21 2"])
                told = run("explain", path, "--at", "12.000000001", "--json").stdout
                self.assertEqual(json.loads(told)["time"], start + 12_000_000_001)
                self.assertIn(f'"zero":"{start}"', run("report", path, "-o", "-").stdout)
                self.assertEqual(json.loads(run("info", path, "--json").stdout)["origin"], start)
                first = float(timeline[0]["seconds"])
                self.assertRegex(run("info", path).stdout, r"second 0 is the header's origin, .* "
                                 rf"\({start}\)\n(.*\n)+ +person .*\n +0 .* {first:.3f} +21.000 ")

    def test_a_replays_own_scopes_are_a_table(self):
        bare = b"".join(text for text in self.scene.splitlines(keepends=True)
                        if b"_recording" not in text)
        with open(self.folder / "own.csv", "w", newline="") as file:
            writer = csv.DictWriter(file, self.whole[1][0])
            writer.writeheader()
            writer.writerows(self.whole[1])
        annotated = self.annotated(bare, (self.folder / "own.csv").read_text())
        columns = ("person", "scope", "label", "samples", "mean_valence", "mean_confidence")
        self.assertEqual([[row[column] for column in columns] for row in self.replayed(annotated)[1]],
                         [[row[column] for column in columns] for row in self.whole[1]])

    def test_errors_of_a_table(self):
        recording = HEADER + b"".join([
            line(0, "not_seen", 1), line(1, "start_recording", 1, "own"), line(2, "not_seen", 2),
            line(3, "stop_recording", 1, "own"), line(4, "remove", 2),
            line(4.5, "start_recording", 2, "own"), line(5, "not_seen", 2)])
        ok = "1,a,1,2"
        for bad, message in (
                (["1,a,2,3", "2,a,1,3", "1,b,1,3", "1,a,0,2"], ":2: overlaps line 5, which has"),
                ([ok, "1,own,3,4"], ':3: column "begin": the recording has a scope of that name'),
                ([ok, "1,own,0.5,1"], ":3: overlaps a scope of the recording with the same person "
                                      "and name, at 1.000 s"),
                ([ok, "3,a,1,2"], ':3: column "person": 3 is not in the recording'),
                (["1,a,2,1"], ':2: column "end": is before begin'),
                (["1,a,5.1,6"], ':2: column "begin": is after the end of the recording, which is '
                                "5.000 s long"),
                (["1,a,2023-11-14T22:13:19Z,2"], ':2: column "begin": is before the start'),
                (["2,a,4.1,4.9"], ':2: column "person": 2 is not there between begin and end'),
                (["2,own,2,5"], ":2: overlaps a scope of the recording with the same person and "
                                "name, at 5.000 s"),
                (["1,a,0,9223372036"], ':2: column "end": "9223372036" is neither seconds'),
                ([ok, "1,b,1700000000000000000,2"], ':3: column "begin": "1700000000000000000" is'),
                ([ok, "1,b,1:60,2"], ':3: column "begin": "1:60" is neither seconds, nor like'),
                ([ok, "x,b,1,2"], ':3: column "person": "x" is not a number'),
                (["1,,1,2"], ':2: column "scope": must have a name'),
                (["1,\udcff,1,2"], ':2: column "scope": "\\xff" is not UTF-8'),
                ([ok, "1,b,1"], ":3: has 3 cells instead of 4")):
            with self.subTest(bad=bad):
                (self.folder / "bad.csv").write_text(table(*bad), errors="surrogateescape")
                self.assert_fails("annotate", recording, ["bad.csv"], "bad.csv" + message)
                self.assertEqual(self.run_tool("annotate", recording, "bad.csv").stdout, b"")
        self.assert_fails("annotate", recording, ["-"], "can be read only once", 2)
        (self.folder / "good.csv").write_text(table(ok, "1,a,2.1,3", "1,own,3.1,9", "2,a,1,4"))
        self.assert_fails("annotate", recording + b"oops", ["good.csv"], "-:9: not JSON")
        self.assertEqual(self.run_tool("annotate", recording, "good.csv").returncode, 0)
