"""Sends recordings to services, and joins a message bus."""

import asyncio
import contextlib
import json
import os
import pathlib
import signal
import socket
import subprocess
import sys
import time
import unittest

import websockets

import tool
from tool import SOURCE, START, TOOL, new_folder, start_view

WAIT = 20  # seconds that anything may take


def line(*arguments, **keys):
    return tool.lines(tool.line(*arguments, **keys))


class SendTest(unittest.IsolatedAsyncioTestCase):
    async def sent(self, recording, *options, answers=(), end=None):
        """What a service gets from `send`, each line with its arrival; and how `send` ends."""
        got = []

        async def serve(connection):
            self.assertEqual(connection.path, "/events")
            async for text in connection:
                got.append((time.time_ns(), json.loads(text)))
                for answer in answers[len(got) - 1:len(got)]:
                    await connection.send(answer)

        async with websockets.serve(serve, "127.0.0.1", 0) as server:
            port = server.sockets[0].getsockname()[1]
            process = await asyncio.create_subprocess_exec(
                TOOL, "send", "-", "--to", f"127.0.0.1:{port}", *options,
                stdin=subprocess.PIPE, stderr=subprocess.PIPE)
            if end is not None:
                asyncio.get_running_loop().call_later(end, process.send_signal, signal.SIGINT)
            _, error = await asyncio.wait_for(process.communicate(recording.encode()), WAIT)
        return got, process.returncode, error.decode()

    async def test_a_recording_comes_at_its_own_speed_in_the_present(self):
        smile = {"value": 0.5, "confidence": 1}
        for end, options in ((10.4, ()), (410, ("--speed", "1000"))):
            recording = ('{"event":"header","version":1}\n' +
                         line(10, "observation", person=1, smile={**smile, "time": START + 9_750_000_000},
                              gaze={"yaw": 1, "pitch": 2}) +
                         line(9, "start_recording", person=2, scope="s", samples=3) +
                         line(end, "not_seen", person=1) + line(end, "remove", person=1) +
                         line(end, "movement"))
            begin = time.time_ns()
            got, status, error = await self.sent(recording, *options)
            self.assertEqual((status, error), (0, ""))
            self.assertEqual([each["event"] for _, each in got],
                             ["observation", "start_recording", "not_seen", "remove", "movement",
                              "remove"])  # person 2 leaves in the end
            self.assertEqual(got[-1][1]["person"], 2)
            for arrival, each in got:
                self.assertTrue(begin < each["time"] <= arrival, each)
            first = got[0][1]
            self.assertEqual(first["smile"], {**smile, "time": first["time"] - 250_000_000})
            self.assertEqual(first["gaze"], {"yaw": 1, "pitch": 2})
            self.assertGreaterEqual(got[2][1]["time"], begin + 400_000_000)

    async def test_what_goes_wrong(self):
        scene = "".join(line(person / 10, "not_seen", person=person) for person in (1, 2, 3))
        got, status, error = await self.sent(
            "\n" + scene + line(0.5, "movement"), answers=(
                '{"people":{}}', '{"error":"no","line":2}\n', '\n{"error":"nor","line":3}'))
        self.assertEqual((len(got), status, error),
                         (7, 1, "-:3: no\n-:4: nor\nlines refused: 2\n"))
        got, status, error = await self.sent(scene + "oops\n" + scene)
        self.assertEqual((len(got), status), (6, 1))
        self.assertIn("-:4: not JSON", error)
        got, status, error = await self.sent(line(0, "not_seen", person=1) +
                                             line(1000, "not_seen", person=2), end=0.5)
        self.assertEqual(([each["event"] for _, each in got], status), (["not_seen", "remove"], 0))
        with socket.create_server(("127.0.0.1", 0)) as closed:
            port = closed.getsockname()[1]
        for address, expected, told in ((f"127.0.0.1:{port}", 1, "Connection refused"),
                                        ("127.0.0.1", 2, "not like")):
            result = tool.run("send", "-", "--to", address, input="", timeout=WAIT)
            self.assertEqual(result.returncode, expected)
            self.assertIn(told, result.stderr)

        async def leave(connection):
            await connection.recv()

        async with websockets.serve(leave, "127.0.0.1", 0) as server:
            port = server.sockets[0].getsockname()[1]
            process = await asyncio.create_subprocess_exec(
                TOOL, "send", "-", "--to", f"127.0.0.1:{port}", stdin=subprocess.PIPE,
                stderr=subprocess.PIPE)
            error = (await process.communicate((scene + line(5, "movement")).encode()))[1]
        self.assertEqual(process.returncode, 1)
        self.assertIn("the service has gone", error.decode())

    async def test_a_client_of_the_examples(self):
        url = f"http://127.0.0.1:{start_view(self).port}/"
        example = SOURCE / "examples/live/feed_and_watch.py"
        client = subprocess.run([sys.executable, example, url, "20"], capture_output=True, text=True,
                                timeout=WAIT)
        self.assertEqual((client.returncode, client.stderr), (0, ""))
        moods = client.stdout.splitlines()
        self.assertEqual(len(moods), 20)
        self.assertRegex(moods[-1], r"person 1: positive, valence 0\.\d\d")


class MessageBusTest(unittest.TestCase):
    def test_joins_a_message_bus(self):
        with socket.create_server(("127.0.0.1", 0)) as free:
            port = str(free.getsockname()[1])
        settings = new_folder(self.addCleanup) / "mosquitto.conf"
        settings.write_text(f"listener {port} 127.0.0.1\nallow_anonymous true\n")
        environment = {**os.environ, "PATH": f"{pathlib.Path(TOOL).parent}:{os.environ['PATH']}"}

        def start(command, **options):
            process = subprocess.Popen(["sh", "-c", command], text=True, env=environment,
                                       start_new_session=True, stderr=subprocess.DEVNULL, **options)
            self.addCleanup(process.communicate)
            self.addCleanup(end_group, process.pid)
            return process

        def end_group(group):
            with contextlib.suppress(ProcessLookupError):
                os.killpg(group, signal.SIGTERM)

        def is_listening():
            with socket.socket() as probe:
                return probe.connect_ex(("127.0.0.1", int(port))) == 0

        start(f"exec mosquitto -c {settings}")
        end = time.monotonic() + WAIT
        while not is_listening():
            self.assertLess(time.monotonic(), end)
            time.sleep(0.05)
        # As docs/view.md has it.
        start(f"mosquitto_sub -p {port} -t robot/people | zorvel view --port 0 "
              f"| mosquitto_pub -p {port} -t robot/moods -l")
        moods = start(f"exec mosquitto_sub -p {port} -t robot/moods -C 1 -W {WAIT}",
                      stdout=subprocess.PIPE)
        publish = ["mosquitto_pub", "-p", port, "-t", "robot/people", "-m",
                   '{"event":"observation","person":1,"touchEmotion":{"value":1}}']
        # Nobody says when all have subscribed.
        while moods.poll() is None and time.monotonic() < end:
            subprocess.run(publish, check=True, timeout=WAIT)
            time.sleep(0.1)
        state = json.loads(moods.stdout.read())
        self.assertEqual((state["person"], state["mood"]), (1, 1))
