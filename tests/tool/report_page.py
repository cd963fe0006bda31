"""The pages of reports under test, open in a browser."""

import json
import struct

import tool
from browser import BrowserTest
from tool import run


def line(*arguments, **keys):
    return tool.lines(tool.line(*arguments, **keys))


def headed(seconds):
    """The header of a recording that begins so many seconds after second 0."""
    origin = tool.START - seconds * tool.SECOND
    return tool.lines({"event": "header", "version": 1, "origin": origin})


def smiling(seconds, person=1):
    return line(seconds, "observation", person=person, smile={"value": 1, "confidence": 1},
                expressions={"joy": {"value": 1, "confidence": 1}})


def calm(seconds, person=1, **fields):
    return line(seconds, "observation", person=person, smile={"value": 0, "confidence": 1},
                expressions={"calm": {"value": 1, "confidence": 1}}, **fields)


def single(text):
    """The double that a script sees in a column of floats."""
    return struct.unpack("f", struct.pack("f", float(text)))[0]


def means_in(row):
    return [f"{float(row[f'{name}_mean']):.2f} ({float(row[f'{name}_confidence']):.2f})"
            for name in ("valence", "attention", "ease")]


def shares_in(row):
    """The shares of the moods, in percent."""
    return [round(100 * float(row[mood])) for mood in ("positive", "neutral", "negative")]


class ReportPageTest(BrowserTest):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.browser.get("about:blank")
        cls.browser.get_log("performance")  # of the browser's own first page
        cls.scene = cls.folder / "scene.jsonl"
        run("simulate", "--seconds", "60", "--output", cls.scene, check=True)

    def open(self, recording, *options, status=0):
        """Opens the report of a file, or of lines."""
        page = self.folder / "page.html"
        page.unlink(missing_ok=True)
        is_text = isinstance(recording, str)
        result = run("report", "-" if is_text else recording, "-o", page, *options,
                     input=recording if is_text else None)
        self.assertEqual(result.returncode, status, result.stderr)
        self.browser.get(page.as_uri())
        self.wait("document.readyState === 'complete' && page.recording")
        self.settle()
        return result

    def settle(self):
        self.browser.execute_async_script(
            "requestAnimationFrame(() => requestAnimationFrame(arguments[0]))")

    def tearDown(self):
        self.assertEqual(self.browser.get_log("browser"), [])
        events = [json.loads(entry["message"])["message"]
                  for entry in self.browser.get_log("performance")]
        urls = {event["params"]["request"]["url"].removesuffix("?film=2") for event in events
                if event["method"] == "Network.requestWillBeSent"
                and not event["params"]["request"]["url"].startswith("blob:")}  # a film
        self.assertEqual(urls, {(self.folder / "page.html").as_uri()})

    def timeline(self, recording):
        """The rows of the timeline, with their seconds since the recording's start."""
        run("replay", recording, "-q", "--forces", "-o", self.folder, check=True)
        return [{**row, "seconds": float(row["seconds"])} for row in tool.rows(self.folder / "timeline.csv")]

    def summary(self, recording):
        """A row for each person. The tests of the Python module add them up."""
        run("replay", recording, "-q", "--summary", self.folder / "persons.csv", "-o", self.folder,
            check=True)
        return tool.rows(self.folder / "persons.csv")
