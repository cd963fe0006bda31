#!/usr/bin/python3
"""Makes the pictures of the documents anew: make.py ZORVEL

Small recordings go through `zorvel report` or to `zorvel view`, and Chromium takes pictures.
"""

import json
import pathlib
import subprocess
import sys
import tempfile
import time

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.support.wait import WebDriverWait

START = 1_700_000_000_000_000_000
HERE = pathlib.Path(__file__).parent


def line(seconds, event, **keys):
    return json.dumps({"time": START + round(seconds * 1e9), "event": event, **keys}) + "\n"


def cycles(first, last, fields, rate=10):
    """One observation a cycle; `fields` gives the fields at a time."""
    return "".join(line(k / rate, "observation", person=1, **fields(k / rate))
                   for k in range(round(first * rate), round(last * rate) + 1))


def during(first, last, name, lines):
    """Lines, with a scope over some of them, which tells on the chart what happens."""
    lines = lines.splitlines(keepends=True)
    lines += [line(first, "start_recording", person=1, scope=name),
              line(last, "stop_recording", person=1, scope=name)]
    # At one time, a scope begins before the cycle and ends behind it.
    return "".join(sorted(lines, key=lambda text: (json.loads(text)["time"], "stop_" in text,
                                                   "start_" not in text)))


def face(joy):
    return {"smile": {"value": joy, "confidence": 1},
            "expressions": {"joy": {"value": joy, "confidence": 1},
                            "calm": {"value": 1 - joy, "confidence": 1}}}


def smile(seconds):
    """A calm face, a smile, a calm face, and then none."""
    return face(1 if 2 <= seconds < 4 else 0) if seconds < 6 else {}


def last_smile(rate, start):
    """A smile of a second, then a calm face."""
    lines = cycles(start, start + 7, lambda at: face(1 if at <= start + 1 else 0), rate)
    return during(start, start + 7, f"{rate} cycles a second", lines)


def touch(seconds):
    return {"touchEmotion": {"value": 1}} if seconds == 1 else {}


def turning_away(seconds):
    return {"headPosture": {"yaw": 5 * seconds, "pitch": 0, "roll": 0}} if seconds <= 8 else {}


def walking_away(seconds):
    return {**face(1), "distance": {"value": 1 + seconds / 10}}


def room():
    return "".join(("".join(line(k / 5, "movement") for _ in range(4 * (15 <= k < 30)))
                    + line(k / 5, "activity", value=0.08 if k >= 50 else 0)) for k in range(76))


# Name of the picture: the recording, and the charts to show.
PICTURES = {
    "smile": (during(2, 3.9, "smiles", cycles(0, 10, smile)), ["Valence", "Mood", "Scopes"]),
    "rate": (last_smile(10, 0) + line(7, "remove", person=1) + last_smile(2, 8),
             ["Valence", "Scopes"]),
    "touch": (during(1, 1, "touch", cycles(0, 10, touch)), ["Valence", "Scopes"]),
    "attention": (during(0, 8, "turns away, 5 degrees a second", cycles(0, 18, turning_away)),
                  ["Attention", "Scopes"]),
    "confidence": (during(0, 8, "walks away, from 1 m to 1.8 m", cycles(0, 8, walking_away)),
                   ["Valence", "Scopes"]),
    "room": (room(), ["Agitation"]),
}


def browser(folder):
    options = webdriver.ChromeOptions()
    options.binary_location = "/usr/bin/chromium"
    for argument in ("headless=new", "no-sandbox", "disable-gpu", "disable-dev-shm-usage",
                     "hide-scrollbars", "window-size=900,1600", f"user-data-dir={folder}/browser"):
        options.add_argument("--" + argument)
    return webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)


def show_live(tool, chromium):
    """A scene of three people on the live page, after some time."""
    with subprocess.Popen([tool, "view", "--port", "0"], stdin=subprocess.DEVNULL, text=True,
                          stdout=subprocess.DEVNULL, stderr=subprocess.PIPE) as service:
        url = service.stderr.readline().split()[1]
        chromium.get(url)
        scene = subprocess.Popen([tool, "simulate", "--people", "3"], stdout=subprocess.PIPE)
        send = subprocess.Popen([tool, "send", "-", "--to", url.split("/")[2]], stdin=scene.stdout)
        time.sleep(36)
        chromium.save_screenshot(str(HERE / "view.png"))
        for process in (send, scene, service):
            process.terminate()


def main(tool):
    with tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as folder:
        chromium = browser(folder)

        def show(recording):
            file, page = pathlib.Path(folder, "meeting.jsonl"), pathlib.Path(folder, "page.html")
            file.write_text(recording)
            subprocess.run([tool, "report", file, "-o", page], check=True)
            chromium.get(page.as_uri())
            WebDriverWait(chromium, 60).until(lambda _: chromium.execute_script(
                "return document.readyState === 'complete' && !!page.recording"))
            chromium.execute_async_script(
                "requestAnimationFrame(() => requestAnimationFrame(arguments[0]))")

        try:
            for name, (recording, charts) in PICTURES.items():
                show(recording)
                # Of each stack, only the charts that are named, under their headings.
                chromium.execute_script("""
                  for (const list of document.querySelectorAll(".reasons")) list.hidden = true;
                  for (const chart of document.querySelectorAll(".stack .chart")) {
                    const label = chart.getAttribute("aria-label");
                    const isShown = arguments[0].some((name) => label.startsWith(name));
                    for (const box of [chart, chart.previousElementSibling]) {
                      if (!isShown) box.style.display = "none";
                    }
                  }""", charts)
                stacks = chromium.find_elements(By.CSS_SELECTOR, ".stack")
                stack = next(stack for stack in stacks if stack.size["height"] > 40)
                stack.screenshot(str(HERE / f"{name}.png"))
            chromium.set_window_size(1000, 1000)
            show(subprocess.run([tool, "simulate", "--people", "1", "--seconds", "40"], text=True,
                                check=True, stdout=subprocess.PIPE).stdout)
            chromium.save_screenshot(str(HERE / "report.png"))
            chromium.set_window_size(1400, 950)
            show_live(tool, chromium)
        finally:
            chromium.quit()


if __name__ == "__main__":
    main(*sys.argv[1:])
