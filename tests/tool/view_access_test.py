"""Who gets into the live service, and how much they can ask of it."""

import asyncio
import pathlib
import resource
import signal
import socket
import subprocess
import unittest
import urllib.error
import urllib.request

import websockets

from tool import TOKEN, TOOL, WAIT, run, token_file
from view_service import OWN, UPGRADE, Service, ViewServiceTest, event, heard, observation, told


class ViewAccessTest(ViewServiceTest):
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
