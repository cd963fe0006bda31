"""Shows faces to the live page, with a camera that plays a film.

The film shows the face that the analysis brings along for its own tests.
"""

import base64
import json
import os
import pathlib
import re
import statistics
import subprocess
import sys
import time
import urllib.error
import urllib.request

from selenium.webdriver.common.by import By

from browser import BrowserTest
from tool import SOURCE, TOOL, WAIT, new_folder, run, start_view

RATE = 30  # pictures a second, of that camera

# Pictures as JPEG. Each has faces: x and y of the middle, size, turned by degrees, mirrored.
DRAW = """
const [face, pictures, cut, done] = arguments;
const image = new Image();
image.src = face;
image.decode().then(() => done(pictures.map((faces, number) => {
  const canvas = document.createElement("canvas");
  Object.assign(canvas, { width: 640, height: 360 });
  const context = canvas.getContext("2d");
  context.fillStyle = number < cut ? "gray" : "white";
  context.fillRect(0, 0, 640, 360);
  for (const [x, y, size, turned, mirrored] of faces) {
    context.setTransform(1, 0, 0, 1, x, y);
    context.rotate(turned * Math.PI / 180);
    if (mirrored) context.scale(-1, 1);
    context.drawImage(image, -size / 2, -size / 2, size, size);
  }
  return canvas.toDataURL("image/jpeg", 0.95).split(",")[1];
})));
"""
# Faces by name, and the film: which of them it shows, for how many seconds.
PLACES = {"plain": (200, 180, 256, 0, False), "mirrored": (250, 180, 256, 0, True),
          "turned": (300, 180, 256, 15, False), "far": (350, 180, 170, 0, False),
          "left": (170, 180, 256, 0, False), "right": (460, 180, 256, 0, False)}
FILM = ((4, ["plain"]), (3, ["mirrored"]), (3, ["turned"]), (3, ["far"]), (3, ["left", "right"]),
        (5, []))

# A video that the browser itself records: its length is unknown until its end is looked for.
RECORD_VIDEO = """
const [pictures, seconds, done] = arguments;
const canvas = document.createElement("canvas");
Object.assign(canvas, { width: 640, height: 360 });
const decoded = Promise.all(pictures.map(async (picture) => {
  const image = new Image();
  image.src = "data:image/jpeg;base64," + picture;
  await image.decode();
  return image;
}));
decoded.then((images) => {
  const recorder = new MediaRecorder(canvas.captureStream(30), { mimeType: "video/webm",
                                                                 videoBitsPerSecond: 8e6 });
  const parts = [];
  recorder.ondataavailable = ({ data }) => parts.push(data);
  recorder.onstop = () => {
    const reader = new FileReader();
    reader.onload = () => done(reader.result.split(",")[1]);
    reader.readAsDataURL(new Blob(parts));
  };
  // A busy machine makes the film longer, but leaves out no picture.
  let number = 0;
  const draw = () => {
    const image = images[number++];
    if (!image) { recorder.stop(); return; }
    canvas.getContext("2d").drawImage(image, 0, 0);
    setTimeout(draw, seconds * 1e3);
  };
  recorder.start();
  draw();
});
"""
# Two people pass each other; then the film cuts to somebody at the same place. The pictures are a tenth
# of a second apart.
PASSING = [[(540 - 22 * step, 250, 150, 0, True), (100 + 22 * step, 140, 150, 0, False)]
           for step in [0] * 5 + list(range(21)) + [20] * 3]
FILM_CUT = len(PASSING)
PASSING += [[(540, 140, 150, 0, False)]] * 6


class CameraTest(BrowserTest):
    @classmethod
    def setUpClass(cls):
        installed = pathlib.Path(TOOL).parent / "../share/zorvel/camera/human.js"
        cls.isInstalled = installed.exists()
        film = new_folder(cls.addClassCleanup) / "film.mjpeg"
        cls.browser_options = ("use-fake-device-for-media-stream",
                               f"use-file-for-fake-video-capture={film}",
                               "host-resolver-rules=MAP robot.local 127.0.0.1")
        super().setUpClass()
        cls.browser.set_script_timeout(WAIT)
        if not cls.isInstalled:
            return
        face = re.search(r"/9j/[A-Za-z0-9+/=\s]{5000,}", installed.read_text())[0]
        cls.face = "data:image/jpeg;base64," + re.sub(r"\s", "", face)
        places = [[PLACES[name] for name in names] for _, names in FILM]
        pictures = [base64.b64decode(picture) for picture in cls.draw(places)]
        film.write_bytes(b"".join(picture * (seconds * RATE)
                                  for picture, (seconds, _) in zip(pictures, FILM)))

    @classmethod
    def draw(cls, places, cut=1000):
        return cls.browser.execute_async_script(DRAW, cls.face, places, cut)

    def open(self, service, permission="granted", host="127.0.0.1"):
        if not self.isInstalled:
            self.skipTest("what analyses pictures is not installed")
        self.browser.get("about:blank")
        self.browser.get_log("browser")
        self.browser.execute_cdp_cmd("Browser.setPermission", {
            "permission": {"name": "camera"}, "setting": permission})
        self.browser.get(f"http://{host}:{service.port}/#camera")

    def wait_for_text(self, text):
        self.wait(f"document.querySelector('#camera .text').textContent.includes({json.dumps(text)})")

    def events_until(self, record, condition):
        """The events of the record, as soon as they satisfy the condition."""
        def read():
            lines = record.read_text().splitlines(keepends=True)
            events = [json.loads(line) for line in lines[1:] if line.endswith("\n")]
            return events if condition(events) else None
        return self.until(read, "events")

    def test_people_before_the_camera(self):
        record = self.folder / "record.jsonl"
        begun = time.time_ns()
        self.open(start_view(self, "--record", record))
        self.wait("page.cards.size === 2")
        for name in ("numbers", "landmarks"):
            self.browser.find_element(By.NAME, name).click()
        self.wait("document.querySelector('#camera pre').textContent.includes('headPosture\":{\"yaw\"')")
        self.wait("document.querySelector('#camera .facts').textContent")
        self.assertRegex(self.browser.find_element(By.CSS_SELECTOR, "#camera .facts").text,
                         r"\d\.\d pictures and \d+\.\d detections a second on WebAssembly · \d+ ms a picture · .* dropped · "
                         r"clock of the service known to ±\d+\.\d ms")
        self.wait_for_text("No face in the picture.")
        events = self.events_until(record, lambda events: sum(
            event["event"] == "remove" for event in events) >= 2)

        seen = {name: [] for name in PLACES}
        for event in events:
            if event["event"] != "observation":
                continue
            nose = event["facialPoints"]["points"][8]
            for name, (x, y, *_) in PLACES.items():
                if abs(nose["x"] - x) < 20 and abs(nose["y"] - y) < 40:
                    seen[name].append(event)
        for name, those in seen.items():
            self.assertGreater(len(those), 0, name)
            # By the service's clock, not the page's.
            times = [event["smile"]["time"] for event in those]
            self.assertTrue(begun < min(times) <= max(times) < time.time_ns(), name)

        def median(name, *keys):
            values = []
            for event in seen[name]:
                for key in keys:
                    event = event[key]
                values.append(event)
            return statistics.median(values)
        yaw, mirrored = (median(name, "headPosture", "yaw") for name in ("plain", "mirrored"))
        self.assertLess(yaw * mirrored, 0)
        roll, mirrored, turned = (median(name, "headPosture", "roll")
                                  for name in ("plain", "mirrored", "turned"))
        self.assertLess(roll * mirrored, 0)
        self.assertAlmostEqual(abs(turned - roll), 15, delta=4)
        self.assertAlmostEqual(median("plain", "gaze", "yaw"), yaw, delta=15)
        self.assertAlmostEqual(median("far", "distance", "value") / median("plain", "distance", "value"),
                               256 / 170, delta=0.15)

        # One person is there all along, and a second one where two are seen; both go.
        persons = [{event["person"] for event in seen[name]} for name in PLACES]
        self.assertEqual(len(persons[3] | persons[4] | persons[5]), 2)
        self.assertEqual(len(persons[4]), 1)
        self.assertNotEqual(persons[4], persons[5])
        removed = [event for event in events if event["event"] == "remove"][:2]
        self.assertEqual({event["person"] for event in removed}, persons[4] | persons[5])
        for person in persons[4] | persons[5]:
            kinds = [event["event"] for event in events if event["person"] == person]
            self.assertEqual(kinds[kinds.index("remove") - 1], "not_seen")

        # People who are still there leave with the camera.
        self.browser.find_element(By.ID, "start-camera").click()
        self.wait("page.running === undefined && page.cards.size === 0")

    def test_a_tab_behind_others_sees_nobody(self):
        record = self.folder / "behind.jsonl"
        self.open(start_view(self, "--record", record))
        self.events_until(record, lambda events: events)
        page = self.browser.current_window_handle
        self.browser.switch_to.new_window("tab")
        before = len(record.read_text().splitlines())
        events = self.events_until(record, lambda events: "remove" in {
            event["event"] for event in events[before:]})
        kinds = [event["event"] for event in events[before + 3:]]
        self.assertIn("not_seen", kinds)
        self.browser.close()
        self.browser.switch_to.window(page)
        self.wait("page.cards.size > 0 && "
                  "!document.querySelector('#camera .text').textContent.includes('behind')")

    def test_a_camera_that_is_not_there(self):
        service = start_view(self, "--host", "robot.local")
        self.open(service, permission="denied")
        self.wait_for_text("The camera was refused.")
        self.open(service)
        self.wait("page.running?.analysed > 0")
        self.script("page.running.stream.getVideoTracks()[0].dispatchEvent(new Event('ended'))")
        self.wait_for_text("The camera was taken away.")
        self.open(service, host="robot.local")
        self.wait_for_text("only to pages of its own machine or over https")

    def test_a_service_that_goes_and_comes(self):
        service = start_view(self)
        self.open(service)
        self.wait("page.running?.people?.known.length > 0")
        service.kill()
        service.wait(WAIT)
        self.wait("page.running && page.running.people === undefined")
        start_view(self, port=service.port)
        self.wait("page.running?.people?.known.length > 0 && page.cards.size > 0")

    def test_a_video_becomes_a_recording(self):
        service = start_view(self)
        if not self.isInstalled:
            self.skipTest("what analyses pictures is not installed")
        self.browser.get("about:blank")
        video = self.folder / "two people.webm"
        video.write_bytes(base64.b64decode(self.browser.execute_async_script(
            RECORD_VIDEO, self.draw(PASSING, FILM_CUT), 0.1)))
        self.open(service)
        self.browser.execute_cdp_cmd("Browser.setDownloadBehavior", {
            "behavior": "allow", "downloadPath": str(self.folder)})
        self.script("document.querySelector('[name=rate]').value = 10")
        self.browser.find_element(By.NAME, "film").send_keys(str(video))
        self.wait_for_text("The recording is made.")
        self.browser.find_element(By.ID, "save-film").click()
        saved = self.folder / "two people.jsonl"
        self.until(lambda: saved.exists() and saved.stat().st_size)
        header, *events = [json.loads(line) for line in saved.read_text().splitlines()]
        self.assertEqual((header["event"], header["origin"]), ("header", 946684800 * 10 ** 9))
        times = sorted({event["time"] - header["origin"] for event in events})
        self.assertEqual({time % 10 ** 8 for time in times}, {0})
        self.assertGreater(len(times), len(PASSING) - 8)
        noses = {}
        for event in events:
            if event["event"] == "observation":
                noses.setdefault(event["person"], []).append(event["facialPoints"]["points"][8]["x"])
        self.assertEqual(list(noses), [1, 2, 3])
        for person in (1, 2):
            self.assertAlmostEqual(abs(noses[person][0] - noses[person][-1]), 440, delta=40)
        removed = [event for event in events if event["event"] == "remove"]
        self.assertEqual([event["person"] for event in removed], [1, 2])
        self.assertEqual(len({event["time"] for event in removed}), 1)
        # The same again without a window.
        example = SOURCE / "examples/live/import_film.py"
        alone = self.folder / "alone"
        alone.mkdir()
        subprocess.run([sys.executable, example, video, "--rate=10"], check=True, cwd=alone, timeout=WAIT,
                       env={**os.environ, "PATH": f"{pathlib.Path(TOOL).parent}:{os.environ['PATH']}"})
        self.assertEqual((alone / saved.name).read_text().splitlines(),
                         saved.read_text().splitlines())
        run("replay", saved, "--output", self.folder / "replayed", check=True)
        with urllib.request.urlopen(f"http://127.0.0.1:{service.port}/health") as answer:
            self.assertEqual(json.load(answer)["people"], 0)
        video.write_bytes(b"no video")
        self.browser.find_element(By.NAME, "film").send_keys(str(video))
        self.wait_for_text("This browser does not play two people.webm.")

    def test_files_are_served_and_kept(self):
        port = start_view(self).port
        def get(name, **headers):
            return urllib.request.urlopen(urllib.request.Request(
                f"http://127.0.0.1:{port}/{name}", headers=headers), timeout=WAIT)
        for name in ("camera/..%2fcamera%2fworker.js", "camera/../camera/worker.js", "camera/",
                     "camera/licenses.txt"):
            with self.assertRaises(urllib.error.HTTPError, msg=name) as refused:
                get(name)
            self.assertIn("install zorvel-camera", refused.exception.read().decode())
        policy = get("").headers["Content-Security-Policy"]
        added = " 'wasm-unsafe-eval'; worker-src 'self'; media-src blob:"
        self.assertEqual(policy.endswith(added), self.isInstalled)
        if not self.isInstalled:
            self.skipTest("what analyses pictures is not installed")
        for name, kind in (("human.js", "text/javascript"), ("iris.bin", "application/octet-stream"),
                           ("tfjs-backend-wasm-simd.wasm", "application/wasm"),
                           ("iris.json", "application/json")):
            answer = get("camera/" + name)
            self.assertEqual(answer.headers["Content-Type"], kind)
            with self.assertRaises(urllib.error.HTTPError) as unchanged:
                get("camera/" + name, **{"If-None-Match": answer.headers["ETag"]})
            self.assertEqual(unchanged.exception.code, 304)
