"""The browser of the tests that open pages."""

from selenium import webdriver
from selenium.webdriver.chrome.service import Service


def start_browser(folder, *others):
    """Keeps its profile in the folder and logs its console and its requests."""
    options = webdriver.ChromeOptions()
    options.binary_location = "/usr/bin/chromium"
    for argument in ("headless=new", "no-sandbox", "disable-gpu", "disable-quic", "no-first-run",
                     "disable-background-networking", "disable-sync", "disable-component-update",
                     "disable-dev-shm-usage", "window-size=1200,900",
                     f"user-data-dir={folder / 'browser'}", *others):
        options.add_argument("--" + argument)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL", "performance": "ALL"})
    return webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
