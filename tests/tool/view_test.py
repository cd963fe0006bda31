"""Runs the live service, as its senders and pages see it."""

import asyncio
import contextlib
import json
import os
import re
import resource
import shutil
import signal
import subprocess

import websockets
from prometheus_client.openmetrics.parser import text_string_to_metric_families

from tool import TOOL, WAIT, run
from view_service import Service, ViewServiceTest, event, heard, observation, replay, told


class ViewTest(ViewServiceTest):
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
            service, move_clock = self.service_with_clock("--record", self.record, "--forget", "60",
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
            service.process.stdin.write("last\n")
            service.process.stdin.flush()
            await service.until(lambda health: health["bad_lines"] == 1)
            move_clock(61)
            await service.until(lambda health: health["people"] == 0)
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
                              + "\n" + event("rename", person=2, to=1) + "\n" + event("rename", person=3, to=1))
            answers = [json.loads(line) for line in (await heard(second)).splitlines()]
            self.assertEqual(answers, [
                {"error": "person 1 belongs to connection 1", "line": 2},
                {"error": "person 1000002 belongs to connection 1", "line": 3},
                {"error": "person 1 belongs to connection 1", "line": 4},
                {"error": "person 1 belongs to connection 1", "line": 5}])
            await first.send(observation(3) + "\nlast")  # what was refused took no id
            self.assertNotIn("belongs", await heard(first))
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
            self.assertEqual([answer.get("line") for answer in answers], [10, None])
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
                await service.until(lambda health: len(health["connections"]) == 2)
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
