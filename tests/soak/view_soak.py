#!/usr/bin/env python3
"""view_soak.py ZORVEL SECONDS: a live service with 12 people at 30 Hz and two pages, one of them slow.

Prints every minute what went in and out and the memory of the service, and in the end whether
anything was lost: each event has its state at the first page and in the record, and a replay of the
record gives the states that were sent.
"""

import asyncio
import json
import math
import pathlib
import re
import subprocess
import sys
import tempfile
import time

import websockets

PEOPLE, RATE = 12, 30


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


async def feed(url, seconds):
    async with websockets.connect(url + "events") as service:
        begin = time.monotonic()
        for cycle in range(RATE * seconds):
            await asyncio.sleep(max(0, begin + cycle / RATE - time.monotonic()))
            await service.send("\n".join(observation(person, cycle) for person in range(1, PEOPLE + 1)))


async def watch(url, told, pause=0):
    async with websockets.connect(url + "states", max_size=None, max_queue=1, ping_interval=None) as service:
        await service.send('{"forces":true}')
        async for message in service:
            for text in message.splitlines():
                line = json.loads(text)
                told["states"] += "valence" in line
                told["missed"] += line.get("missed", 0)
            await asyncio.sleep(pause)


def memory(process):
    status = pathlib.Path(f"/proc/{process.pid}/status").read_text()
    return int(re.search(r"VmRSS:\s+(\d+)", status)[1]) / 1024


async def main(tool, seconds):
    with tempfile.TemporaryDirectory() as folder:
        record, output = pathlib.Path(folder, "record.jsonl"), pathlib.Path(folder, "states.jsonl")
        with open(output, "w") as states:
            process = subprocess.Popen([tool, "view", "--port", "0", "--record", record],
                                       stdin=subprocess.DEVNULL, stdout=states,
                                       stderr=subprocess.PIPE, text=True)
        url = re.search(r"http(://\S+)", process.stderr.readline())[1]
        fast, slow = {"states": 0, "missed": 0}, {"states": 0, "missed": 0}
        pages = [asyncio.create_task(watch("ws" + url, fast)),
                 asyncio.create_task(watch("ws" + url, slow, pause=0.2))]
        feeding = asyncio.create_task(feed("ws" + url, seconds))
        begin = time.monotonic()
        while not feeding.done():
            await asyncio.wait([feeding, *pages], timeout=60, return_when=asyncio.FIRST_EXCEPTION)
            for task in [page for page in pages if page.done()]:
                task.result()  # a page that was closed
            print(f"{(time.monotonic() - begin) / 60:5.1f} min  fast {fast}  slow {slow}  "
                  f"{memory(process):.1f} MB", flush=True)
        await feeding
        await asyncio.sleep(3)
        for page in pages:
            page.cancel()
        process.terminate()
        process.wait(10)
        sent = RATE * seconds * PEOPLE
        with open(record) as lines:
            recorded = sum('"observation"' in line for line in lines)
        with open(record) as lines:
            replayed = subprocess.run([tool, "live", "--clock", "recording"], stdin=lines,
                                      stdout=subprocess.PIPE).stdout
        same = replayed == output.read_bytes()
        print(f"sent {sent}, recorded {recorded}, at the fast page {fast['states']}, replay "
              f"{'the same' if same else 'DIFFERENT'}")
        return 0 if sent == recorded == fast["states"] and same else 1


sys.exit(asyncio.run(main(sys.argv[1], int(sys.argv[2]))))
