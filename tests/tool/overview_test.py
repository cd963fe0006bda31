"""Opens reports of several recordings in a browser, and uses them."""

import re

from selenium.webdriver.common.by import By

from report_page import ReportPageTest, calm, headed, line, means_in, shares_in, smiling
from tool import run


class OverviewTest(ReportPageTest):
    def open_several(self, *arguments, status=0):
        page = self.folder / "page.html"
        page.unlink(missing_ok=True)
        result = run("report", *arguments, "-o", page)
        self.assertEqual(result.returncode, status, result.stderr)
        self.browser.get("about:blank")  # another address of the same page would not load it again
        self.browser.get(page.as_uri())
        # At the load event, when a browser without a window prints, everything is drawn.
        self.assertGreater(self.script("return document.querySelectorAll('article').length"), 0)
        self.assertEqual(self.script("return document.querySelector('article:not(:has(svg + svg))')"),
                         None)
        return result

    def table(self):
        return [[cell.text.replace("−", "-") for cell in row.find_elements(By.TAG_NAME, "td")]
                for row in self.browser.find_elements(By.CSS_SELECTOR, "#summary tbody tr")]

    def test_compares_several_recordings(self):
        folders = [self.folder / name for name in ("first", "second")]
        for seed, folder in enumerate(folders):
            folder.mkdir()
            run("simulate", "--seconds", "60", "--seed", str(seed + 3), "--output",
                folder / "<i>&.jsonl", check=True)
        recordings = [folder / "<i>&.jsonl" for folder in folders]
        cut = self.folder / "cut.jsonl"
        cut.write_text(smiling(0) + smiling(3) + "no json\n" + smiling(9))
        result = self.open_several(*recordings, cut, self.folder / "none.jsonl", status=1)
        failures = self.browser.find_element(By.ID, "failures").text
        for expected in (f"{cut}:3: ", f"{self.folder / 'none.jsonl'}: No such file"):
            self.assertIn(expected, result.stderr)
            self.assertIn(expected, failures)

        table = self.table()
        self.assertEqual([row[0].split("\n")[0] for row in table],
                         [str(name) for name in recordings for _ in range(3)]
                         + ["cut.jsonl", "none.jsonl"])
        self.assertEqual(table[6][1:4] + table[6][5:7] + table[6][8:], [
            "Person 1", "0:03.0", "2", *3 * ["not measured"],
            "none: the first second is left out, and too little comes after it"])
        for path, those in zip(recordings, (table[:3], table[3:6])):
            for row, cells in zip(self.summary(path), those, strict=True):
                self.assertEqual([cells[1], *cells[3:7]], [
                    f"Person {row['person']}", f"{int(row['cycles']):,}", *means_in(row)])
                self.assertEqual(list(map(int, re.findall(r"(\d+) %", cells[7]))), shares_in(row))
                self.assertEqual(cells[8], f"{100 * float(row['attentive']):.0f} %")
                changes = re.findall(r"(\w+) ([-+.\d]+) at (\d+):([.\d]+)", cells[9])
                self.assertEqual([change[0] for change in changes], ["valence", "attention"])
                for name, change, minutes, seconds in changes:
                    self.assertAlmostEqual(float(change), float(row[f"{name}_change"]), delta=6e-4)
                    self.assertAlmostEqual(60 * int(minutes) + float(seconds),
                                           float(row[f"{name}_change_at"]), delta=0.06)
        self.check_pages_of_recordings(recordings)

    def check_pages_of_recordings(self, recordings):
        """A link to a person leads to the page that the recording has alone, and back."""
        seen = []
        for number in (1, 2):
            link = f"#summary a[href='#recording{number}person2']"
            self.browser.find_element(By.CSS_SELECTOR, link).click()
            self.wait("document.querySelector('iframe')")
            self.browser.switch_to.frame(self.browser.find_element(By.TAG_NAME, "iframe"))
            self.wait("scrollY > 0")
            self.browser.find_element(By.CSS_SELECTOR, "#summary a[href='#person3']").click()
            self.settle()
            self.assertLess(self.script("return person3.getBoundingClientRect().top"), 100)
            seen.append(self.script("return document.body.innerText"))
            self.browser.switch_to.default_content()
            self.browser.find_element(By.PARTIAL_LINK_TEXT, "All recordings").click()
            self.wait("!document.querySelector('iframe')")
        for text, recording in zip(seen, recordings):
            self.open(recording)
            alone = self.script("return document.body.innerText")
            self.assertEqual(text.split("\n")[1:], alone.split("\n")[1:])
            self.assertTrue(text.startswith(str(recording)))

    def test_aligns_recordings(self):
        """Two smiles, each as its greeting begins; the curves rise at the same place. They also do
        when second 0 of the early one is 3 s before its start."""
        recordings = [self.folder / name for name in ("early.jsonl", "late.jsonl")]
        for path, at in zip(recordings, (2, 5)):
            path.write_text(
                "".join(calm(k / 10) for k in range(10 * at))
                + line(at, "start_recording", person=1, scope="</script>")
                + "".join(smiling(k / 10) for k in range(10 * at, 100))
                + line(10, "start_recording", person=1, scope="</script>"))
        for options, begins, rises in (((), (0, 0), (2, 5)),
                                       (("--align", "</script>"), (3, 0), (5, 5)),
                                       ((), (3, 0), (5, 5))):
            if begins == (3, 0) and not options:
                recordings[0].write_text(headed(3) + recordings[0].read_text())
            self.open_several(*recordings, *options)
            # From the earliest start to the latest end.
            whole = 10 + begins[0]
            charts = self.script("""
              return [...document.querySelectorAll("svg[aria-label^='Valence']")].map((svg) =>
                [svg.viewBox.baseVal.width, svg.lastChild.lastChild.getAttribute("d")])""")
            for (width, path), begin, rise in zip(charts, begins, rises, strict=True):
                points = [tuple(map(float, point.split())) for point in re.split("[ML]", path)[1:]]
                level = points[0][1]
                self.assertAlmostEqual(points[0][0], begin / whole * width, delta=0.02)
                risen = next(x for x, y in points if y < level - 1)
                self.assertAlmostEqual(risen, rise / whole * width, delta=0.02)
        before = (self.folder / "page.html").read_bytes()
        for other, message in ((self.scene, "scene.jsonl: has no scope"), ("none", "none: No such")):
            result = run("report", *recordings, other, "--align", "</script>", "-o",
                         self.folder / "page.html")
            self.assertEqual(result.returncode, 1)
            self.assertIn(message, result.stderr)
        self.assertEqual((self.folder / "page.html").read_bytes(), before)
