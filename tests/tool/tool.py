"""The tool under test, whose path is in ZORVEL, and what its tests share."""

import csv
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

TOOL = os.environ["ZORVEL"]
SOURCE = pathlib.Path(__file__).parents[2]
SECOND = 10**9
START = 1_700_000_000 * SECOND
WAIT = 60  # seconds that anything may take


def run(*arguments, **settings):
    """Its texts and exit status; with `check=True` it has to succeed."""
    return subprocess.run([TOOL, *arguments],
                          **{"stdout": subprocess.PIPE, "stderr": subprocess.PIPE, "text": True,
                             **settings})


def line(seconds, event, **keys):
    """An entry of a recording."""
    return {"time": START + round(seconds * SECOND), "event": event, **keys}


def lines(*entries):
    """The entries as a recording has them."""
    return "".join(json.dumps(entry, ensure_ascii=False) + "\n" for entry in entries)


def rows(path):
    """Of a table with the names of its columns."""
    with open(path, newline="") as file:
        return list(csv.DictReader(file))


def recalculated(recording, folder):
    """What an independent program says of a replay's files, once it agrees with them."""
    program = SOURCE / "tests/tool/recalculate.py"
    check = subprocess.run([sys.executable, "-B", program, recording, "--compare", folder],
                           capture_output=True, text=True)
    assert check.returncode == 0, check.stdout + check.stderr
    return check.stdout


def new_folder(add_cleanup):
    folder = tempfile.TemporaryDirectory(ignore_cleanup_errors=True)
    add_cleanup(folder.cleanup)
    return pathlib.Path(folder.name)


class FolderTest(unittest.TestCase):
    """Each test has a folder of its own."""

    def setUp(self):
        self.folder = new_folder(self.addCleanup)


TOKEN = "0123456789-._~ABCXYZabcxyz"


def token_file(path, text=TOKEN + "\n", mode=0o600):
    path.write_text(text)
    path.chmod(mode)
    return path


def start_view(test, *options, port=0, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, **others):
    """A service on the port, or on a free one, until the test ends."""
    service = subprocess.Popen([TOOL, "view", "--port", str(port), *options], stdin=stdin,
                               stdout=stdout, stderr=subprocess.PIPE, text=True, **others)
    test.addCleanup(service.communicate)
    test.addCleanup(service.kill)
    line = b""  # no further, as `communicate` does not see what has been read
    while not line.endswith(b"\n"):
        line += os.read(service.stderr.fileno(), 1) or test.fail("view has ended")
    port, service.token = re.search(r"http://\S+:(\d+)/(?:#token=(\S+))?", line.decode()).groups()
    service.port = int(port)
    return service
