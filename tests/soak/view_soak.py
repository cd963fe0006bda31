#!/usr/bin/env python3
"""view_soak.py ZORVEL SECONDS [PEOPLE [PAGES]]: a live service with honest clients and hostile ones.

Honest: a sender of people at 30 Hz; pages, one of them slow and another that never reads; a robot
whose machine goes away and comes back. Hostile, all at once: floods of bad lines, hoarders of
unfinished messages, silent connections, requests whose answers nobody reads, binary messages, large
bodies, ids that come and go, pages that come and go.

Prints every minute what went in and out, the memory and the processor's share of the service, and in
the end whether anything was lost: each event has its state at the fast pages and in the record, a
replay of the record gives the states that were sent, and no honest connection was closed.
"""

import asyncio
import contextlib
import itertools
import json
import math
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import time
import urllib.request

import websockets

RATE = 30
PEOPLE = int(sys.argv[3]) if len(sys.argv) > 3 else 12
PAGES = int(sys.argv[4]) if len(sys.argv) > 4 else 4
ROBOT = PEOPLE + 1  # its person


def observation(person, cycle):
    sway = math.sin(cycle / 40 + person)
    sure = lambda value: {"value": round(value, 3), "confidence": 0.9}
    return json.dumps({
        "event": "observation", "person": person, "height": {"value": 1.2},
        "distance": {"value": round(1 + 0.2 * sway, 3)}, "smile": sure(abs(sway)),
        "expressions": {"joy": sure(max(0, sway)), "anger": sure(max(0, -sway)), "calm": sure(0.2)},
        "headPosture": {"yaw": round(20 * sway, 2), "pitch": 2.5, "roll": 0},
        "gaze": {"yaw": round(25 * sway, 2), "pitch": -1},
        "facialPoints": {"points": [{"point": point, "x": 0, "y": 0, "confidence": 0.8}
                                    for point in range(12)]}})


class Place:
    """Where the service is."""

    def __init__(self, port):
        self.port = port

    def connect(self, path):
        return websockets.connect(f"ws://127.0.0.1:{self.port}/{path}", max_size=None, max_queue=1,
                                  ping_interval=None)

    async def raw(self, text=b""):
        reader, writer = await asyncio.open_connection("127.0.0.1", self.port, limit=1024)
        writer.write(text.replace(b"PORT", str(self.port).encode()))
        return reader, writer


async def feed(place, seconds):
    async with place.connect("events") as service:
        begin = time.monotonic()
        for cycle in range(RATE * seconds):
            await asyncio.sleep(max(0, begin + cycle / RATE - time.monotonic()))
            await service.send("\n".join(observation(person, cycle) for person in range(1, PEOPLE + 1)))
        with contextlib.suppress(asyncio.TimeoutError):
            raise AssertionError(await asyncio.wait_for(service.recv(), 1))


async def watch(place, told, pause=0):
    state = re.compile(r'{"time":(\d+),"person":(\d+),"valence"')
    async with place.connect("states") as service:
        await service.send('{"forces":true}')
        async for message in service:
            for text in message.splitlines():
                if (found := state.match(text)) and int(found[2]) <= PEOPLE:
                    told["states"] += 1
                    told["delay"] = max(told["delay"], round(time.time() - int(found[1]) / 1e9, 3))
                elif text.startswith('{"missed"'):
                    told["missed"] += json.loads(text)["missed"]
            await asyncio.sleep(pause)


async def never_read(place):
    async with place.connect("states") as service:
        service.transport.pause_reading()
        await asyncio.sleep(70)  # by then it is closed


async def robot(place, told):
    """Goes away without a word, and is back five seconds later with its person."""
    while True:
        service = await place.connect("events")
        service.transport.pause_reading()
        await service.send(observation(ROBOT, 0))
        await asyncio.sleep(5)
        async with place.connect("events") as back:
            await back.send(observation(ROBOT, 0) + "\nlast")
            told["returns"] += 1
            told["refused"] += "belongs" in await back.recv()
        service.transport.abort()
        await asyncio.sleep(1)


async def flood(place):
    async with place.connect("events") as service:
        await service.send("x\n" * 500_000)
        await asyncio.sleep(5)


async def hoard(place):
    frame = b"\x81\xff" + (1 << 20).to_bytes(8, "big") + bytes(4) + b" " * ((1 << 20) - 1)
    upgrade = (b"GET /events HTTP/1.1\r\nHost: 127.0.0.1:PORT\r\nConnection: Upgrade\r\n"
               b"Upgrade: websocket\r\nSec-WebSocket-Version: 13\r\n"
               b"Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n\r\n")
    writers = []
    for _ in range(20):
        reader, writer = await place.raw(upgrade)
        await reader.readuntil(b"\r\n\r\n")
        writer.write(frame)
        writers.append(writer)
    await asyncio.sleep(5)
    for writer in writers:
        writer.transport.abort()


async def say_nothing(place):
    writers = [(await place.raw())[1] for _ in range(100)]
    await asyncio.sleep(5)
    for writer in writers:
        writer.transport.abort()


async def never_take_the_last_minute(place):
    request = b"GET /recording HTTP/1.1\r\nHost: 127.0.0.1:PORT\r\n\r\n"
    writers = [(await place.raw(request))[1] for _ in range(20)]
    await asyncio.sleep(15)
    for writer in writers:
        writer.transport.abort()


async def send_what_is_not_asked_for(place):
    async with place.connect("events") as service:
        await service.send(b"\x00" * 1000)
        await asyncio.sleep(1)
    _, writer = await place.raw(b"POST / HTTP/1.1\r\nHost: 127.0.0.1:PORT\r\nContent-Length: 5000000\r\n\r\n" +
                                b"x" * 5_000_000)
    await asyncio.sleep(2)
    writer.transport.abort()


async def bring_many(place):
    async with place.connect("events") as service:
        for first in itertools.count(ROBOT + 1, 100):
            people = range(first, first + 100)
            await service.send("\n".join(f'{{"event":"not_seen","person":{person}}}\n'
                                         f'{{"event":"remove","person":{person}}}' for person in people))
            await asyncio.sleep(1)


async def come_and_go(place):
    async with place.connect("states") as service:
        await service.recv()


async def again(attack, place, counts):
    """Whatever the service does with it."""
    while True:
        with contextlib.suppress(OSError, asyncio.IncompleteReadError, websockets.WebSocketException):
            await attack(place)
        counts[attack.__name__] = counts.get(attack.__name__, 0) + 1
        await asyncio.sleep(0.5)


def memory(process):
    status = pathlib.Path(f"/proc/{process.pid}/status").read_text()
    return int(re.search(r"VmRSS:\s+(\d+)", status)[1]) / 1024


def processor_seconds(process):
    fields = pathlib.Path(f"/proc/{process.pid}/stat").read_text().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


async def main(tool, seconds):
    with tempfile.TemporaryDirectory() as folder:
        record, output = pathlib.Path(folder, "record.jsonl"), pathlib.Path(folder, "states.jsonl")
        complaints = open(pathlib.Path(folder, "errors"), "w+")
        with open(output, "w") as states:
            process = subprocess.Popen([tool, "view", "--port", "0", "--record", record],
                                       stdin=subprocess.DEVNULL, stdout=states, stderr=complaints)
        while not (told := re.search(r"http://\S+:(\d+)/", pathlib.Path(complaints.name).read_text())):
            await asyncio.sleep(0.05)
        place = Place(int(told[1]))
        fast = [{"states": 0, "missed": 0, "delay": 0.0} for _ in range(PAGES - 2)]
        slow = {"states": 0, "missed": 0, "delay": 0.0}
        returned, counts = {"returns": 0, "refused": 0}, {}
        honest = [asyncio.create_task(watch(place, each)) for each in fast]
        honest += [asyncio.create_task(watch(place, slow, pause=0.2)),
                   asyncio.create_task(robot(place, returned))]
        await asyncio.sleep(0.5)
        hostile = [asyncio.create_task(again(attack, place, counts)) for attack in (
            flood, hoard, say_nothing, never_take_the_last_minute, send_what_is_not_asked_for, bring_many,
            come_and_go, never_read)]
        feeding = asyncio.create_task(feed(place, seconds))
        begin = time.monotonic()
        while not feeding.done():
            await asyncio.wait([feeding, *honest], timeout=60, return_when=asyncio.FIRST_EXCEPTION)
            for task in [each for each in honest if each.done()]:
                task.result()  # an honest connection was closed
            minutes = (time.monotonic() - begin) / 60
            print(f"{minutes:5.1f} min  pages {fast[0]} … {fast[-1]}, slow {slow}  robot {returned}  {memory(process):.1f} MB  "
                  f"{processor_seconds(process) / minutes / 0.6:.1f} % of a core  {counts}", flush=True)
        await feeding
        for task in hostile:
            task.cancel()
        await asyncio.sleep(3)
        health = await asyncio.to_thread(lambda: urllib.request.urlopen(
            f"http://127.0.0.1:{place.port}/health", timeout=10).read().decode())
        for task in honest:
            task.cancel()
        process.terminate()
        process.wait(10)
        sent = RATE * seconds * PEOPLE
        people = re.compile(r'"person":(\d+)[,}]')
        with open(record) as lines:
            recorded = sum('"observation"' in line and int(people.search(line)[1]) <= PEOPLE
                           for line in lines)
        with open(record) as lines:
            replay = subprocess.Popen([tool, "live", "--clock", "recording"], stdin=lines,
                                      stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        with open(output, "rb") as states:
            same = all(one == other for one, other in itertools.zip_longest(replay.stdout, states))
        replay.wait()
        said = pathlib.Path(complaints.name).stat().st_size
        shown = {each["states"] for each in fast}
        print(health)
        print(f"sent {sent}, recorded {recorded}, at each fast page {shown}, longest delay "
              f"{max(each['delay'] for each in fast)} s, robot {returned}, {said} bytes on standard error, "
              f"replay {'the same' if same else 'DIFFERENT'}")
        missed = sum(each["missed"] for each in fast)
        return 0 if {recorded} | shown == {sent} and same and returned["refused"] == missed == 0 else 1


sys.exit(asyncio.run(main(sys.argv[1], int(sys.argv[2]))))
