"""Runs the commands that the documents show, and compares what they list with the code."""

import json
import math
import os
import pathlib
import re
import subprocess
import sys
import unittest

from tool import SOURCE, TOOL, new_folder, start_view

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


# The input that the documents speak of.
FILES = {
    "events.tsv": "onset\tduration\ttrial_type\n2\t1\tgame\n",
    "faces.csv": "frame,timestamp,confidence,success,AU12_r\n1,0,0.9,1,2\n2,33,0.9,0,3\n3,66,0.9,1,3\n",
    "phases.csv": "person,scope,begin,end\n1,arrival,1.5,3\n1,whole visit,0:01.2,2023-11-14T22:13:24.5Z\n",
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
SIMULATED = {"meeting.jsonl": 20, "talk.jsonl": 5, "today.jsonl": 300, "recordings/monday.jsonl": 5,
             "recordings/tuesday.jsonl": 5}
# What stands in for a robot's programs, and what ends services that have no end.
PRELUDE = """
my-perception() { cat meeting.jsonl; }
mosquitto_sub() { cat meeting.jsonl; }
mosquitto_pub() { cat > published; }
zorvel() {
  case "$*" in
    view*) command zorvel "$@" --port 0 --until-end ;;
    send*--to*) command zorvel "$@" --speed 1e6 ;;
    send*) command zorvel "$@" --speed 1e6 --to "$SERVICE" ;;
    *) command zorvel "$@" ;;
  esac
}
"""
# The beginnings of commands that are not run here.
ELSEWHERE = (
    # They build, install or go on for long; the tests demo, packages, installed and library_alone run some.
    "scripts/", "build/", "tests/soak/", "PYTHONPATH=", "cmake ", "export PKG_CONFIG_PATH=", "g++ ",
    "./host", "cc -std", "/tmp/host", "sudo ", "openssl ", "echo OPTIONS", "echo \"http",
    # They need ROS; its messages and its nodes have tests of their own.
    "~/zorvel/", "mkdir -p ~", "ln -s ~", "catkin_make", "colcon ", ". ", "export PYTHONPATH=", "ros",
    "mkfifo live", "tee today.jsonl < live",
    # They need other machines, or a browser; the tests python_archive, camera and report run such.
    "dask-", "python3 examples/archive/replay_archive.py /archive",
    "/usr/bin/python3 examples/live/import_film.py", "chromium ",
)


def program(document):
    """The blocks in Python, one after the other; empty without the module."""
    blocks = re.findall(r"^```python\n(.*?)^```", document.read_text(), re.M | re.S)
    return "\n".join(blocks) if "PYTHON_MODULE" in os.environ else ""


def commands(document):
    """Each command of the sh and console blocks with what is shown of its output, and whether it is one of
    a console. What an sh block writes begins as a text block right below it."""
    found = []
    for kind, block, below in re.findall(r"^```(sh|console)\n(.*?)^```(?:\n\n```text\n(.*?)^```)?",
                                         document.read_text().replace("\\\n", ""), re.M | re.S):
        if kind == "console":
            found += [(command, shown, True)
                      for command, shown in re.findall(r"^\$ (.*\n)((?:(?!\$ ).*\n)*)", block, re.M)]
        else:
            lines = block.splitlines()
            found += [(line, below if line is lines[-1] else "", False) for line in lines]
    return found


def pattern(shown):
    """… stands for what is left out; times, ports and tokens are others in each run."""
    kept = re.escape(shown).replace("\n…\\\n", "\n(?:.*\n)*").replace("…", ".*").replace("8642", r"\d+")
    return "^" + re.sub(r"\b(17\d{17}|[0-9a-f]{32,64})\b", r"\\w+", kept) + "$"


def anchors(document):
    """What its headings are called in links."""
    return [re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-")
            for heading in re.findall(r"^#+ (.*)", document.read_text(), re.M)]


def listed(document, heading, first="`"):
    """The first cell of each row of the table below a heading."""
    table = (SOURCE / "docs" / document).read_text().split(heading)[1].split("\n\n")[0]
    return re.findall(rf"^\| ({first}[^|]+) \|", table, re.M)


DOCUMENTS = [SOURCE / name for name in ("README.md", "ARCHITECTURE.md", "CONTRIBUTING.md")]
DOCUMENTS += sorted(SOURCE.glob("docs/*.md"))


class DocumentsTest(unittest.TestCase):
    def run_in(self, folder, command, succeeds=True, **variables):
        environment = {**os.environ, "PATH": f"{pathlib.Path(TOOL).parent}:/usr/bin:{os.environ['PATH']}",
                       "PYTHONPATH": os.environ.get("PYTHON_MODULE", ""), **variables}
        result = subprocess.run(["bash", "-o", "pipefail", "-c", PRELUDE + command], cwd=folder, timeout=120,
                                env=environment, stdin=subprocess.DEVNULL, capture_output=True, text=True)
        if succeeds:
            self.assertEqual(result.returncode, 0, result.stderr)
        return result.stdout

    def test_every_command_works(self):
        service = f"http://127.0.0.1:{start_view(self).port}/"
        unused = set(ELSEWHERE)
        for document in DOCUMENTS:
            self.assertNotRegex(document.read_text(), r"(?m)^```text\n([^`]*\n)?(\$|zorvel) ")
            programs = program(document)
            folder = new_folder(self.addCleanup)
            for inner in ("games", "ratings", "raw", "recordings", "session", "tiers"):
                (folder / inner).mkdir()
            (folder / "examples").symlink_to(SOURCE / "examples")
            make_bag.write_sqlite(folder / "session/session_0.db3", make_bag.scene(5.0, 2))
            for file, text in FILES.items():
                (folder / file).write_text(text)
            for file, seconds in SIMULATED.items():
                self.run_in(folder, f"zorvel simulate --seconds {seconds} -o {file}")
            for command, output, is_console in commands(document):
                elsewhere = {beginning for beginning in ELSEWHERE if command.startswith(beginning)}
                unused -= elsewhere
                if elsewhere or (re.search("-m zorvel|replay_archive", command)
                                 and "PYTHON_MODULE" not in os.environ):
                    continue
                with self.subTest(document=document.name, command=command):
                    command = command.replace("http://robot.local:8642/", service)
                    command, output = (text.replace("/run/user/1000", str(folder))
                                       for text in (command, output))
                    if is_console and output:
                        written = self.run_in(folder, f"{{ {command}}} 2>&1", succeeds=False)
                        self.assertRegex(written, pattern(output))
                    else:
                        written = self.run_in(folder, command, SERVICE=service)
                        self.assertEqual(written[:len(output)], output)
            if programs:
                with self.subTest(document=document.name, language="Python"):
                    (folder / "document.py").write_text(programs)
                    self.run_in(folder, "MPLBACKEND=agg python3 -W error document.py")
        self.assertEqual(unused, set())

    def test_every_link_leads_somewhere(self):
        for document in DOCUMENTS:
            text = re.sub(r"^```.*?^```|`[^`\n]+`", "", document.read_text(), flags=re.M | re.S)
            for link in re.findall(r"\]\((?!https?:)([^)]+)\)", text):
                with self.subTest(document=document.name, link=link):
                    path, _, anchor = link.partition("#")
                    target = document.parent / path if path else document
                    self.assertTrue(target.exists())
                    if anchor:
                        self.assertIn(anchor, anchors(target))

    def test_every_program_has_the_right_types(self):
        folder = new_folder(self.addCleanup)
        for document in DOCUMENTS:
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
