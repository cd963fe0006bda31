#!/usr/bin/env python3
"""Feeds a running `zorvel view` over WebSocket, ten times a second, and prints the states it sends.

    feed_and_watch.py [ADDRESS] [--token-file FILE] [--cycles N]

A robot would send what its camera sees. Here somebody smiles, more and more.
"""

import argparse
import asyncio
import itertools
import json
import pathlib

import websockets

MOODS = {1: "positive", 0: "neutral", -1: "negative"}


async def feed(service, cycles):
    for cycle in range(cycles) if cycles else itertools.count():
        smile = min(1, cycle / 10)
        await service.send(json.dumps({
            "event": "observation", "person": 1,
            "smile": {"value": smile, "confidence": 0.9},
            "expressions": {"joy": {"value": smile, "confidence": 0.9}},
            "headPosture": {"yaw": 5, "pitch": 0, "roll": 0},
        }))
        await asyncio.sleep(0.1)
    await service.send('{"event":"remove","person":1}')


async def main(options):
    url = "ws" + options.address.removeprefix("http")
    headers = {}
    if options.token_file:
        headers["Authorization"] = f"Bearer {options.token_file.read_text().strip()}"
    async with websockets.connect(url + "events", extra_headers=headers) as events, \
               websockets.connect(url + "states", extra_headers=headers) as states:
        feeding = asyncio.create_task(feed(events, options.cycles))
        async for message in states:
            for line in map(json.loads, message.splitlines()):
                if line.get("removed"):
                    return await feeding
                if "valence" in line:
                    print(f"person {line['person']}: {MOODS[line['mood']]}, "
                          f"valence {line['valence']['value']:.2f}, "
                          f"attention {line['attention']['value']:.2f}", flush=True)


if __name__ == "__main__":
    arguments = argparse.ArgumentParser()
    arguments.add_argument("address", nargs="?", default="http://127.0.0.1:8642/")
    arguments.add_argument("--token-file", type=pathlib.Path, metavar="FILE")
    arguments.add_argument("--cycles", type=int, metavar="N")
    asyncio.run(main(arguments.parse_args()))
