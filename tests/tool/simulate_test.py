"""Simulates scenes, and looks at what comes of them."""

import json
import subprocess

from tool import TOOL, FolderTest, recalculated, rows, run


def simulate(*options):
    return run("simulate", *map(str, options), check=True)


class SimulateTest(FolderTest):
    def test_the_seed_decides_every_byte(self):
        file = self.folder / "scene.jsonl"
        told = simulate("--seed", 5, "--output", file)
        self.assertEqual((told.stdout, told.stderr, list(self.folder.iterdir())),
                         ("", "", [file]))
        self.assertEqual(file.read_text(), simulate("--seed", 5).stdout)
        self.assertNotEqual(file.read_text(), simulate("--seed", 6).stdout)

    def test_everything_occurs_and_nothing_looks_wrong(self):
        for people, seed, rate in ((1, 1, 30), (1, 2, 10), (3, 1, 30), (3, 2**63 - 1, 30),
                                   (9, 4, 15)):
            with self.subTest(people=people, seed=seed, rate=rate):
                scene = simulate("--people", people, "--seed", seed, "--rate", rate).stdout
                told = json.loads(run("info", "-", "--json", input=scene).stdout)
                self.assertEqual((told["source"], told["findings"]), ("simulate", []))
                self.assertEqual([name for name, count in told["events"].items() if count == 0],
                                 ["rename", "restore"])
                self.assertAlmostEqual(told["seconds"], 60, delta=0.01)
                self.assertEqual([person["person"] for person in told["persons"]],
                                 list(range(1, people + 1)))
                for person in told["persons"]:
                    self.assertAlmostEqual(person["rate_hz"], rate, delta=0.02 * rate)
                    self.assertEqual(person["gaps"], 0)
                fields = [field for person in told["persons"] for field in person["fields"].items()]
                self.assertEqual(len({name for name, _ in fields}), 15)
                late = [field["lateness_seconds"] for _, field in fields]
                self.assertGreaterEqual(min(each["min"] for each in late), 0)
                late = [field["lateness_seconds"] for name, field in fields if name == "smile"]
                self.assertLess(max(each["median"] for each in late), 0.1)
                self.assertGreater(min(each["max"] for each in late), 0.1)

    def test_its_people_have_every_mood(self):
        recording = self.folder / "scene.jsonl"
        simulate("--output", recording)
        replay = run("replay", "-q", recording, "-o", self.folder)
        self.assertEqual((replay.returncode, replay.stderr), (0, ""))
        recalculated(recording, self.folder)
        timeline, scopes = (rows(self.folder / f"{name}.csv") for name in ("timeline", "scopes"))
        for person in ("1", "2", "3"):
            self.assertEqual({row["mood"] for row in timeline if row["person"] == person},
                             {"-1", "0", "1"})
        self.assertNotIn("error", [row["label"] for row in scopes])

    def test_ends_as_it_should(self):
        with subprocess.Popen([TOOL, "simulate", "--seconds", "100000000"], stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE) as endless:
            self.assertIn(b"header", endless.stdout.readline())
            endless.stdout.close()
            self.assertEqual(endless.stderr.read(), b"")
        for option in (["--people", "0"], ["--seconds", "-1"], ["--rate", "nan"], ["--seed", "-1"]):
            result = run("simulate", *option)
            self.assertEqual((result.returncode, result.stdout), (2, ""), option)
            self.assertIn(option[0], result.stderr)
        result = run("simulate", "-o", self.folder / "no" / "file")
        self.assertEqual(result.returncode, 1)
        self.assertIn("No such file", result.stderr)
