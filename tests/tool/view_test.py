"""Runs the live service, as its senders and pages see it."""

import asyncio
import contextlib
import json
import os
import pathlib
import re
import resource
import shutil
import signal
import socket
import subprocess
import unittest
import urllib.error
import urllib.request

import websockets
from prometheus_client.openmetrics.parser import text_string_to_metric_families

from tool import TOKEN, TOOL, new_folder, run, start_view, token_file

WAIT = 20  # seconds that anything may take
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


class ViewTest(unittest.IsolatedAsyncioTestCase):
    def setUp(self):
        self.folder = new_folder(self.addCleanup)
        self.record = self.folder / "record.jsonl"

    def service_with_clock(self, *options, **others):
        """A service, and a function that moves its clock by seconds."""
        offset = self.folder / "offset"

        def move_clock(seconds):
            written = self.folder / "written"
            written.write_text(str(seconds))
            written.rename(offset)

        return Service(self, *options, **others, env={
            **os.environ, "LD_PRELOAD": os.environ["CLOCK_LIBRARY"], "CLOCK_OFFSET": str(offset),
            "ASAN_OPTIONS": "verify_asan_link_order=0"}), move_clock

    async def test_the_record_replays_to_the_states_that_were_sent(self):
        states = self.folder / "states.jsonl"
        scene = self.folder / "scene.jsonl"
        run("simulate", "--seconds", "30", "--people", "2", "-o", scene, check=True)
        with open(states, "w") as output:
            service = Service(self, "--record", self.record, "--forget", "0.3",
                              stdin=subprocess.PIPE, stdout=output)
        async with service.connect("states") as page:
            telling = asyncio.create_task(told(page, lambda line: line.get("scope") == "the end"))
            send = await asyncio.create_subprocess_exec(TOOL, "send", scene, "--speed", "30", "--to",
                                                        f"127.0.0.1:{service.port}")
            for number in range(20):
                service.process.stdin.write(observation(7, gaze={"yaw": number, "pitch": 0}) + "\n")
                if number in (10, 15):  # to a new id, then to one that is known
                    service.process.stdin.write(event("rename", person=7, to=8) + "\n")
                service.process.stdin.flush()
                await asyncio.sleep(0.01)
            self.assertEqual(await asyncio.wait_for(send.wait(), WAIT), 0)
            service.process.stdin.write(event("stop_recording", person=7, scope="the end") + "\n")
            service.process.stdin.flush()
            lines = await telling
        self.assertEqual(service.end()[0], 0)
        self.assertEqual(replay(self.record), states.read_text())
        sent = [json.loads(line) for line in states.read_text().splitlines()]
        self.assertGreater(len(sent), 1000)
        self.assertEqual([line for line in lines if "removed" not in line and "time" in line], sent)
        # Person 7 was renamed twice and forgotten once, 8 forgotten, and those of the scene left.
        self.assertEqual(sorted(line["person"] for line in lines if "removed" in line),
                         [1, 2, 7, 7, 7, 8])
        self.assertIn('"source":"zorvel view"', self.record.read_text().splitlines()[0])
        self.assertNotEqual(run("view", "--port", "0", "--record", self.record, input="").returncode, 0)

    async def test_its_own_messages_never_stop_it(self):
        def fill(service):
            pipe = os.open(f"/proc/{service.process.pid}/fd/2", os.O_WRONLY | os.O_NONBLOCK)
            with contextlib.suppress(BlockingIOError):
                while True:
                    os.write(pipe, b"x" * 4096)
            os.close(pipe)

        def leave(service):
            service.process.stderr.close()
            service.process.stderr = None

        for spoil in (fill, leave):
            service = Service(self)
            spoil(service)
            async with service.connect("events") as sender:
                await sender.send("bad\n" * 20 + observation(1) + "\nlast")
                while '"line":22' not in await heard(sender):
                    pass
                health = service.health()
            self.assertEqual((health["bad_lines"], health["people"]), (21, 1))
            self.assertGreaterEqual(health["lost_messages"], 10)
            service.process.send_signal(signal.SIGTERM)
            self.assertEqual(service.process.wait(WAIT), 0)

        with open("/dev/full", "w") as full:
            self.assertEqual(run("view", "--port", "0", "--until-end", input=observation(1),
                                 stderr=full).returncode, 0)
            service = Service(self, stdout=full)
            async with service.connect("events") as sender:
                await sender.send(f"{observation(1)}\n{observation(1)}\nlast")
                await heard(sender)
            status, error = service.end()
        self.assertEqual((status, error.count("standard output: No space left")), (1, 2))

    async def test_nobody_is_kept_waiting_by_a_flood_of_bad_lines(self):
        service = Service(self)
        async with service.connect("events") as flood, service.connect("events") as other:
            await flood.send("x\n" * 500_000)
            await other.send(observation(1) + "\nlast")
            self.assertIn('"line":2', await heard(other))
            with self.assertRaises(websockets.ConnectionClosed) as closed:
                while True:
                    await heard(flood)
            self.assertEqual(closed.exception.rcvd.code, 1008)
            await other.send(observation(1).encode())
            with self.assertRaises(websockets.ConnectionClosed) as closed:
                await heard(other)
            self.assertEqual(closed.exception.rcvd.code, 1003)
        self.assertEqual(service.health()["bad_lines"], 1001)
        error = service.end()[1]
        said = len(re.findall("^connection 1:", error, re.M))
        more = map(int, re.findall("and (\\d+) more from connection 1$", error, re.M))
        self.assertEqual(said + sum(more), 1000)
        self.assertLess(said, 50)

    async def test_a_clock_set_back_begins_another_record(self):
        states = self.folder / "states.jsonl"
        with open(states, "w") as output:
            service, move_clock = self.service_with_clock("--record", self.record, stdout=output)
        room = event("movement") + "\n" + event("activity", value=0.2)
        async with service.connect("states") as page, service.connect("events") as sender:
            await sender.send(f"{observation(1)}\n{observation(2)}\n{room}")
            await told(page, lambda line: "agitation" in line)
            move_clock(-3600)
            await sender.send(f"{observation(1)}\n{room}")
            lines = await told(page, lambda line: "agitation" in line)
        self.assertEqual({line["person"] for line in lines if "removed" in line}, {1, 2})
        self.assertIn("the clock was set back by 3", service.end()[1])
        self.assertEqual(replay(self.record) + replay(self.folder / "record-2.jsonl"),
                         states.read_text())

    async def test_a_late_page_gets_the_present_states(self):
        service, move_clock = self.service_with_clock("--record", self.record)
        async with service.connect("events") as sender:
            for person, seconds in ((1, 0), (2, 59), (3, 61)):
                move_clock(seconds)
                await sender.send(observation(person) + "\nlast")
                await heard(sender)
            # What happened within the last minute, after the header and the states before it.
            minute = service.get("recording").decode()
            self.assertEqual([(line["event"], line.get("person"))
                              for line in map(json.loads, minute.splitlines())],
                             [("header", None), ("restore", 1), ("restore", None),
                              ("observation", 2), ("observation", 3)])
            await sender.send(event("not_seen", person=1) + "\nlast")
            await heard(sender)
            whole = self.record.read_text().splitlines()
            # With these states it replays like the whole record.
            self.assertEqual(run("live", "--clock", "recording", check=True,
                                 input=minute + whole[-1]).stdout.splitlines(),
                             replay(self.record).splitlines()[1:])
            await sender.send(event("activity", value=0.2) + "\nlast")
            await heard(sender)
        async with service.connect("states") as late:
            lines = await told(late, lambda line: "agitation" in line)
        self.assertEqual([line["person"] for line in lines if "valence" in line], [1, 2, 3])

    async def test_a_restart_changes_nothing(self):
        state, first, second = (self.folder / name for name in ("state", "1.jsonl", "2.jsonl"))
        scene = run("simulate", "--seconds", "8", "--people", "3", check=True).stdout.splitlines()
        lines = [re.sub('"time":[0-9]*,|,"time":[0-9]*', "", line) for line in scene[1:]]
        lines = [line for line in lines if '"remove"' not in line and "stop_rec" not in line]
        part = len(lines) * 2 // 3
        outputs = []
        for record, sent in ((first, lines[:part]), (second, lines[part:])):
            with open(self.folder / "states.jsonl", "w") as output:
                service = Service(self, "--state", state, "--record", record, stdout=output)
            async with service.connect("states") as page, service.connect("events") as sender:
                before = await told(page, lambda line: line.get("picture") == "complete")
                for line in sent:
                    await sender.send(line)
                await sender.send("last")
                await heard(sender)
            self.assertEqual(service.end()[0], 0)
            outputs.append((self.folder / "states.jsonl").read_text())
            if record == first:
                saved = state.read_text()
        # A page sees the people who are there, as they were.
        last = {line["person"]: line for line in map(json.loads, outputs[0].splitlines())
                if "valence" in line}
        shown = {line["person"]: line for line in before if "valence" in line}
        self.assertEqual({person: {**line, "time": None} for person, line in shown.items()},
                         {person: {**line, "time": None} for person, line in last.items()})
        self.assertGreater(len(shown), 1)
        # The record begins with what was restored, and replays to what was sent, as without a restart.
        restored = [line for line in second.read_text().splitlines() if '"restore"' in line]
        self.assertEqual([json.loads(line)["state"] for line in restored],
                         [json.loads(line)["state"] for line in saved.splitlines()[1:]])
        self.assertEqual(replay(second), outputs[1])
        both = self.folder / "both.jsonl"
        both.write_text(first.read_text() + "".join(
            line for line in second.read_text().splitlines(keepends=True)[1:] if line.strip() not in restored))
        self.assertEqual(replay(both), "".join(outputs))
        # A file that is not whole is an error, and stays as it is.
        for bad, message in ((saved[:saved.rindex("{", 0, -400)], "not JSON"), ("", "is not whole"),
                             ("\n".join(saved.splitlines()[:-1]), "is not whole"),
                             (saved.replace('"headHeight":', '"headHeight":1'), "checksum"),
                             (saved + saved.splitlines()[1], "is not a state"),
                             (saved + event("movement", time=1), "is not a state")):
            state.write_text(bad)
            result = run("view", "--port", "0", "--state", state, "--record", self.record, input="")
            self.assertIn(message, result.stderr)
            self.assertEqual((result.returncode, state.read_text()), (1, bad))
        self.assertFalse(self.record.exists())
        # A state from the future is not restored.
        state.write_text(saved)
        (self.folder / "offset").write_text("-3600")
        service, _ = self.service_with_clock("--state", state)
        self.assertEqual(service.health()["people"], 0)
        self.assertEqual(service.end()[1].count("in the future; it is not restored"), len(shown))

    async def test_ids_belong_to_the_first_sender_that_uses_them(self):
        service = Service(self)
        people = '{"request":"people","count":3%s}'
        async with service.connect("events") as first, service.connect("events") as second:
            await first.send(observation(1) + "\n" + people % "")
            granted = json.loads(await heard(first))["people"]
            self.assertEqual((granted["first"], granted["count"]), (1000000, 3))
            await second.send(observation(2) + "\n" + observation(1) + "\n" + observation(1000002)
                              + "\n" + event("rename", person=2, to=1))
            answers = [json.loads(line) for line in (await heard(second)).splitlines()]
            self.assertEqual(answers, [
                {"error": "person 1 belongs to connection 1", "line": 2},
                {"error": "person 1000002 belongs to connection 1", "line": 3},
                {"error": "person 1 belongs to connection 1", "line": 4}])
            await second.send(people % ',"first":1000001')
            self.assertEqual(json.loads(await heard(second))["people"]["first"], 1000003)
            await first.send(event("remove", person=1) + "\nlast")
            await heard(first)
            await second.send(observation(1) + "\nlast")
            await heard(second)
            await first.send(observation(1))
            self.assertEqual(json.loads(await heard(first))["error"],
                             "person 1 belongs to connection 2")
            await first.close()
            # Ids that have become free can be had again, as after a reload.
            await second.send(observation(1) + "\n[]\n" + people % ',"first":1000000')
            answers = [json.loads(line) for line in (await heard(second)).splitlines()]
            self.assertEqual([answer.get("line") for answer in answers], [9, None])
            self.assertEqual(answers[1]["people"]["first"], 1000000)
            # A sender with the key gets them at once, with everything else that the other had.
            key = answers[1]["people"]["key"]
            async with service.connect("events") as third:
                for guess, first_granted in (("x" * 32, 1000003), (key, 1000000)):
                    await third.send(people % f',"first":1000000,"key":"{guess}"')
                    self.assertEqual(json.loads(await heard(third))["people"]["first"], first_granted)
                await third.send(observation(1) + "\nlast")
                self.assertEqual(json.loads(await heard(third))["line"], 4)

    async def test_a_sender_without_a_sign_of_life_loses_its_ids(self):
        service = Service(self)
        async with service.connect("events") as gone, service.connect("events") as back:
            await gone.send(observation(1) + "\nlast")
            await heard(gone)
            gone.transport.pause_reading()  # so it answers no pings
            async with asyncio.timeout(WAIT):
                while True:
                    await back.send(observation(1) + "\nlast")
                    if "belongs" not in await heard(back):
                        break
                    await asyncio.sleep(0.2)
            gone.transport.resume_reading()
            await gone.send(observation(1))
            self.assertIn("belongs to connection 2", await heard(gone))

    async def test_strangers_are_refused(self):
        service = Service(self, "--host", "Robot.local", "--host", "proxy.local:443")
        for text, status in (
                ("GET / HTTP/1.1\nHost: robot.LOCAL:PORT\n\n", "200"),
                ("GET / HTTP/1.1\nHost: [::1]:PORT\n\n", "200"),
                ("GET / HTTP/1.1\nHost: evil.example:PORT\n\n", "421"),
                ("GET / HTTP/1.1\nHost: 127.0.0.1\n\n", "421"),
                ("GET / HTTP/1.1\n\n", "421"),
                ("GET /other HTTP/1.1\n" + OWN + "\n", "404"),
                ("POST / HTTP/1.1\n" + OWN + "Content-Length: 2\n\n{}", "405"),
                ("POST / HTTP/1.1\n" + OWN + "Content-Length: 5000000\n\n" + "x" * 5000000, "405"),
                ("GET /states HTTP/1.1\n" + OWN + UPGRADE, "101"),
                ("GET /states HTTP/1.1\nOrigin: http://127.0.0.1:PORT\n" + OWN + UPGRADE, "101"),
                ("GET /states HTTP/1.1\nOrigin: https://127.0.0.1:PORT\n" + OWN + UPGRADE, "101"),
                ("GET /states HTTP/1.1\nOrigin: https://Robot.local\nHost: robot.local\n" + UPGRADE, "421"),
                ("GET / HTTP/1.1\nHost: proxy.local\n\n", "200"),
                ("GET / HTTP/1.1\nHost: proxy.local:443\n\n", "200"),
                ("GET / HTTP/1.1\nHost: proxy.local:PORT\n\n", "421"),
                ("GET /states HTTP/1.1\nOrigin: https://proxy.local\nHost: proxy.local\n" + UPGRADE, "101"),
                ("GET /states HTTP/1.1\nOrigin: https://proxy.local:1\nHost: proxy.local\n" + UPGRADE, "403"),
                ("GET /states HTTP/1.1\nOrigin: http://localhost:PORT\n" + OWN + UPGRADE, "403"),
                ("GET /events HTTP/1.1\nOrigin: http://evil.example\n" + OWN + UPGRADE, "403"),
                ("GET /events HTTP/1.1\nOrigin: null\n" + OWN + UPGRADE, "403"),
                ("GET /other HTTP/1.1\n" + OWN + UPGRADE, "404"),
                ("GET / HTTP/1.1\n" + OWN + "Long: " + "x" * 9000 + "\n\n", "400"),
                ("nonsense\n\n", "400")):
            self.assertTrue(service.request(text).startswith(f"HTTP/1.1 {status} "), text)
        for path in ("health", "recording", ""):
            with urllib.request.urlopen(f"http://localhost:{service.port}/{path}", timeout=WAIT) as page:
                for name, value in (("Cross-Origin-Resource-Policy", "same-origin"),
                                    ("X-Content-Type-Options", "nosniff"),
                                    ("Referrer-Policy", "no-referrer"), ("Cache-Control", "no-store")):
                    self.assertEqual(page.headers[name], value, path)
                self.assertNotIn("Access-Control-Allow-Origin", page.headers)
        policy = page.headers["Content-Security-Policy"]
        self.assertRegex(policy, "default-src 'none'.*sha256.*frame-ancestors 'none'")
        self.assertNotIn("unsafe", policy.replace("'wasm-unsafe-eval'", ""))  # of the camera
        for options, status in ((["--address", "0.0.0.0"], 2), (["--address", "nowhere"], 2),
                                (["--port", str(service.port), "--record", self.record], 1)):
            result = run("view", *options, input="", timeout=WAIT)
            self.assertEqual(result.returncode, status, result.stderr)
        self.assertIn("Address already in use", result.stderr)
        self.assertFalse(self.record.exists())
        open_to_all = Service(self, "--address", "0.0.0.0", "--host", "robot.local", "--no-token")
        self.assertIn("everybody who can reach this machine", open_to_all.process.stderr.readline())
        self.assertEqual(open_to_all.health()["people"], 0)

    async def test_a_token_opens_the_service(self):
        file = token_file(self.folder / "token")
        service = Service(self, "--token-file", file, "--record", self.record)
        shown, offered = f"Authorization: Bearer {TOKEN}\n", f"Sec-WebSocket-Protocol: zorvel,token.{TOKEN}\n"
        for path, headers, status in (
                ("", "", 200), ("camera/none", "", 404), ("other", "", 401), ("health", "", 401),
                ("metrics", "", 401), ("recording", "", 401), ("", UPGRADE, 401), ("other", UPGRADE, 401),
                ("health", shown, 200), ("health", shown.replace("Bearer", "bearer"), 200),
                ("other", shown, 404), ("health", shown.replace("Bearer", "Basic"), 401),
                ("health", shown.replace("Bearer ", ""), 401), ("health", "Authorization:\n", 401),
                ("health", shown[:-2] + "\n", 401), ("health", shown[:-1] + "x\n", 401),
                ("health", shown[:-1] + f", Bearer {TOKEN}\n", 401), ("health", shown * 2, 401),
                ("health", shown + "Authorization: Basic eA==\n", 401),
                ("health", f"Authorization: Bearer {'x' * 9000}\n", 400),
                *((path, headers + UPGRADE, status) for path in ("states", "events") for headers, status in (
                    ("", 401), (shown, 101), (offered, 101), (offered[:-2] + "\n", 401), (shown + offered, 401),
                    (offered.replace("zorvel,", ""), 101), (offered * 2, 401), (offered.replace(",", ";"), 401),
                    (offered.replace("zorvel", "token."), 401), (offered.replace("token.", ""), 401)))):
            text = f"GET /{path} HTTP/1.1\n{OWN}{headers}" + "\n" * (not headers.endswith(UPGRADE))
            answer = service.request(text)
            self.assertTrue(answer.startswith(f"HTTP/1.1 {status} "), text + answer)
            self.assertEqual("\nWWW-Authenticate: Bearer\n" in answer, status == 401)
            self.assertEqual("\nSec-WebSocket-Protocol: zorvel\n" in answer,
                             status == 101 and "zorvel," in text)
            self.assertNotIn(TOKEN, answer)
        wrong = token_file(self.folder / "wrong", "x" * 22)
        async with service.connect("states", subprotocols=["zorvel", f"token.{TOKEN}"]) as page:
            for options, status, told_ in ((["--token-file", file], 0, "^$"), ([], 1, "asks for a token"),
                                           (["--token-file", wrong], 1, "the token of .*wrong is not")):
                sent = await asyncio.to_thread(run, "send", "-", "--to", f"http://127.0.0.1:{service.port}/",
                                               *options, input=observation(1)[:-1] + ',"time":0}')
                self.assertEqual(sent.returncode, status)
                self.assertRegex(sent.stderr, told_)
            lines = await told(page, lambda line: "removed" in line)
        status, error = service.end()
        self.assertNotIn(TOKEN, f"{lines}{error}{self.record.read_text()}")

        for text, mode, problem in (("", 0o600, "holds no token"), ("\n", 0o600, "holds no token"),
                                    ("x" * 21, 0o600, "22 to 256"), ("x" * 257, 0o600, "22 to 256"),
                                    (f"{TOKEN}\n{TOKEN}", 0o600, "one line"), (TOKEN + "+", 0o600, "one line"),
                                    (TOKEN, 0o604, "every user"), (TOKEN, 0o602, "every user")):
            bad = token_file(self.folder / "bad", text, mode)
            result = run("view", "--port", "0", "--token-file", bad, input="", timeout=WAIT)
            self.assertEqual(result.returncode, 1)
            self.assertRegex(result.stderr, f"^{bad}: .*{problem}")
            self.assertNotIn(TOKEN, result.stderr)
            bad.unlink()
        made = [Service(self, "--address", "0.0.0.0", "--host", "robot.local") for _ in range(2)]
        tokens = {service.process.token for service in made}
        self.assertTrue(len(tokens) == 2 and all(len(token) == 32 for token in tokens), tokens)
        with self.assertRaisesRegex(urllib.error.HTTPError, "401"):
            made[0].health()
        async with made[0].connect("states", extra_headers={
                "Authorization": f"Bearer {made[0].process.token}"}) as page:
            await heard(page)

    async def test_limits(self):
        service = Service(self)
        async with service.connect("events") as sender:
            await sender.send(" " * (1 << 20))
            await sender.send(" " * ((1 << 20) + 1))
            with self.assertRaises(websockets.ConnectionClosed) as closed:
                await heard(sender)
            self.assertEqual(closed.exception.rcvd.code, 1009)
        # Many unfinished messages at once: 1 MiB each, one byte short.
        unfinished = b"\x81\xff" + (1 << 20).to_bytes(8, "big") + bytes(4) + b" " * ((1 << 20) - 1)
        async with service.connect("events") as honest, service.connect("states") as page:
            hoarders = [service.upgraded("events") for _ in range(17)]
            for hoarder in hoarders:
                hoarder.sendall(unfinished)
            await honest.send(observation(1) + "\nlast")
            await heard(honest)
            await told(page, lambda line: line.get("person") == 1)
            self.assertEqual(hoarders[0].recv(4), b"\x88\x02\x03\xf5")  # 1013
            for hoarder in hoarders:
                hoarder.close()
        # A connection that says nothing makes way.
        silent = [socket.create_connection(("127.0.0.1", service.port), WAIT) for _ in range(64)]
        self.assertEqual(service.health()["refused_connections"], 1)
        self.assertEqual(silent[0].recv(1), b"")
        for connection in silent:
            connection.close()
        others = [service.upgraded("states") for _ in range(64)]
        self.assertIn(" 503 ", service.request("GET / HTTP/1.1\n\n"))
        for other in others:
            other.close()

    async def test_only_a_few_get_the_last_minute_at_once(self):
        service = Service(self)
        async with service.connect("events") as sender:
            for number in range(12):  # more than sockets hold
                await sender.send(event("start_recording", person=1, scope=f"{number:02}" * 450_000))
            await sender.send("last")
            await heard(sender)
        slow = [service.requested(f"GET /recording HTTP/1.1\n{OWN}\n") for _ in range(4)]
        with self.assertRaisesRegex(urllib.error.HTTPError, "503"):
            service.get("recording")
        kept = slow[0].makefile("rb").read()
        self.assertIn(b"200 OK", kept)
        self.assertEqual(kept.count(b"start_recording"), 12)
        self.assertEqual(service.get("recording"), kept[kept.index(b"\r\n\r\n") + 4:])
        for connection in slow:
            connection.close()

    @unittest.skipIf(b"__ubsan" in pathlib.Path(TOOL).read_bytes(),
                     "the sanitizer looks at memory through descriptors")
    async def test_goes_on_when_descriptors_have_run_out(self):
        service = Service(self, preexec_fn=lambda: resource.setrlimit(
            resource.RLIMIT_NOFILE, (24, 24)))
        waiting = [socket.create_connection(("127.0.0.1", service.port), WAIT) for _ in range(30)]
        self.assertIn("Too many open files", service.process.stderr.readline())
        for connection in waiting:
            connection.close()
        self.assertEqual(service.health()["status"], "ok")
        self.assertEqual(service.end(), (0, ""))

    async def test_a_page_shows_who_is_there(self):
        service = Service(self)
        everybody = list(range(1, 601))
        scene = "\n".join(map(observation, everybody))
        is_complete = lambda line: line.get("picture") == "complete"
        async with service.connect("events") as sender, service.connect("events") as other:
            await sender.send(scene + "\nlast")
            await heard(sender)
            async with service.connect("states", max_queue=1) as page:
                lines = await told(page, is_complete)
                self.assertIn("reasons", lines[0])
                self.assertEqual([line["person"] for line in lines if "valence" in line], everybody)
                self.assertEqual([line for line in lines if "missed" in line], [])
                # Messages about bad lines displace nothing.
                await sender.send("bad\n" + event("remove", person=5) + "\n" + "bad\n" * 3000)
                lines = await told(page, lambda line: "removed" in line)
                self.assertEqual(lines[-1]["person"], 5)
                while len(service.health()["connections"]) > 2:
                    await asyncio.sleep(0.05)
                # A page that does not read gets another picture, without people who were removed.
                for _ in range(20):
                    await other.send(scene)
                await other.send(event("remove", person=7) + "\nlast")
                await heard(other)
                lines = await told(page, is_complete)
                begin = lines.index({"picture": "begins"})
                self.assertEqual(sum("person" in line for line in lines[:begin]) +
                                 sum(line.get("missed", 0) for line in lines), 20 * 600 + 1)
                self.assertTrue(any("reasons" in line for line in lines[:begin]))
                everybody.remove(7)
                self.assertEqual([line["person"] for line in lines[begin:] if "valence" in line],
                                 everybody)
                await page.send('{"forces":true}\n{"forces":1}')
                await told(page, lambda line: "error" in line)
                await other.send(event("not_seen", person=1))
                line = (await told(page, lambda line: line.get("person") == 1))[-1]
                self.assertEqual(line["forces"][-1]["reason"], "Not visible")

    async def test_a_stalled_output_stops_nobody(self):
        service = Service(self, stdout=subprocess.PIPE)
        async with service.connect("events") as sender:
            for _ in range(200):
                await sender.send("\n".join([observation(1)] * 20))
            await sender.send("last")
            await heard(sender)
        self.assertEqual(service.health()["events"], 4000)
        service.process.send_signal(signal.SIGTERM)
        states, error = service.process.communicate(timeout=WAIT)
        dropped = int(re.search(r"did not take in time: (\d+)", error)[1])
        self.assertGreater(dropped, 0)
        self.assertEqual(len(states.splitlines()) + dropped, 4000)

    async def test_bad_lines_and_ends(self):
        service = Service(self, stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        async with service.connect("states") as page, service.connect("events") as sender:
            service.process.stdin.write('{"event":"<b>"}\n' + observation(2) + "\n")
            service.process.stdin.flush()
            self.assertEqual(json.loads(service.process.stdout.readline())["person"], 2)
            bad = (await told(page, lambda line: "bad_line" in line))[-1]["bad_line"]
            self.assertEqual((bad["source"], bad["line"]), ("standard input", 1))
            await sender.send("\n\n" + observation(1) + "\noops")
            self.assertEqual(json.loads(await heard(sender))["line"], 4)
            told_of = [(each["name"], each["lines"], each["bad_lines"], each["dropped"])
                       for each in service.health()["connections"]]
            self.assertEqual(told_of[:2], [("standard input", 2, 1, 0), ("connection 1", 4, 1, 0)])
            self.assertEqual((told_of[2][0], *told_of[2][2:]), ("page 1", 0, 0))
            families = list(text_string_to_metric_families(service.get("metrics").decode()))
            self.assertTrue(all(family.documentation for family in families))
            metrics = {sample.name: sample.value for family in families for sample in family.samples}
            health = service.health()
            self.assertEqual(metrics["zorvel_view_senders"], 2)
            for name in health.keys() - {"time", "uptime", "started"}:
                if isinstance(health[name], int):
                    total = metrics.get(f"zorvel_view_{name}_total")
                    self.assertEqual(metrics.get(f"zorvel_view_{name}", total), health[name])
            status, error = await asyncio.to_thread(service.end)  # with all connections still open
        self.assertEqual(status, 0)
        self.assertIn('standard input:1: event: "<b>" is not an event\nconnection 1:4: ', error)
        for text, options, expected in ((observation(1), ["--until-end"], 0),
                                        ("oops", ["--until-end"], 1),
                                        ("oops", ["--strict"], 1)):
            result = run("view", "--port", "0", *options, input=text, timeout=WAIT)
            self.assertEqual(result.returncode, expected, result.stderr)

    async def test_the_record_is_whole_whatever_ends_it(self):
        killed = Service(self, "--record", self.record)
        async with killed.connect("events") as sender:
            await sender.send("\n".join([observation(1)] * 500) + "\nlast")
            await heard(sender)
            minute = killed.get("recording")
        killed.end(signal.SIGKILL)
        self.assertEqual(self.record.read_bytes(), minute)
        self.assertEqual(len(replay(self.record).splitlines()), 500)

        full = self.folder / "full.jsonl"
        service = Service(self, "--record", full, preexec_fn=lambda: resource.setrlimit(
            resource.RLIMIT_FSIZE, (4096, 4096)))
        async with service.connect("events") as sender:
            await sender.send("\n".join([observation(1)] * 500) + "\nlast")
            await heard(sender)
        self.assertEqual(service.health()["events"], 500)
        self.assertIsNone(service.health()["recording"])
        self.assertEqual(len(service.get("recording").splitlines()), 501)
        status, error = service.end()
        self.assertEqual(status, 1)
        self.assertEqual(error.count("File too large"), 2, error)  # when it happens, and at the end
        self.assertGreater(len(replay(full).splitlines()), 10)

        away = self.folder / "away"
        away.mkdir()
        service = Service(self, "--record", away / "record.jsonl")
        async with service.connect("states") as page:
            shutil.rmtree(away)
            failure = lambda line: line.get("status", {}).get("recording_failure")
            self.assertIn("was deleted", failure((await told(page, failure))[-1]))
        status, error = service.end()
        self.assertEqual((status, error.count("was deleted")), (1, 2), error)

    async def test_programs_of_this_user_come_by_a_socket(self):
        path = self.folder / "socket"
        for _ in range(2):  # the second time over the socket that the first, killed, has left behind
            service = subprocess.Popen([TOOL, "view", "--address", "none", "--socket", path],
                                       stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                       stderr=subprocess.PIPE, text=True)
            self.addCleanup(service.communicate)
            self.addCleanup(service.kill)
            self.assertIn(f"unix:{path}", service.stderr.readline())
            self.assertEqual(path.stat().st_mode & 0o777, 0o600)
            async with websockets.unix_connect(str(path), "ws://robot/states") as page:
                sent = await asyncio.to_thread(run, "send", "-", "--to", f"unix:{path}",
                                               input=observation(1)[:-1] + ',"time":0}')
                self.assertEqual((sent.returncode, sent.stderr), (0, ""))
                await told(page, lambda line: "removed" in line)
            self.assertEqual(run("view", "--port", "0", "--socket", path, input="").returncode, 1)
            service.send_signal(signal.SIGKILL)
            service.wait(WAIT)
        self.assertEqual(run("view", "--address", "none", input="").returncode, 2)
