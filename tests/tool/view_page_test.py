"""Opens the live page in a browser, and uses it."""

import json
import subprocess

from selenium.webdriver.common.by import By

from browser import BrowserTest
from tool import TOOL, WAIT, run, start_view, token_file


def line(event, **keys):
    return json.dumps({"event": event, **keys}) + "\n"


def smiling(person):
    return line("observation", person=person, smile={"value": 1, "confidence": 1},
                expressions={"joy": {"value": 1, "confidence": 1}},
                headPosture={"yaw": 0, "pitch": 0, "roll": 0})


class ViewPageTest(BrowserTest):
    def setUp(self):
        self.browser.get("about:blank")
        self.browser.get_log("browser")
        self.service = start_view(self, stdin=subprocess.PIPE)
        self.port = self.service.port

    def open(self, width=1400, height=900, **features):
        self.browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
            "width": width, "height": height, "deviceScaleFactor": 1, "mobile": False})
        self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {
            "features": [{"name": name.replace("_", "-"), "value": value}
                         for name, value in features.items()]})
        self.browser.get(f"http://127.0.0.1:{self.port}/")
        self.wait("page.lastStatus !== undefined")

    def feed(self, text):
        self.service.stdin.write(text)
        self.service.stdin.flush()

    def texts(self, selector):
        return [each.text for each in self.browser.find_elements(By.CSS_SELECTOR, selector)]

    def assert_no_complaints(self):
        self.assertEqual([entry for entry in self.browser.get_log("browser")
                          if "ERR_CONNECTION_REFUSED" not in entry["message"]], [])

    def test_people_come_are_shown_and_go(self):
        self.open()
        self.assertIn("Nobody is here", self.texts("#nobody")[0])
        self.feed("".join(smiling(person) for person in range(1, 13)) + line("movement") +
                  line("activity", value=0.05))
        self.wait("page.cards.size === 12 && document.querySelectorAll('.why li').length >= 36")
        first = self.texts(".card")[0].splitlines()
        self.assertEqual(first[0], "Person 1")
        self.assertRegex(first[1], r"\+ positive \d+ %")
        self.assertRegex(" ".join(first), r"Valence 0\.\d\d \d+ % sure Attention 0\.\d\d \d+ % sure "
                                          r"Ease 0\.0 50 % sure")
        self.assertIn("The face pulls valence up", first)
        self.assertIn("agitation 0.14, calm 0.86", self.texts("#room")[0])
        self.script("page.announce()")
        self.assertIn("12 people. Person 1: positive",
                      self.script("return document.getElementById('announcement').textContent"))
        self.feed(line("remove", person=2))
        self.wait("!page.cards.has(2) && document.querySelector('.slot')")
        self.feed(smiling(13))
        self.wait("page.cards.has(13)")
        self.assertEqual(self.script("return [...document.querySelectorAll('.card h2')].map("
                                     "(each) => Number(each.textContent.slice(7)))"),
                         [1, 13, *range(3, 13)])
        self.script("document.querySelector('#choice').open = true")
        self.browser.find_elements(By.CSS_SELECTOR, "#choice input")[0].click()
        self.assertEqual(sum(each.is_displayed() for each in
                             self.browser.find_elements(By.CLASS_NAME, "card")), 11)
        self.wait("page.badges.size === 11")
        self.assert_no_complaints()

    def test_everybody_at_a_glance(self):
        self.open()
        plane = self.browser.find_element(By.ID, "plane")
        self.assertFalse(plane.is_displayed())  # there is nobody
        self.feed(smiling(1) + smiling(1234567))
        self.wait("page.badges.size === 2")
        self.assertTrue(self.script("""
          const canvas = document.querySelector("#plane canvas");
          const {data} = canvas.getContext("2d").getImageData(0, 0, canvas.width, canvas.height);
          return [...page.badges.values()].every(({x, y, height}) =>
            data[4 * (Math.round(y - height / 4) * canvas.width + Math.round(x)) + 3] > 0)"""))
        self.script("""const {state} = page.cards.get(1).person;
                       page.onLine({...state, valence: {value: null, confidence: null}})""")
        self.wait("page.badges.size === 1")
        page = self.browser.find_element(By.TAG_NAME, "body")
        for is_shown in (False, True):
            page.send_keys("g")
            self.assertEqual(plane.is_displayed(), is_shown)
        self.feed(line("remove", person=1) + line("remove", person=1234567))
        self.until(lambda: not plane.is_displayed())
        self.assert_no_complaints()

    def test_orders_of_the_cards(self):
        self.open()
        order = self.browser.find_element(By.CSS_SELECTOR, "#order select")
        self.feed(smiling(3))
        self.wait("page.cards.size === 1")
        self.assertFalse(order.is_displayed())
        self.feed(smiling(1) + smiling(2))
        self.wait("page.cards.size === 3")
        cards = "return [...document.querySelectorAll('main > *')].map((box) => box.textContent.slice(0, 8))"
        expected = [f"Person {person}" for person in (1, 2, 3)]
        order.send_keys("b")  # by number
        self.assertEqual(self.script(cards), expected)
        self.feed(line("remove", person=2))
        self.wait("document.querySelectorAll('main > *').length === 2")  # no place stays free
        self.feed(smiling(2))
        self.wait("page.cards.has(2)")
        self.assertEqual(self.script(cards), expected)
        order.send_keys("w")  # who moved most
        self.feed(line("not_seen", person=3) * 20)
        self.wait("page.cards.get(3).person.state.valence.value < 0.1")
        self.script("page.arrange()")
        self.assertEqual(self.script(cards)[0], "Person 3")
        self.assertTrue(self.script("return document.activeElement === arguments[0]", order))
        self.assert_no_complaints()

    def test_fits_every_width(self):
        for width, features in ((320, {"prefers_color_scheme": "dark"}),
                                (400, {"prefers_reduced_motion": "reduce"}), (768, {}), (1400, {})):
            self.open(width, **features)
            self.feed(smiling(1) + smiling(-2147483648) + "oops " + "x" * 500 + "\n")
            # The page's first picture lacks the forces of lines that come meanwhile.
            self.until(lambda: self.feed(smiling(1)) or self.script(
                "return page.cards.size === 2 && document.querySelector('.why li')"))
            self.script("document.querySelectorAll('details').forEach((d) => { d.open = true; });"
                        "document.getElementById('hand').hidden = false")
            self.assertLessEqual(self.script("return document.documentElement.scrollWidth"), width)
            motion = self.script("return getComputedStyle(page.cards.get(1).box).transitionDuration")
            self.assertEqual(motion == "0s", "prefers_reduced_motion" in features)

    def test_pause_holds_what_is_drawn(self):
        self.open()
        scene = subprocess.Popen([TOOL, "simulate", "--people", "3"], stdout=subprocess.PIPE)
        send = subprocess.Popen([TOOL, "send", "-", "--to", f"127.0.0.1:{self.port}"],
                                stdin=scene.stdout, stderr=subprocess.DEVNULL)
        self.addCleanup(send.wait, WAIT)
        self.addCleanup(send.terminate)
        self.addCleanup(scene.communicate)
        self.wait("page.cards.size > 0")
        self.browser.find_element(By.TAG_NAME, "body").send_keys("p")
        shown = "return [...page.cards.values()].map(({curves, box}) => curves.canvas.toDataURL())"
        before = self.script(shown)
        self.wait("/[1-9]\\d* lines? behind/.test(document.getElementById('pause').textContent)")
        self.assertTrue(self.script(shown)[:len(before)] == before, "it goes on")
        self.browser.find_element(By.TAG_NAME, "body").send_keys("p")
        self.until(lambda: self.script(shown)[0] != before[0])
        self.assertEqual(self.texts("#pause"), ["P\nPause"])
        self.assert_no_complaints()

    def test_comes_back_after_the_service(self):
        self.open()
        self.feed(smiling(1))
        self.wait("page.cards.size === 1")
        self.service.kill()
        self.service.wait(WAIT)
        self.wait("document.getElementById('connection').className !== 'live'")
        self.assertRegex(self.texts("#connection")[0], "the last line came at .*:")
        self.service = start_view(self, port=self.port, stdin=subprocess.PIPE)
        self.wait("document.getElementById('connection').className === 'live' && page.cards.size === 0")
        self.feed(smiling(2))
        self.wait("page.cards.has(2)")
        self.script("""for (const picture of ["begins", "complete"]) page.onLine({ picture })""")
        self.wait("page.cards.size === 0")  # nobody was in it

    def test_saves_the_last_minute(self):
        self.open()
        self.feed(smiling(1) * 3)
        self.wait("page.cards.size === 1")
        self.browser.execute_cdp_cmd("Browser.setDownloadBehavior", {
            "behavior": "allow", "downloadPath": str(self.folder)})
        self.browser.find_element(By.ID, "save").click()
        saved = self.folder / "last-minute.jsonl"
        self.until(saved.exists)
        told = json.loads(run("info", "--json", saved, check=True).stdout)
        self.assertEqual(told["persons"][0]["observations"], 3)

    def test_asks_for_the_token(self):
        files = [token_file(self.folder / name, name * 22) for name in "ab"]
        service = start_view(self, "--token-file", files[0], stdin=subprocess.PIPE)
        address = f"http://127.0.0.1:{service.port}/"
        live = "document.getElementById('connection').className === 'live'"

        def answer(text, said):
            self.wait("document.activeElement === document.querySelector('#token input')")
            self.browser.find_element(By.CSS_SELECTOR, "#token input").send_keys(text + "\n")
            self.wait(said)

        def says(text):
            return f"document.querySelector('#token p').textContent.includes('{text}')"

        self.browser.get(address)
        self.wait(says("--token-file"))
        answer("no token", says("not a token"))
        self.browser.refresh()
        answer("c" * 22, says("another token"))
        answer(f"{address}#token={'a' * 22}", live)
        service.stdin.write(smiling(1))
        service.stdin.flush()
        self.wait("page.cards.size === 1")
        self.browser.find_element(By.ID, "by-hand").click()
        self.wait("page.cards.size === 2")
        self.browser.execute_cdp_cmd("Browser.setDownloadBehavior", {
            "behavior": "allow", "downloadPath": str(self.folder / "token")})
        self.browser.find_element(By.ID, "save").click()
        self.until((self.folder / "token/last-minute.jsonl").exists)
        # A service with another token is not asked again and again.
        service.kill()
        service.wait(WAIT)
        service = start_view(self, "--token-file", files[1], port=service.port)
        self.wait(says("another token"))
        self.assertEqual(self.texts("#connection"), ["The service asks for a token"])
        self.assertEqual(self.texts("#hand"), [""])
        # The token is removed from the address at once, and the rest stays.
        self.script(f"location.hash = 'camera&token={'b' * 22}'")
        self.wait(live)
        self.assertEqual(self.browser.current_url, address + "#camera")
        self.assertTrue(self.browser.find_element(By.ID, "camera").is_displayed())
        self.script("setTimeout(() => location.reload())")
        self.wait(live)

    def test_texts_are_never_markup(self):
        markup = "<img src=x onerror=document.title='gone'>"
        self.open()
        self.feed(smiling(1) + line("start_recording", person=1, scope=markup) +
                  line("stop_recording", person=1, scope=markup) + line(markup) + markup + "\n")
        self.wait("page.lastStatus.bad_lines === 2")
        self.script("document.querySelector('#bad-lines').open = true")
        self.assertIn("standard input, line 4: event: \"<img src=x", self.texts("#bad-lines li")[1])
        self.assertEqual(self.texts("#bad-lines summary"), ["2 bad lines"])
        self.assertEqual(self.browser.title, "zorvel view")
        self.assertEqual(self.browser.find_elements(By.CSS_SELECTOR, "img"), [])

    def test_a_person_by_hand(self):
        self.open()
        self.browser.find_element(By.ID, "by-hand").click()
        self.wait("page.cards.has(1000000)")
        self.script("document.querySelector('[name=face]').value = 1")
        self.wait("page.cards.get(1000000).person.state.valence.value > 0.9")
        self.script("document.querySelector('[name=face]').value = 0")
        self.browser.find_elements(By.CSS_SELECTOR, "[data-touch]")[1].click()
        self.wait("page.cards.get(1000000).person.state.valence.value < 0")
        self.browser.refresh()
        self.wait("page.cards.has(1000000) && page.lastStatus")
        self.browser.find_element(By.ID, "by-hand").click()
        self.wait("page.cards.size === 1 && page.cards.get(1000000)?.person.pulls.length > 0")
        self.browser.find_element(By.ID, "by-hand").click()
        self.wait("!page.cards.has(1000000) && document.getElementById('hand').hidden")
        self.assert_no_complaints()
