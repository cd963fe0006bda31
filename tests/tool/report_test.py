"""Opens reports of a recording in a browser, and uses them."""

import json
import re
import subprocess
import xml.etree.ElementTree

from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

import tool
from report_page import ReportPageTest, calm, headed, line, means_in, shares_in, single, smiling

DRAWN = """return page.charts.map(({dygraph}) => Array.from({length: dygraph.numRows()},
  (_, row) => [dygraph.getValue(row, 0), dygraph.getValue(row, 1)]))"""
WINDOWS = "return page.charts.map(({dygraph}) => dygraph.xAxisRange())"


class ReportTest(ReportPageTest):
    def test_shows_all_that_the_timeline_has(self):
        self.open(self.scene)
        labels = [chart.get_attribute("aria-label")
                  for chart in self.browser.find_elements(By.CSS_SELECTOR, ".chart")]
        self.assertEqual(labels, [f"{name} of person {person}" for person in (1, 2, 3) for name in (
            "Valence", "What moved the valence", "Mood", "Attention", "What moved the attention",
            "Ease", "Scopes")] + ["Agitation of the room"])
        self.assertEqual(*self.script("""
          const {persons: [one]} = JSON.parse(document.getElementById("recording").textContent);
          return [Object.keys(page.quantities),
                  Object.keys(one).filter((name) => `${name}_confidence` in one)]"""))
        rows = self.timeline(self.scene)
        self.script("page.setShown(37, 49)")  # everybody leaves and comes again
        self.settle()
        drawn = dict(zip(labels, self.script(DRAWN)))
        gaps = 0
        for person in ("1", "2", "3"):
            own = [row for row in rows if row["person"] == person]
            shown = [index for index, row in enumerate(own) if 37 <= row["seconds"] <= 49]
            for name in ("valence", "attention", "ease"):
                points = drawn[f"{name.capitalize()} of person {person}"]
                gaps += sum(band is None for _, band in points)
                points = [point for point in points if point[1] and 37 <= point[0] <= 49]
                self.assertEqual([(seconds, band[1]) for seconds, band in points],
                                 [(own[k]["seconds"], single(own[k][name])) for k in shown])
        self.assertEqual(gaps, 9)
        self.check_mood_strip([row for row in rows if row["person"] == "1"])

    def check_mood_strip(self, rows):
        """Each lane is painted where its mood is, and nowhere else."""
        moods, seconds = zip(*((int(row["mood"]), row["seconds"]) for row in rows))
        inner = [k for k in range(1, len(rows) - 1) if len(set(moods[k - 1:k + 2])) == 1
                 and seconds[k + 1] - seconds[k - 1] < 0.1 and 20.1 < seconds[k] < 31.9]
        self.assertEqual({moods[k] for k in inner}, {1, 0, -1})
        self.script("page.setShown(20, 32); page.draw()")
        lanes = [(seconds[k], lane) for k in inner for lane in (2.5, 1.5, 0.5)]
        painted = iter(self.painted(2, lanes))
        for k in inner:
            self.assertEqual([next(painted), next(painted), next(painted)],
                             [moods[k] == mood for mood in (1, 0, -1)])

    def painted(self, chart, places):
        """Whether there is anything on a chart, for each time and value."""
        return self.script("""
          const {dygraph, box} = page.charts[arguments[0]], canvas = box.querySelector("canvas");
          const {width, height} = canvas, copy = new OffscreenCanvas(width, height).getContext("2d");
          copy.drawImage(canvas, 0, 0);
          const {data} = copy.getImageData(0, 0, width, height);
          return arguments[1].map(([seconds, value]) => data[3 + 4 * (
            Math.round(dygraph.toDomXCoord(seconds)) +
            Math.round(dygraph.toDomYCoord(value)) * width)] > 50)""", chart, places)

    def test_sums_up(self):
        self.open(self.scene)
        texts = [row.text.replace("−", "-")
                 for row in self.browser.find_elements(By.CSS_SELECTOR, "#summary tbody tr")]
        for row, text in zip(self.summary(self.scene), texts, strict=True):
            shares = [f"{sign} {share} %" for sign, share in zip("+○-", shares_in(row))]
            for expected in (f"Person {row['person']} {int(row['cycles']):,} ", *means_in(row), *shares):
                self.assertIn(expected, text)
        closed = [(row["person"], row["scope"], row["label"], row["samples"])
                  for row in tool.rows(self.folder / "scene/scopes.csv")]
        listed = self.script("""return page.recording.persons.flatMap(({id}) =>
          [...document.querySelectorAll(`#person${id} details tbody tr`)].map((row) =>
            [String(id), ...[4, 2, 3].map((column) => row.children[column].textContent)]))""")
        listed = [(person, scope, label[2:], samples) for person, scope, label, samples in listed]
        self.assertCountEqual([row for row in listed if row[2] != "not closed"], closed)

    def test_draws_no_line_where_nothing_was_measured(self):
        """A head until 1 s is remembered for 7 s more, and shown for 1 s more; a calm face stays at 0.
        Whoever is removed begins anew."""
        head = {"headPosture": {"yaw": 0, "pitch": 0, "roll": 0}}
        self.open("".join(calm(k / 10, **(head if k <= 10 else {})) for k in range(151))
                  + line(15.05, "remove", person=1) + line(15.1, "observation", person=1))
        for chart, last, level in ((0, 15, -0.3), (3, 9, 0.3), (5, 9, -0.3)):
            known = [seconds for seconds, band in self.script(DRAWN)[chart] if band and band[1] is not None]
            self.assertEqual((known[0], known[-1], len(known)), (0, last, 10 * last + 1))
            self.assertEqual(self.painted(chart, [(5.05, level), (12.05, level)]), [False, last == 9])
        self.script("page.setPointer(12); page.draw()")
        self.assertIn("Attention not measured", self.script("return page.formatValues()"))

    def assert_shown(self, begin, end, places=6):
        self.settle()
        for window in self.script(WINDOWS):
            self.assertAlmostEqual(window[0], begin, places)
            self.assertAlmostEqual(window[1], end, places)

    def test_moves_all_charts_together(self):
        # 100 s, and everybody begins to smile at 50 s.
        self.open("".join(line(k / 10, "observation", person=k % 3) for k in range(500))
                  + "".join(smiling(k / 10, k % 3) for k in range(500, 1001)))
        page = self.browser.find_element(By.CSS_SELECTOR, "body")
        stack = self.browser.find_elements(By.CSS_SELECTOR, ".stack")[1]
        page.send_keys("+")
        self.assert_shown(25, 75)
        for button, begin, end in (("left", 12.5, 62.5), ("right", 25, 75), ("in", 37.5, 62.5),
                                   ("out", 25, 75), ("whole", 0, 100)):
            self.browser.find_element(By.CSS_SELECTOR, f"[data-action={button}]").click()
            self.assert_shown(begin, end)

        edge, width = self.script("const {x, w} = page.stacks[1].area(); return [x, w]")
        edge -= stack.size["width"] / 2
        mouse = ActionChains(self.browser, duration=0)
        mouse.move_to_element_with_offset(stack, round(edge + 0.6 * width), 0).click_and_hold()
        mouse.move_by_offset(round(-0.4 * width), 40).release().perform()
        self.assert_shown(20, 60, 0)
        self.assertRegex(self.browser.find_element(By.ID, "pointer-time").text,
                         r"0:(19.9|20.0)\d\d · 2023-11-14 22:13:(39.9|40.0)\d\d UTC")
        ActionChains(self.browser).double_click(stack).perform()
        self.assert_shown(0, 100)
        self.browser.find_element(By.CSS_SELECTOR, ".changes a").send_keys(Keys.ENTER)
        self.settle()
        begin, end = self.script(WINDOWS)[0]
        self.assertTrue(38 < begin < 50 < end < 62, (begin, end))
        self.assert_shown(begin, end)

    def test_shows_the_values_at_the_pointer(self):
        self.open(self.scene)
        own = [row for row in self.timeline(self.scene) if row["person"] == "2"]
        stack = self.browser.find_elements(By.CSS_SELECTOR, ".stack")[1]
        for offset in (-240, 0, 301, 450):
            ActionChains(self.browser).move_to_element_with_offset(stack, offset, 0).perform()
            self.settle()
            pointer = self.script("return page.pointer")
            row = min(own, key=lambda candidate: abs(candidate["seconds"] - pointer))
            if abs(row["seconds"] - pointer) > 1:
                expected = 4 * ["–"]  # gone
            else:
                pairs = [(float(row[name]), float(row[f"{name}_confidence"]))
                         for name in ("valence", "attention", "ease")]
                expected = [f"{value:.3f}, confidence {confidence:.3f}"
                            for value, confidence in pairs]
                expected.insert(1, {"1": "positive", "0": "neutral", "-1": "negative"}[row["mood"]])
            outputs = stack.find_elements(By.CSS_SELECTOR, ".heading .value")
            texts = [output.text.replace("−", "-") for output in outputs]
            self.assertEqual([texts[k] for k in (0, 2, 3, 5)], expected)

    def test_shows_what_moved_a_value(self):
        self.open(self.scene)
        own = [row for row in self.timeline(self.scene) if row["person"] == "1"]
        moves = {}
        for force in tool.rows(self.folder / "forces.csv"):
            key = (force["person"], force["quantity"], force["reason"], force["time"])
            moves[key] = moves.get(key, 0.0) + float(force["after"]) - float(force["before"])
        told = self.script("""return ["valence", "attention"].flatMap((name) =>
          page.recording.persons[0][name].moves.map(
            ({reason, label, rows}) => [name, reason, [...rows], label]))""")
        self.assertEqual(sorted((name, reason) for name, reason, *_ in told),
                         sorted({(name, reason) for person, name, reason, _ in moves
                                 if person == "1" and name in ("valence", "attention")}))
        for name, reason, rows, _ in told:
            self.assertEqual(len(rows), len(own))
            for move, row in zip(rows, own):
                expected = moves.get(("1", name, reason, row["time"]), 0.0)
                self.assertAlmostEqual(move / 10_000, expected, delta=6e-5)
        self.assertEqual(self.script("""
          const {colorOf, quantities, reasonColor, recording} = page;
          const names = recording.reasons.map(({name}) => reasonColor(name));
          return [...Object.keys(quantities), ...names].filter(
            (name) => colorOf(name) === colorOf("other-reason"))"""), [])
        # The cycle with the most movement is as high as the chart.
        moved = [(label, rows) for name, _, rows, label in told if name == "valence"]
        most = max(range(len(own)), key=lambda k: sum(abs(rows[k]) for _, rows in moved))
        at = own[most]["seconds"]
        self.script(f"page.setPointer({at}); page.draw()")
        is_up = sum(rows[most] for _, rows in moved) > 0
        self.assertEqual(self.painted(1, [(at + 1e-6, 0.97 if is_up else -0.97)]), [True])
        items = [item.get_property("textContent").rsplit(" ", 1) for item in
                 self.browser.find_elements(By.CSS_SELECTOR, "#person1 .reasons:first-of-type li")]
        for (shown, text), (label, rows) in zip(items, moved, strict=True):
            self.assertEqual(shown, label)
            self.assertAlmostEqual(float(text.replace("−", "-")), rows[most] / 10_000, delta=6e-4)

    def save_as_svg(self, person):
        """The picture that the button beside a person's charts saves."""
        self.browser.execute_cdp_cmd("Browser.setDownloadBehavior", {
            "behavior": "allow", "downloadPath": str(self.folder / "saved")})
        button = self.browser.find_element(By.CSS_SELECTOR, f"#person{person} button")
        self.assertEqual(button.text, "Save as SVG")
        button.click()
        file, = self.until(lambda: list((self.folder / "saved").glob(f"*Person {person}.svg")))
        picture = xml.etree.ElementTree.parse(file).getroot()
        file.unlink()
        return picture

    def test_saves_what_is_shown_as_a_picture_for_light_paper(self):
        self.open(self.scene)
        colours = """return [getComputedStyle(document.body).backgroundColor, page.colorOf("text"),
                             page.charts[0].dygraph.getColors()[0]]"""
        light = self.script(colours)
        self.addCleanup(self.browser.execute_cdp_cmd, "Emulation.setEmulatedMedia", {"features": []})
        self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {
            "features": [{"name": "prefers-color-scheme", "value": "dark"}]})
        self.settle()
        dark = self.script(colours)
        self.assertTrue(all(one != other for one, other in zip(light, dark)), dark)
        self.script("page.setShown(36, 48)")  # everybody leaves and comes again
        self.settle()
        picture = self.save_as_svg(1)
        self.assertEqual(self.script(colours), dark)
        svg = "{http://www.w3.org/2000/svg}"
        texts = ["".join(text.itertext()) for text in picture.iter(f"{svg}text")]
        for expected in ("Person 1 · scene.jsonl", "Time since the recording's start (m:ss)",
                         "−1 negative, 1 positive; band: missing confidence, not a range of values",
                         "+ positive", "○ neutral", "+ greeting", "the face"):
            self.assertIn(expected, texts)
        self.assertEqual(picture.find(f"{svg}rect").get("fill"), "#ffffff")

        def places(path):
            return [tuple(map(float, place.split()))
                    for place in re.findall(r"[-\d.]+ [-\d.]+", path)]

        def check_inside(element):
            _, _, width, height = map(float, element.get("viewBox").split())
            for path in element.iter(f"{svg}path"):
                for x, y in places(path.get("d")):
                    self.assertTrue(0 <= x <= width and 0 <= y <= height, path.get("d"))
        check_inside(picture)
        times = {text.text: float(text.get("x")) for text in picture.findall(f"{svg}text")}
        rows = [row for row in self.timeline(self.scene)
                if row["person"] == "1" and 36 <= row["seconds"] <= 48]
        for name, lowest in (("valence", -1), ("attention", 0), ("ease", -0.5)):
            chart = picture.find(f"{svg}g[@aria-label='{name.capitalize()} of person 1']")
            heights = {text.text: float(text.get("y")) - 4 for text in chart.iter(f"{svg}text")}
            top, bottom = (heights[f"{v:.1f}".replace("-", "−")] for v in (lowest + 1, lowest))
            band, curve = (path.get("d") for path in chart.findall(f"{svg}g/{svg}path"))
            self.assertEqual([band.count("M"), curve.count("M")], [2, 2])  # a gap between
            values = [lowest + (bottom - y) / (bottom - top) for _, y in places(curve)]
            own = [float(row[name]) for row in rows]
            for of in min, max:
                self.assertAlmostEqual(of(values), of(own), delta=0.005)
            self.assertEqual(places(curve)[0][0], times["0:36"])
            self.assertEqual(places(curve)[-1][0], times["0:48"])
            self.assertLess(min(y for _, y in places(band)), min(y for _, y in places(curve)) + 0.01)

        # A name that XML cannot hold, a single cycle.
        self.open(line(0, "start_recording", person=7, scope="<a>\u0000&") + smiling(1, person=7)
                  + line(2, "not_seen", person=8))
        picture = self.save_as_svg(7)
        check_inside(picture)
        chart = picture.find(f"{svg}g[@aria-label='Valence of person 7']")
        self.assertEqual(len(set(places(chart.findall(f"{svg}g/{svg}path")[1].get("d")))), 1)

    def test_finds_the_greatest_changes(self):
        """A smile that comes, goes at 10 s, comes back at 12 s, and goes with its person at 20 s."""
        def event(seconds):
            if 20 <= seconds < 22:
                return line(seconds, "not_seen", person=1)
            return (smiling if 0 < seconds < 10 or seconds >= 12 else calm)(seconds)
        self.open("".join(event(k / 10) for k in range(300)))
        links = [link.text.split() for link in
                 self.browser.find_elements(By.CSS_SELECTOR, ".changes a")]
        found = {(direction, " ".join(reason).strip("()")): float(time[2:])
                 for time, _, direction, _, _, _, *reason in links}
        # Neither the first smile nor the return at 22 s is one. Each begins within the second before it.
        self.assertEqual(len(links), 3)
        for change, at in ((("↘", "the face"), 10), (("↗", "the face"), 12),
                           (("↘", "being out of sight"), 20)):
            self.assertTrue(at - 1.1 <= found[change] <= at, links)

    def test_is_read_without_a_picture(self):
        """With a screen reader, at any width, on paper, and with a reason the page does not know."""
        # 1.56 s, in which 1 cycle of 157 is positive; the time goes back once.
        lines = [line(k / 100, "not_seen", person=1) for k in range(157)]
        lines[156] = smiling(1.56)
        lines[1:3] = [lines[2], lines[1]]
        self.open("".join(lines))
        warnings = self.browser.find_element(By.ID, "warnings").text
        self.assertIn("The time runs backwards, by up to 10.0 ms", warnings)
        text = self.browser.find_element(By.CSS_SELECTOR, "body").text
        for expected in ("lasts 0:01.56", "+ <1 %", "○ >99 %", "band: missing confidence"):
            self.assertIn(expected, text)

        live = "[aria-live], [role=status], output"
        self.assertEqual(len(self.browser.find_elements(By.CSS_SELECTOR, live)), 1)
        page = self.browser.find_element(By.CSS_SELECTOR, "body")
        for key, expected in (("+", "Shown: 0:00.390 – 0:01.170 of 0:01.56"),
                              ("v", "0:00.780. Person 1: Valence not measured; Mood not measured;")):
            page.send_keys(key)
            self.settle()
            said = self.browser.find_element(By.ID, "announcement").get_property("textContent")
            self.assertTrue(said.startswith(expected), said)
        self.browser.find_element(By.XPATH, "//summary[.='Values as a table']").click()
        self.settle()
        cells = self.script("return [...document.querySelectorAll('details tbody tr')].map((row) =>"
                            " row.children[1].textContent)")
        self.assertEqual(cells, 21 * ["not measured"])

        self.open(self.scene)
        self.addCleanup(self.browser.execute_cdp_cmd, "Emulation.clearDeviceMetricsOverride", {})
        for width in (320, 700, 768, 930, 2000):
            self.browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
                "width": width, "height": 900, "deviceScaleFactor": 1, "mobile": False})
            self.settle()
            self.assertLessEqual(self.script("return document.documentElement.scrollWidth"), width)

        page = self.folder / "page.html"
        page.write_text(page.read_text().replace('"reason":"Face characteristics"',
                                                 '"reason":"Whistling"'))
        paper = self.folder / "page.pdf"
        subprocess.run(["/usr/bin/chromium", "--headless", "--no-sandbox", page.as_uri(),
                        f"--print-to-pdf={paper}", f"--user-data-dir={self.folder / 'printer'}"],
                       check=True, capture_output=True)
        printed = subprocess.run(["pdftotext", paper, "-"], check=True, capture_output=True,
                                 text=True).stdout.split("\f")
        self.assertIn("Whistling", printed[0])
        self.assertIn("Ease", "".join(printed[1:]))
        self.assertIn("Room", "".join(printed))

    def test_names_stay_texts(self):
        names = ["</script><script>window.broken = 1</script>", "<!--<script>", "\"'`${1}\\",
                 "a\u2028b\u2029c\u0000", "<img src=x onerror='window.broken = 1'>", "]]>&lt;"]
        header = json.dumps({"event": "header", "version": 1, "source": names[0]}) + "\n"
        self.open(header + "".join(line(k, "start_recording", person=1, scope=name)
                                   for k, name in enumerate(names))
                  + smiling(7) + line(8, "stop_recording", person=1, scope="<b>"))
        cells = self.browser.find_elements(By.CSS_SELECTOR, "details td:last-child")
        self.assertEqual([cell.get_property("textContent") for cell in cells], names + ["<b>"])
        self.assertIn(names[0], self.browser.find_element(By.ID, "facts").text)
        self.assertEqual(self.script("return [window.broken, document.scripts.length]"), [None, 3])

    def test_makes_sense_of_little(self):
        movement = line(0, "movement")
        for text, charts, message in (
                ("", 0, "no persons"), (movement, 0, "no persons"),
                (smiling(0), 6, "1 cycle"), (line(0, "activity", value=1), 1, "1 measurement"),
                (line(0, "start_recording", person=1, scope="s"), 1, "No cycles."),
                (smiling(0) + smiling(0), 6, "2 cycles")):
            self.open(text)
            self.assertEqual(len(self.browser.find_elements(By.CSS_SELECTOR, ".chart")), charts)
            self.assertIn(message, self.browser.find_element(By.CSS_SELECTOR, "body").text)
            if charts == 6:
                self.assertEqual(self.painted(0, [(0, self.script(DRAWN)[0][0][1][1])]), [True])
        self.open(headed(70) + smiling(0) + smiling(1))
        text = self.browser.find_element(By.CSS_SELECTOR, "body").text
        self.assertIn("begins 2023-11-14 22:13:20.000 UTC · lasts 0:01.00", text)
        self.assertIn("Shown: 1:10.00 – 1:11.00 of 1:10.00 – 1:11.00", text)
        result = self.open(smiling(0) + "no json\n" + smiling(1), status=1)
        self.assertIn("-:2: ", result.stderr)
        self.assertIn("-:2: ", self.browser.find_element(By.ID, "failure").text)
        self.assertEqual(len(self.script(DRAWN)[0]), 1)
