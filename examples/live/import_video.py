#!/usr/bin/python3
"""Makes a recording of a video without a window: import_video.py VIDEO [PICTURES_A_SECOND]

Lets Chromium open the live page and give it the video; the recording appears in the current folder.
Needs zorvel in the path, with its camera, and Debian's chromium-driver and python3-selenium.
"""

import pathlib
import re
import subprocess
import sys
import time

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.support.wait import WebDriverWait


def main(video, rate="15"):
    service = subprocess.Popen(["zorvel", "view", "--port", "0"], stdin=subprocess.DEVNULL,
                               stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
    options = webdriver.ChromeOptions()
    options.binary_location = "/usr/bin/chromium"
    options.add_argument("--headless=new")
    if subprocess.run(["id", "-u"], capture_output=True, text=True, check=True).stdout == "0\n":
        options.add_argument("--no-sandbox")  # which Chromium wants of root
    options.add_experimental_option("prefs", {"download.default_directory": str(pathlib.Path.cwd())})
    browser = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
    try:
        browser.get(re.search(r"http://\S+", service.stderr.readline())[0])
        browser.execute_script("document.querySelector('[name=rate]').value = arguments[0]", rate)
        browser.find_element(By.NAME, "video").send_keys(str(pathlib.Path(video).resolve()))
        is_running, said = True, ""
        while is_running:
            time.sleep(0.2)
            is_running, text = browser.execute_script("""
                const [stage, text] = document.querySelectorAll("#camera > .stage, #camera > .text");
                return [!stage.hidden, text.textContent]""")
            if text != said:
                print(text, file=sys.stderr)
            said = text
        save = browser.find_element(By.ID, "save-video")
        if not save.is_displayed():
            raise SystemExit(1)
        recording = pathlib.Path(save.get_attribute("download"))
        save.click()
        # Before it is whole, the browser keeps its name with an empty file.
        WebDriverWait(browser, 30).until(lambda _: recording.exists() and recording.stat().st_size)
        print(recording)
    finally:
        browser.quit()
        service.terminate()
        service.wait()


main(*sys.argv[1:])
