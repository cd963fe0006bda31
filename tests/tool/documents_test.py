"""Runs the commands that the documents show, and compares what they list with the code."""

import json
import math
import os
import pathlib
import re
import subprocess
import sys
import unittest

from tool import SOURCE, TOOL, new_folder

sys.path.append(str(SOURCE / "bench"))
import make_bag  # noqa: E402

def elan(tier, participant, annotations):
    """A document with one tier."""
    slots = "".join(f'<TIME_SLOT TIME_SLOT_ID="{edge}{number}" TIME_VALUE="{times[edge == "end"]}"/>'
                    for number, times in enumerate(annotations) for edge in ("begin", "end"))
    parts = "".join(f'<ANNOTATION><ALIGNABLE_ANNOTATION TIME_SLOT_REF1="begin{number}" '
                    f'TIME_SLOT_REF2="end{number}"><ANNOTATION_VALUE>{value}</ANNOTATION_VALUE>'
                    "</ALIGNABLE_ANNOTATION></ANNOTATION>" for number, (*_, value) in enumerate(annotations))
    return (f"<ANNOTATION_DOCUMENT><TIME_ORDER>{slots}</TIME_ORDER><TIER TIER_ID=\"{tier}\" "
            f'PARTICIPANT="{participant}">{parts}</TIER></ANNOTATION_DOCUMENT>')


# The input that the documents speak of. Their sh blocks are run; a command that should fail or has no
# end is in a text block.
FILES = {
    "events.tsv": "onset\tduration\ttrial_type\n2\t1\tgame\n",
    "faces.csv": "frame,timestamp,confidence,success,AU12_r\n1,0,0.9,1,2\n2,0.5,0.9,1,3\n",
    "phases.csv": "person,scope,begin,end\n1,arrival,1.5,3\n",
    "sequence.csv": "frame,timestamp,confidence,success\n1,0,0.9,1\n2,0,0.9,1\n",
    "film.eaf": elan("smiles", "guest", [(2000, 3000, "")]),
    "speaker.csv": "frame,FaceRectX,FaceScore,Pitch,happiness\n0,1,0.9,3,0.8\n1,1,0.9,3,0.7\n",
}
# Films of two minutes, in whose second half the children play a game, with what raters made of them.
for film in range(1, 7):
    def felt(second, film=film):
        return (second >= 60) / 2 + math.sin(second / 2 + film) / 2 + math.sin(second * film) / 4
    FILES[f"raw/p0{film}.csv"] = (
        "frame,timestamp,confidence,success,pose_Rx,pose_Ry,pose_Rz,AU06_r,AU12_r,"
        "AU01_r,AU02_r,AU04_r,AU05_r,AU07_r,AU15_r,AU23_r,AU26_r\n" + "".join(
            f"{frame},{frame / 10},0.9,1,0.1,{(frame < 600) * math.sin(frame / 9 + film) / 2:.4f},0,"
            f"{1.5 + 1.5 * felt(frame / 10):.4f},{1.5 + felt(frame / 10):.4f},"
            f"0,0,{1 - felt(frame / 10):.4f},0,0,0,0,0\n" for frame in range(1200)))
    FILES[f"ratings/p0{film}.csv"] = "seconds,first,second\n" + "".join(
        f"{half / 2},{felt(half / 2 - 1) / 2:.4f},{felt(half / 2 - 1.5) / 2 + 0.1:.4f}\n" for half in range(240))
    FILES[f"tiers/p0{film}.eaf"] = elan("phases", "child", [(0, 59999, "before"), (60000, 119000, "game")])
FILES["participants.csv"] = "recording,robot,age\n" + "".join(
    f"p0{film},{'talks' if film % 2 else 'moves'},{5 + film}\n" for film in range(1, 7))
SIMULATED = ["meeting.jsonl", "recordings/monday.jsonl", "recordings/tuesday.jsonl"]


def program(document):
    """The blocks in Python, one after the other; empty without the module."""
    blocks = re.findall(r"^```python\n(.*?)^```", document.read_text(), re.M | re.S)
    return "\n".join(blocks) if "PYTHON_MODULE" in os.environ else ""


def commands(document):
    """Each command, and the beginning of its output if a text block right below shows it."""
    blocks = re.findall(r"^```sh\n(.*?)^```\n\n(?:```text\n(.*?)^```)?", document.read_text() + "\n",
                        re.M | re.S)
    found = []
    for block, output in blocks:
        lines = [line for line in block.replace("\\\n", "").splitlines()
                 if re.search(r"(^|[|&;('] *|do |-m )zorvel ", line)
                 and ("-m zorvel" not in line or "PYTHON_MODULE" in os.environ)]
        found += [(line, output if line is lines[-1] else "") for line in lines]
    return found


def listed(document, heading, first="`"):
    """The first cell of each row of the table below a heading."""
    table = (SOURCE / "docs" / document).read_text().split(heading)[1].split("\n\n")[0]
    return re.findall(rf"^\| ({first}[^|]+) \|", table, re.M)


class DocumentsTest(unittest.TestCase):
    def run_in(self, folder, command):
        environment = {**os.environ, "PATH": f"{pathlib.Path(TOOL).parent}:/usr/bin:{os.environ['PATH']}",
                       "PYTHONPATH": os.environ.get("PYTHON_MODULE", "")}
        result = subprocess.run(["bash", "-o", "pipefail", "-c", command], cwd=folder, timeout=120,
                                env=environment, stdin=subprocess.DEVNULL, capture_output=True)
        self.assertEqual(result.returncode, 0, result.stderr.decode())
        return result.stdout.decode()

    def test_every_command_works(self):
        documents = (SOURCE / "README.md", *sorted(SOURCE.glob("docs/*.md")))
        shown = {document.name: commands(document) for document in documents}
        programs = {document.name: program(document) for document in documents}
        for name in ("README.md", "import.md", "live.md", "python.md", "report.md"):
            self.assertTrue(shown[name], name)
        for name in (name for name in shown if shown[name] or programs[name]):
            folder = new_folder(self.addCleanup)
            for inner in ("games", "ratings", "raw", "recordings", "session", "tiers"):
                (folder / inner).mkdir()
            make_bag.write_sqlite(folder / "session/session_0.db3", make_bag.scene(5.0, 2))
            for file, text in FILES.items():
                (folder / file).write_text(text)
            for file in SIMULATED:
                self.run_in(folder, f"zorvel simulate --seconds 5 --rate 5 -o {file}")
            for command, output in shown[name]:
                with self.subTest(document=name, command=command):
                    written = self.run_in(folder, command)
                    self.assertEqual(written[:len(output)], output)
            if programs[name]:
                with self.subTest(document=name, language="Python"):
                    (folder / "document.py").write_text(programs[name])
                    self.run_in(folder, "MPLBACKEND=agg python3 -W error document.py")

    def test_every_program_has_the_right_types(self):
        folder = new_folder(self.addCleanup)
        for document in (SOURCE / "README.md", *SOURCE.glob("docs/*.md")):
            (folder / f"{document.stem.replace('-', '_')}.py").write_text(program(document))
        self.run_in(folder, f"MYPYPATH={SOURCE}/python mypy --config-file {SOURCE}/python/mypy.ini *.py")

    def test_lists_what_there_is(self):
        header = (SOURCE / "include/zv/force.hpp").read_text()
        found = re.findall(r'ForceReason (\w+)\{\s*"([^"]+)",\s*"([^"]+)"', header)
        all_of_them = re.search(r"std::array all\{([^}]+)\}", header)[1]
        self.assertEqual(re.split(r",\s+", all_of_them.strip()), [own for own, _, _ in found])
        rows = listed("explain.md", "| name | in words |", r"[A-Z][^|]+\|")
        self.assertEqual(sorted(rows), sorted(f"{name} | {label}" for _, name, label in found))

        table = (SOURCE / "recording/observation_fields.hpp").read_text()
        fields = sorted(re.findall(r"field\(&O::(\w+)", table))
        snake = sorted(re.sub("[A-Z]", lambda letter: "_" + letter[0].lower(), field)
                       for field in fields)
        for document, heading, names in (("recording-format.md", "| field | keys |", fields),
                                         ("python.md", "| field | value |", snake)):
            rows = listed(document, heading)
            self.assertEqual(sorted(re.findall(r"`(\w+)`", " ".join(rows))), names)
        stub = (SOURCE / "python/zorvel/_zorvel.pyi").read_text()
        self.assertEqual(sorted(re.findall(r"(\w+): .* \| Reading \| None = None", stub)), snake)
        document = (SOURCE / "docs/cut.md").read_text().split("| `--every SECONDS` |")[1]
        kept = set(re.findall(r"`(\w+)`", document.split("\n")[0])) & set(fields)
        moments = re.findall(r'"(\w+)", \d+, \w+, stays, (?:valence|attention)', table)
        self.assertEqual(kept, set(moments))

    def test_lists_each_column(self):
        documents = {name: (SOURCE / f"docs/{name}.md").read_text()
                     for name in ("explain", "live", "recording-format")}
        folder = new_folder(self.addCleanup)
        self.run_in(folder, "zorvel simulate --seconds 60 -o scene.jsonl && "
                            "zorvel replay scene.jsonl --forces -o . --summary summary.csv")
        columns = {file.name: file.read_text().splitlines()[0] for file in folder.rglob("*.csv")}
        answers = self.run_in(folder, "zorvel live --clock recording < scene.jsonl").splitlines()
        rows = listed("archive.md", "| column |")
        self.assertEqual(",".join(re.findall(r"`(\w+)`", " ".join(rows))), columns.pop("summary.csv"))
        self.assertIn(f"`{columns.pop('forces.csv')}`", documents["explain"])
        rows = re.findall(r"^\| `(\w+.csv)` \|.*\| `(.*)` \|$", documents["recording-format"], re.M)
        self.assertEqual(dict(rows), columns)

        answers = {tuple(json.loads(answer)) for answer in answers}
        examples = documents["live"].split("```json\n")[1].split("```")[0].splitlines()
        self.assertEqual({tuple(json.loads(example)) for example in examples}, answers)
        told = self.run_in("/", "zorvel live --help")
        self.assertEqual([name for name in set().union(*answers) if f'"{name}":' not in told], [])
        numbers = listed("numbers.md", "| number |", "[a-z]")
        state, = (answer for answer in answers if "mood" in answer)
        self.assertLessEqual({name.replace("_", " ") for name in state[2:]},
                             set(", ".join(numbers).split(", ")))
