"""The live service under test, as its senders and pages see it."""

import asyncio
import json
import signal
import socket
import unittest
import urllib.request

import websockets

from tool import WAIT, new_folder, run, start_view

OWN = "Host: 127.0.0.1:PORT\n"
UPGRADE = ("Connection: Upgrade\nUpgrade: websocket\nSec-WebSocket-Version: 13\n"
           "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\n\n")


def event(name, **keys):
    return json.dumps({"event": name, **keys})


def observation(person, **fields):
    return event("observation", person=person, **(fields or {"touchEmotion": {"value": 1}}))


def replay(record):
    """What the service wrote to standard output while it made the record."""
    return run("live", "--clock", "recording", input=record.read_text(), check=True).stdout


class Service:
    def __init__(self, test, *options, **others):
        self.fail = test.fail
        self.process = start_view(test, *options, **others)
        self.port = self.process.port

    def connect(self, path, **options):
        return websockets.connect(f"ws://127.0.0.1:{self.port}/{path}",
                                  **{"max_size": None, "ping_interval": None, **options})

    def get(self, path):
        with urllib.request.urlopen(f"http://127.0.0.1:{self.port}/{path}", timeout=WAIT) as answer:
            return answer.read()

    def health(self):
        return json.loads(self.get("health"))

    async def until(self, holds):
        async with asyncio.timeout(WAIT):
            while not holds(self.health()):
                await asyncio.sleep(0.05)

    def requested(self, text):
        """A connection on which this was sent."""
        connection = socket.create_connection(("127.0.0.1", self.port), WAIT)
        connection.sendall(text.replace("\n", "\r\n").replace("PORT", str(self.port)).encode())
        return connection

    def request(self, text):
        """What comes before the answer's content."""
        with self.requested(text) as connection:
            answer = connection.makefile(encoding="latin-1")
            return "".join(iter(answer.readline, "\n"))

    def upgraded(self, path):
        """A WebSocket of which this end does nothing by itself."""
        connection = self.requested(f"GET /{path} HTTP/1.1\n{OWN}{UPGRADE}")
        answer = b""
        while not answer.endswith(b"\r\n\r\n"):
            answer += connection.recv(1) or self.fail("closed")
        return connection

    def end(self, number=signal.SIGTERM):
        """Returns the exit status and what came on standard error."""
        self.process.send_signal(number)
        error = self.process.communicate(timeout=WAIT)[1]
        return self.process.returncode, error


async def heard(connection):
    return await asyncio.wait_for(connection.recv(), WAIT)


async def told(page, until):
    """The lines of a page up to the first for which `until` holds."""
    lines = []
    async with asyncio.timeout(WAIT):
        while True:
            for text in (await page.recv()).splitlines():
                lines.append(json.loads(text))
                if until(lines[-1]):
                    return lines


class ViewServiceTest(unittest.IsolatedAsyncioTestCase):
    def setUp(self):
        self.folder = new_folder(self.addCleanup)
        self.record = self.folder / "record.jsonl"
