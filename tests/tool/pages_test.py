"""Compares what the tool writes for the pages with its typed description, pages/tool.d.ts."""

import asyncio
import copy
import json
import re
import subprocess
import urllib.request

import websockets

from tool import SOURCE, FolderTest, line, lines, run, start_view

EVENTS = lines({"event": "observation", "person": 1, "touchEmotion": {"value": 1}},
               {"event": "start_recording", "person": 1, "scope": "touched"},
               {"event": "stop_recording", "person": 1, "scope": "touched"},
               {"event": "movement"}, {"event": "activity", "value": 0.1},
               {"event": "remove", "person": 1})
# A fault of each kind, as a change of the state of a person.
FAULTS = (lambda state: state.update(unknown=1),
          lambda state: state["ease"].update(unknown=1),
          lambda state: state.update(person="1"),
          lambda state: state.pop("attention"))


class PagesTest(FolderTest):
    def written(self):
        """What the tool writes for the pages, by type."""
        scene, odd = self.folder / "scene.jsonl", self.folder / "odd.jsonl"
        run("simulate", "--seconds", "60", "-o", scene, check=True)
        odd.write_text(lines(line(0, "start_recording", person=1, scope="greeting"),
                             line(-1, "not_seen", person=1)) + "no json\n")
        run("report", scene, odd, "--align", "greeting", "-o", self.folder / "page.html")
        run("report", scene, "--mattered", "-o", self.folder / "one.html", check=True)
        one, = re.findall(r'<script type="application/json" id="recording">(.*?)</script>',
                          (self.folder / "one.html").read_text(), re.S)
        elements = dict(re.findall(r'<script type="application/json" id="(\w+)">(.*?)</script>',
                                   (self.folder / "page.html").read_text(), re.S))
        overview = json.loads(elements["overview"])
        overview["page"] = "as long as a page"
        service = start_view(self, "--record", self.folder / "record.jsonl")
        states, answers = asyncio.run(asyncio.wait_for(self.converse(service.port), 60))
        with urllib.request.urlopen(f"http://127.0.0.1:{service.port}/health") as answer:
            health = json.load(answer)
        return {"OverviewData": [overview], "Health": [health], "Line": states, "Answer": answers,
                "RecordingData": [*map(json.loads, (one, elements["data1"], elements["data2"]))]}

    async def converse(self, port):
        """A line of each kind from the service."""
        states, answers = {}, []
        async with websockets.connect(f"ws://127.0.0.1:{port}/states") as page, \
                websockets.connect(f"ws://127.0.0.1:{port}/events") as sender:
            await sender.send('{"request":"people","count":2}\nno json\n')
            await page.send('{"forces":true}')
            await page.send("no json")
            while len(answers) < 2:
                answers += map(json.loads, (await sender.recv()).splitlines())
            while len(states) < 9:
                for state in map(json.loads, (await page.recv()).splitlines()):
                    states[frozenset(state)] = state
                    if "error" in state:
                        await sender.send(EVENTS)
        return list(states.values()), answers

    def test_it_is_as_described(self):
        written = self.written()
        state, = (each for each in written["Line"] if "forces" in each)
        texts = [(kind, "", each) for kind, those in written.items() for each in those]
        for fault in FAULTS:
            wrong = copy.deepcopy(state)
            fault(wrong)
            texts.append(("Line", "// @ts-expect-error\n", wrong))
        (self.folder / "written.ts").write_text(f'import type * as tool from "{SOURCE}/pages/tool";\n'
                                                + "".join(
            f"{expected}export const text{number}: tool.{kind} = {json.dumps(each)};\n"
            for number, (kind, expected, each) in enumerate(texts)))
        (self.folder / "tsconfig.json").write_text(json.dumps(
            {"extends": f"{SOURCE}/pages/tsconfig.json", "include": ["written.ts"]}))
        check = subprocess.run(["tsc", "--project", self.folder], stdout=subprocess.PIPE, text=True)
        self.assertEqual(check.stdout, "")
