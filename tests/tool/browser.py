"""The browser of the tests that open pages."""

import unittest

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.support.wait import WebDriverWait

from tool import new_folder


class BrowserTest(unittest.TestCase):
    browser_options = ()

    @classmethod
    def setUpClass(cls):
        """Keeps its profile in the folder and logs its console and its requests."""
        cls.folder = new_folder(cls.addClassCleanup)
        options = webdriver.ChromeOptions()
        options.binary_location = "/usr/bin/chromium"
        for argument in ("headless=new", "no-sandbox", "disable-gpu", "disable-quic", "no-first-run",
                         "disable-background-networking", "disable-sync",
                         "disable-component-update", "disable-dev-shm-usage",
                         "window-size=1200,900", f"user-data-dir={cls.folder / 'browser'}",
                         *cls.browser_options):
            options.add_argument("--" + argument)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL", "performance": "ALL"})
        cls.browser = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
        cls.addClassCleanup(cls.browser.quit)
        cls.script = cls.browser.execute_script

    def until(self, condition, name=""):
        """What the condition gives as soon as that is true."""
        return WebDriverWait(self.browser, 120, 0.05).until(lambda _: condition(), name)

    def wait(self, script):
        self.until(lambda: self.script(f"return Boolean({script})"), script)
