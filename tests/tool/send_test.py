"""Sends recordings to services."""

import asyncio
import json
import signal
import socket
import subprocess
import sys
import time
import unittest

import websockets

import tool
from tool import SOURCE, START, TOOL, WAIT, start_view


def line(*arguments, **keys):
    return tool.lines(tool.line(*arguments, **keys))


class SendTest(unittest.IsolatedAsyncioTestCase):
    async def sent(self, recording, *options, answers=(), interrupt=False, leave=False):
        """What a service gets from `send`, each line with its arrival; and how `send` ends.

        At the first line the service may leave, or `send` be interrupted.
        """
        got, came = [], asyncio.Event()

        async def serve(connection):
            self.assertEqual(connection.path, "/events")
            async for text in connection:
                got.append((time.time_ns(), json.loads(text)))
                came.set()
                if leave:
                    return
                for answer in answers[len(got) - 1:len(got)]:
                    await connection.send(answer)

        async with websockets.serve(serve, "127.0.0.1", 0) as server:
            port = server.sockets[0].getsockname()[1]
            process = await asyncio.create_subprocess_exec(
                TOOL, "send", "-", "--to", f"127.0.0.1:{port}", *options,
                stdin=subprocess.PIPE, stderr=subprocess.PIPE)
            ending = asyncio.create_task(process.communicate(recording.encode()))
            if interrupt:
                await asyncio.wait_for(came.wait(), WAIT)
                process.send_signal(signal.SIGINT)
            _, error = await asyncio.wait_for(ending, WAIT)
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
                              "remove"])  # person 2 leaves at the end
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
                                             line(1000, "not_seen", person=2), interrupt=True)
        self.assertEqual(([each["event"] for _, each in got], status), (["not_seen", "remove"], 0))
        with socket.create_server(("127.0.0.1", 0)) as closed:
            port = closed.getsockname()[1]
            # A service that does not answer does not keep `send` from ending.
            process = await asyncio.create_subprocess_exec(
                TOOL, "send", "-", "--to", f"127.0.0.1:{port}", stdin=subprocess.PIPE,
                stderr=subprocess.PIPE)
            with (await asyncio.to_thread(closed.accept))[0] as silent:
                silent.recv(1)
                process.send_signal(signal.SIGINT)
                _, error = await asyncio.wait_for(process.communicate(), WAIT)
            self.assertEqual(process.returncode, 1)
            self.assertIn(b"does not respond", error)
        for address, expected, told in ((f"127.0.0.1:{port}", 1, "Connection refused"),
                                        (f"[::ffff:127.0.0.1]:{port}", 1, "Connection refused"),
                                        (f"ws://127.0.0.1:{port}/events", 1, "Connection refused"),
                                        ("http://robot.invalid", 1, "robot.invalid: "),
                                        ("127.0.0.1", 2, "not like"), ("::1:80", 2, "not like"),
                                        ("robot:http", 2, "not like"), ("robot:65536", 2, "not like"),
                                        ("http://me@robot:80", 2, "not like"), ("unix:", 2, "not like"),
                                        ("http://robot/states", 2, "not / or /events"),
                                        ("wss://robot/", 2, "TLS"),
                                        ("http://robot:8642/#token=secret", 2, "--token-file")):
            result = tool.run("send", "-", "--to", address, input="", timeout=WAIT)
            self.assertEqual(result.returncode, expected)
            self.assertIn(told, result.stderr)
            self.assertNotIn("secret", result.stderr)
        stranger = start_view(self, "--address", "0.0.0.0", "--host", "robot", "--no-token").port
        result = tool.run("send", "-", "--to", f"127.0.0.2:{stranger}", input="", timeout=WAIT)
        self.assertIn('answers 421: "this server does not go by that name', result.stderr)
        _, status, error = await self.sent(scene + line(5, "movement"), leave=True)
        self.assertEqual(status, 1)
        self.assertIn("the service has gone", error)

    async def test_a_client_of_the_examples(self):
        file = tool.token_file(tool.new_folder(self.addCleanup) / "token")
        url = f"http://127.0.0.1:{start_view(self, '--token-file', file).port}/"
        example = SOURCE / "examples/live/feed_and_watch.py"
        client = subprocess.run([sys.executable, example, url, "--cycles", "20", "--token-file", file],
                                capture_output=True, text=True, timeout=WAIT)
        self.assertEqual((client.returncode, client.stderr), (0, ""))
        moods = client.stdout.splitlines()
        self.assertEqual(len(moods), 20)
        self.assertRegex(moods[-1], r"person 1: positive, valence 0\.\d\d")
