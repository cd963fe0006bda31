"""Plays a film beside the charts of a report."""

import base64

from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

from report_page import ReportPageTest, calm, smiling

# A film of 4 s that the browser itself records.
RECORD_FILM = """
const [done] = arguments, canvas = document.createElement("canvas"), context = canvas.getContext("2d");
const recorder = new MediaRecorder(canvas.captureStream(30)), reader = new FileReader();
let number = 0;
setInterval(() => {
  context.fillStyle = `hsl(${++number * 40} 90% 50%)`;
  context.fillRect(0, 0, 300, 150);
}, 33);
recorder.ondataavailable = ({data}) => reader.readAsDataURL(data);
reader.onload = () => done(reader.result.split(",")[1]);
recorder.start();
setTimeout(() => recorder.stop(), 4000)"""
# After each drawing: the time of the picture that is shown, and where the line is.
TRACK_FILM = """
window.video = document.querySelector("#film video");
window.tracked = [];
let shown;
const onPicture = (now, {mediaTime}) => { shown = mediaTime; video.requestVideoFrameCallback(onPicture); };
video.requestVideoFrameCallback(onPicture);
const track = () => {
  const {x, w} = page.stacks[0].area(), [from, to] = page.charts[0].dygraph.xAxisRange();
  const {m41} = new DOMMatrix(getComputedStyle(document.querySelector(".pointer.film")).transform);
  tracked.push([shown, from + (m41 - x) / w * (to - from)]);
  requestAnimationFrame(() => setTimeout(track));
};
track()"""


class FilmTest(ReportPageTest):
    def test_a_film_goes_with_the_charts(self):
        self.browser.get("about:blank")
        film, other = self.folder / "film.webm", self.folder / "it's.avi"
        film.write_bytes(base64.b64decode(self.browser.execute_async_script(RECORD_FILM)))
        other.write_bytes(bytes(1000))
        self.browser.get_log("performance")
        self.open("".join((smiling if k > 30 else calm)(k / 10) for k in range(101)), "--mattered")
        mattered = self.browser.find_element(By.ID, "mattered").text
        self.assertRegex(mattered, r"\nPerson 1 expressions\n0\.\d+, at most −1\.")
        self.assertIn("smile of person 1: with these expressions no smile changes the mood", mattered)
        chooser = self.browser.find_element(By.ID, "film-file")
        chooser.send_keys(str(other))
        told = self.browser.find_element(By.CSS_SELECTOR, "#film .text")
        self.until(lambda: "does not play it's.avi. It plays MP4 with H.264, " in told.text
                   and " -i './it'\\''s.avi' " in told.text)
        chooser.send_keys(str(film))
        self.wait("page.hasFilm() && document.querySelector('#film video').paused")
        offset = self.browser.find_element(By.ID, "film-offset")
        offset.clear()
        offset.send_keys("2", Keys.TAB)
        self.script(TRACK_FILM)

        def last():
            self.settle()
            return self.until(lambda: self.script("return video.seeking ? null : tracked.at(-1)"))

        body = self.browser.find_element(By.CSS_SELECTOR, "body")
        pictures = set()
        for speed in ("0.25", "2"):
            self.script("tracked.length = 0; video.currentTime = 0")
            self.browser.find_element(By.CSS_SELECTOR, f"#film-speed option[value='{speed}']").click()
            self.assertEqual(self.script("return video.playbackRate"), float(speed))
            body.send_keys("p")
            self.wait(f"!video.paused && video.currentTime > {speed}")
            body.send_keys("p")
            tracked = [each for each in self.script("return tracked") if each[0] is not None]
            pictures |= {picture for picture, _ in tracked}
            self.assertLess(max(abs(picture + 2 - at) for picture, at in tracked), 1 / 30)
        gaps = [after - before for before, after in zip(sorted(pictures), sorted(pictures)[1:])]
        stack = self.browser.find_element(By.CSS_SELECTOR, ".stack")
        for seconds in (5.2, 3.1):
            x = self.script(f"return page.stacks[0].pixelOf({seconds})") - stack.size["width"] / 2
            ActionChains(self.browser).move_to_element_with_offset(stack, round(x), 0).click().perform()
            self.until(lambda: abs(last()[1] - seconds) < max(gaps), seconds)
            picture, at = last()
            self.assertAlmostEqual(picture + 2, at, 2)
        for key, sign in ((Keys.ARROW_RIGHT, 1), (Keys.ARROW_LEFT, -1)):
            before = last()[0]
            body.send_keys(key)
            self.until(lambda: 0 < sign * (last()[0] - before) <= max(gaps) + 0.04)
        told = self.browser.find_element(By.CSS_SELECTOR, "#film .moments").text
        self.assertRegex(told, r"^Person 1\nValence 0\.\d\d \(confidence \d.\d\d\), positive: "
                               r"the face \+0\.\d")
        self.browser.find_element(By.CSS_SELECTOR, ".changes a").click()
        self.until(lambda: abs(last()[1] - 3.3) < 1)
        self.browser.refresh()
        self.wait("document.readyState === 'complete' && page.recording")
        self.assertEqual(self.browser.find_element(By.ID, "film-offset").get_property("value"), "2")
