#!/usr/bin/env python3
"""Feeds `zorvel live` with perception and prints each person's state as it changes.

A robot would send what its camera sees, as it sees it. Here a recording stands in for the camera:

    watch_mood.py zorvel recording.jsonl
"""

import json
import subprocess
import sys
import threading

MOODS = {1: "positive", 0: "neutral", -1: "negative"}


def feed(recording, service):
    """Sends one line at a time; a camera loop would build the same lines with json.dumps."""
    with open(recording, encoding="utf-8") as lines, service.stdin:
        for line in lines:
            service.stdin.write(line)
            service.stdin.flush()


def main(tool, recording):
    # A recording brings its own times. With a camera, leave the option out: the wall clock then gives
    # the time, and lines need none.
    service = subprocess.Popen([tool, "live", "--clock", "recording"], text=True, encoding="utf-8",
                               stdin=subprocess.PIPE, stdout=subprocess.PIPE)
    threading.Thread(target=feed, args=(recording, service), daemon=True).start()

    last_moods = {}
    for line in service.stdout:
        state = json.loads(line)
        if "valence" not in state:  # a scope or the room
            continue
        person, mood = state["person"], state["mood"]
        if last_moods.get(person) != mood:
            last_moods[person] = mood
            valence, attention = state["valence"], state["attention"]
            print(f"{state['time']} person {person} is {MOODS[mood]}: "
                  f"valence {valence['value']} ({valence['confidence']}), "
                  f"attention {attention['value']} ({attention['confidence']})")
    return service.wait()


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
