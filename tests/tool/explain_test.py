"""Asks why states moved, and checks that the answers agree."""

import json
import re
import struct
import unittest

import tool
from tool import SOURCE, lines, new_folder, rows

QUANTITIES = ["valence", "valence_confidence", "attention", "attention_confidence"]


def single(number):
    return struct.unpack("f", struct.pack("f", float(number)))[0]


def run(*arguments, status=0):
    result = tool.run(*arguments)
    assert result.returncode == status, result.stderr
    return result.stderr if status else result.stdout


class ExplainTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = new_folder(cls.addClassCleanup)
        cls.recording = folder / "scene.jsonl"
        run("simulate", "--seconds", "60", "--output", cls.recording)
        run("replay", cls.recording, "-q", "--forces", "--output", folder)
        cls.events = list(map(json.loads, cls.recording.read_text().splitlines()))[1:]
        cls.forces, cls.timeline = (rows(folder / f"{name}.csv") for name in ("forces", "timeline"))

    def explained(self, *options):
        return [json.loads(line)
                for line in run("explain", self.recording, "--json", *options).splitlines()]

    def test_forces_chain_and_end_at_the_timelines_values(self):
        forces = iter(self.forces)
        force = next(forces)
        cycles = iter(self.timeline)
        persons = {}
        reasons = set()
        for event in self.events:
            if event["event"] == "remove":
                persons.pop(str(event["person"]), None)
            if event["event"] not in ("observation", "not_seen"):
                continue
            row = next(cycles)
            values = persons.setdefault(row["person"], dict.fromkeys(QUANTITIES, "0"))
            while force and (force["time"], force["person"]) == (row["time"], row["person"]):
                self.assertEqual(force["before"], values[force["quantity"]], force)
                before, target, strength = (single(force[key])
                                            for key in ("before", "target", "strength"))
                after = single(before + single(single(target - before) * strength))
                lowest = -1.0 if force["quantity"] == "valence" else 0.0
                self.assertEqual(max(lowest, min(1.0, after)), single(force["after"]), force)
                values[force["quantity"]] = force["after"]
                reasons.add(force["reason"])
                force = next(forces, None)
            self.assertEqual(values, {name: row[name] for name in QUANTITIES})
        self.assertIsNone(force)
        header = (SOURCE / "include/zv/force.hpp").read_text()
        known = set(re.findall(r'ForceReason \w+\{\s*"([^"]+)"', header))
        self.assertEqual(reasons, known - {"Winner unknown"})

    def test_live_gives_the_same_forces(self):
        states = tool.run("live", "--clock", "recording", "--explain",
                          input=self.recording.read_text()).stdout
        told = [[str(value["time"]), str(value["person"]), force["quantity"], force["reason"],
                 *(single(force[key]) for key in ("target", "strength", "before", "after"))]
                for value in map(json.loads, states.splitlines()) for force in value.get("forces", [])]
        written = [[*list(force.values())[:4], *map(single, list(force.values())[4:])]
                   for force in self.forces]
        self.assertEqual(told, written)

    def test_explains_moments_and_spans(self):
        start = self.events[0]["time"]
        moment = self.explained("--person", "1", "--at", "0:20.5")
        self.assertEqual([person["person"] for person in moment], [1])
        time = max(int(row["time"]) for row in self.timeline
                   if row["person"] == "1" and int(row["time"]) <= start + 20.5e9)
        self.assertEqual(moment[0]["time"], time)
        for answer in [*moment, *self.explained("--from", "10", "--to", "20")]:
            for quantity in QUANTITIES:
                moves = answer[quantity]
                for part in ("up", "down"):
                    self.assertAlmostEqual(sum(reason[part] for reason in moves["reasons"]),
                                           moves[part], 4)
                self.assertAlmostEqual(moves["up"] - moves["down"],
                                       moves["after"] - moves["before"], 4)

    def test_lists_the_greatest_changes_and_the_readings_behind_them(self):
        changes = self.explained("--greatest", "2")
        self.assertEqual([change["quantity"] for change in changes],
                         ["valence", "valence", "attention", "attention"])
        for change in changes:
            before, *_, after = (single(row[change["quantity"]]) for row in self.timeline
                                 if row["person"] == str(change["person"])
                                 and change["from"] <= int(row["time"]) <= change["to"])
            self.assertEqual((before, after), (single(change["before"]), single(change["after"])))
            self.assertLessEqual(change["to"] - change["from"], 10**9)
            moved = sum(reason["up"] - reason["down"] for reason in change["reasons"])
            self.assertAlmostEqual(moved, after - before, 4)
        sizes = [abs(change["after"] - change["before"]) for change in changes]
        self.assertTrue(sizes[0] >= sizes[1] and sizes[2] >= sizes[3])
        only = self.explained("--greatest", "1", "--person", "2")
        self.assertEqual({change["person"] for change in only}, {2})
        for source in ("-", "/dev/null"):
            self.assertIn("reads the recording twice",
                          run("explain", source, "--greatest", "1", status=2))
        for command in ("explain", "cut"):
            self.assertIn("person 10 has no", run(command, self.recording, "--person", "010", status=1))
        self.assertIn("person 99 has no cycle", run("explain", self.recording, "--greatest", "1",
                                                    "--person", "99", status=1))

        # A posture every second: the one from the future counts, the one of 7.5 s ago does not.
        seen = [{"event": "observation", "time": second * 10**9, "person": 1,
                 "headPosture": {"yaw": second, "pitch": -1, "roll": 0}} for second in range(9)]
        seen[-1]["time"] -= 500_000_000
        seen[-1]["headPosture"]["time"] = 9 * 10**9
        seen[-1]["touchEmotion"] = {"value": 2}
        path = self.recording.with_name("postures.jsonl")
        path.write_text(lines(*seen))
        told = run("explain", path, "--at", "7.5")
        self.assertIn("\n      headPosture yaw 8°, pitch −1°, roll 0°, the newest of 8\n", told)
        self.assertIn("\n      touchEmotion 2\n", told)

    def test_shows_what_mattered(self):
        """What a replay of the recording without the field gives, whatever the jobs."""
        every = run("explain", self.recording, "--without", "all", "--json", "--jobs", "3")
        answers = list(map(json.loads, every.splitlines()))
        self.assertEqual(len(answers), 3 * 15)
        for field in ("headPosture", "smile"):
            left = [{key: value for key, value in event.items() if key != field}
                    for event in self.events]
            path = self.recording.with_name("without.jsonl")
            path.write_text(lines(*left))
            run("replay", path, "-q", "--timeline", path.with_suffix(".csv"))
            told = run("explain", self.recording, "--without", field, "--json", "--jobs", "1")
            self.assertEqual(list(map(json.loads, told.splitlines())),
                             [answer for answer in answers if answer["without"] == field])
            pairs = list(zip(self.timeline, rows(path.with_suffix(".csv")), strict=True))
            for answer in map(json.loads, told.splitlines()):
                own = [pair for pair in pairs if pair[0]["person"] == str(answer["person"])]
                for name in QUANTITIES:
                    moved = {float(before["seconds"]): single(after[name]) - single(before[name])
                             for before, after in own}
                    self.assertAlmostEqual(sum(map(abs, moved.values())) / len(own),
                                           answer[f"{name}_mean_change"], 6)
                    greatest = max(moved.values(), key=abs)
                    self.assertAlmostEqual(greatest, answer[f"{name}_change"], 6)
                    self.assertEqual(moved.get(answer[f"{name}_change_at"], 0.0), greatest)
                for name, label in (("other_mood", lambda row: row["mood"]),
                                    ("other_attentive", lambda row: float(row["attention"]) > 0.5)):
                    self.assertEqual(sum(label(one) != label(other) for one, other in own) / len(own),
                                     answer[name])

        # Without expressions a smile counts from (0.86178476 - 0.50614434) / (2.93997 + 5.80814) = 0.0407.
        for smile, told in ((0.03, "nothing: it came nearest with 0.03; with those expressions a smile counts "
                             "from 0.0407\n"), (0.05, " 100.0 % ")):
            face = {"event": "observation", "time": 0, "person": 1, "distance": {"value": 0.5},
                    "smile": {"value": smile, "confidence": 1}, "expressions": {}}
            text = tool.run("explain", "-", "--without", "all", input=lines(face)).stdout
            self.assertIn(told, text)
            for reason in ("age            nothing: no reading of it\n",
                           "distance       nothing: it reached 0.5 m; it lowers confidences from about 1.4 m on"):
                self.assertIn(reason, text)

    def test_times_are_exact_and_the_removed_begin_anew(self):
        cycles = [{"event": "not_seen", "time": k * 100_000_000 + (400_000 if k == 5 else 0),
                   "person": 1} for k in range(10)]
        cycles.insert(8, {"event": "remove", "time": 750_000_000, "person": 1})

        def result(*options):
            return tool.run("explain", "-", *options, input=lines(*cycles) + "oops")

        def explain(*options):
            return result(*options).stdout.splitlines()[0]

        for at, told in (("0.3", "0.300"), ("0.6", "0.600"), ("0.7", "0.700"), ("0.5", "0.400"),
                         ("0.501", "0.501"), ("0:00.899", "0.800")):
            self.assertEqual(explain("--at", at), f"person 1 at {told} s")
        # The bad line comes after each moment within the recording; at 0.76 s nobody is there.
        self.assertEqual(result("--at", "0.9").stderr, "")
        self.assertEqual(result("--at", "0.901").stderr, "-:12: not JSON: Invalid value. (column 1)\n")
        self.assertEqual(result("--at", "0.76").stderr, "-: nobody has a cycle there; the first is at "
                         "0.000 s, the last at 0.900 s; the recording is 0.900 s long\n")
        self.assertEqual(explain("--from", "0.3", "--to", "0.7"),
                         "person 1 from 0.300 to 0.700 s, 5 cycles")
        self.assertEqual(explain(), "person 1 from 0.000 to 0.900 s, 10 cycles, removed and new 1 time")

    def test_who_is_renamed_takes_the_readings_along(self):
        events = [{"event": "observation", "time": 0, "person": 3, "touchEmotion": {"value": 2}},
                  {"event": "observation", "time": 10**8, "person": 1, "touchEmotion": {"value": 1}},
                  {"event": "rename", "time": 2 * 10**8, "person": 3, "to": 1},
                  {"event": "rename", "time": 2 * 10**8, "person": 1, "to": 4},
                  {"event": "observation", "time": 3 * 10**8, "person": 4}]
        # At 0.2 s, the last cycle was under the old id.
        for at, told in (("0.3", "touchEmotion 1, the newest of 2\n"), ("0.2", "person 4 at 0.100 s\n")):
            self.assertIn(told, tool.run("explain", "-", "--at", at, "--person", "4",
                                         input=lines(*events)).stdout)

    def test_says_it_in_words(self):
        angry = {"event": "observation", "time": 0, "person": 1,
                 "smile": {"value": 0, "confidence": 1},
                 "expressions": {"anger": {"value": 1, "confidence": 1}}}
        text = tool.run("explain", "-", "--at", "0", input=lines(angry)).stdout
        self.assertIn("  valence fell from 0 to −0.65:\n"
                      "    the face pulled it towards −1 (strength 0.65), by −0.65\n",
                      text)
        self.assertIn("nobody has a cycle there", run("explain", self.recording, "--from", "99",
                                                       status=1))
        self.assertIn("is after the end; the recording is 59.9", run("explain", self.recording, "--at",
                                                                     "99", status=1))
        stamped = lines(*({**angry, "time": (1_795_767_322 + at) * 10**9} for at in (0, 8)))
        self.assertIn("end, but read as a time since 1970 it is 6.500 s since second 0; the recording is 8",
                      tool.run("explain", "-", "--at", "1795767328.5", input=stamped).stderr)
        self.assertIn("neither seconds nor", run("explain", self.recording, "--at", "1:60",
                                                 status=2))
