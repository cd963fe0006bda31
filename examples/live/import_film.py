#!/usr/bin/python3
"""Makes recordings of films without a window; each is written to the current folder.

Opens the live page in Chromium and gives it the films. A film that Chromium does not play is converted
first, where ffmpeg is installed. Needs zorvel in the path, with its camera, and Debian's chromium-driver
and python3-selenium.
"""

import argparse
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import time

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.support.wait import WebDriverWait


def start_browser():
    options = webdriver.ChromeOptions()
    options.binary_location = "/usr/bin/chromium"
    options.add_argument("--headless=new")
    if subprocess.run(["id", "-u"], capture_output=True, text=True, check=True).stdout == "0\n":
        options.add_argument("--no-sandbox")  # as Chromium demands for root
    options.add_experimental_option("prefs", {"download.default_directory": str(pathlib.Path.cwd())})
    return webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)


def record(browser, page, film, rate):
    """Makes the recording and returns its name, or None, and what the page says."""
    browser.get("about:blank")
    browser.get(page)
    browser.execute_script("document.querySelector('[name=rate]').value = arguments[0]", rate)
    browser.find_element(By.NAME, "film").send_keys(str(film.resolve()))
    is_running, said = True, ""
    while is_running:
        time.sleep(0.2)
        is_running, text = browser.execute_script("""
            const [stage, text] = document.querySelectorAll("#camera > .stage, #camera > .text");
            return [!stage.hidden, text.textContent]""")
        if text != said and is_running:
            print(text, file=sys.stderr)
        said = text
    save = browser.find_element(By.ID, "save-film")
    if not save.is_displayed():
        return None, said
    recording = pathlib.Path(save.get_attribute("download"))
    recording.unlink(missing_ok=True)  # or the browser would choose another name
    save.click()
    # Until it is whole, the browser reserves its name with an empty file.
    WebDriverWait(browser, 30).until(lambda _: recording.exists() and recording.stat().st_size)
    return recording, said


def convert(film, folder):
    """Returns a film of the same pictures at the same times that Chromium plays."""
    played = pathlib.Path(folder) / f"{film.stem}.webm"
    subprocess.run(["ffmpeg", "-loglevel", "error", "-nostdin", "-i", f"file:{film}", "-an", "-c:v", "libvpx",
                    "-crf", "4", "-b:v", "8M", "-deadline", "realtime", f"file:{played}"], check=True)
    return played


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("film", nargs="+", type=pathlib.Path)
    parser.add_argument("--rate", default="15", help="pictures a second (15)")
    options = parser.parse_args()
    missing = [str(film) for film in options.film if not film.is_file()]
    if missing:
        parser.error(f"there is no {', '.join(missing)}")
    if len({film.stem for film in options.film}) < len(options.film):
        parser.error("two films would give recordings of the same name")
    service = subprocess.Popen(["zorvel", "view", "--port", "0"], stdin=subprocess.DEVNULL,
                               stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
    browser = start_browser()
    failed = False
    try:
        page = re.search(r"http://\S+", service.stderr.readline())[0]
        for film in options.film:
            recording, said = record(browser, page, film, options.rate)
            if not recording and "does not play" in said and shutil.which("ffmpeg"):
                print(f"Converting {film} …", file=sys.stderr)
                with tempfile.TemporaryDirectory() as folder:
                    try:
                        recording, said = record(browser, page, convert(film, folder), options.rate)
                    except subprocess.CalledProcessError:
                        said = f"{film}: ffmpeg does not read it."
            if recording:
                print(recording)
            else:
                print(said, file=sys.stderr)
                failed = True
    finally:
        browser.quit()
        service.terminate()
        service.wait()
    return failed


sys.exit(main())
