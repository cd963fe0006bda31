"""table.py BENCHMARKS.json: the figures that matter, of one run of the benchmarks."""

import json
import re
import sys

CLOCKS = {"0": "simulated", "1": "system + offset"}


def main(path):
    with open(path, encoding="utf-8") as file:
        runs = {run["name"]: run for run in json.load(file)["benchmarks"]}

    def microseconds(name):
        scale = {"ns": 1e-3, "us": 1, "ms": 1e3}[runs[name]["time_unit"]]
        return runs[name]["cpu_time"] * scale

    print("clock            rate   update    floor  update / floor  allocations")
    for name in runs:
        case = re.fullmatch(r"update/clock:(\d)/rate:(\d+)", name)
        if case:
            floor = microseconds(name.replace("update", "floorOfUpdate"))
            print(f"{CLOCKS[case[1]]:<15} {case[2]:>3} Hz {microseconds(name):>5.1f} us "
                  f"{floor:>5.1f} us {microseconds(name) / floor:>15.2f} "
                  f"{runs[name]['allocations']:>12.2f}")

    print("\npeople   an update   bytes a person")
    for name, run in runs.items():
        if run.get("seconds_an_update"):
            people = re.search(r"people:(\d+)", name)[1]
            print(f"{people:>6} {run['seconds_an_update'] * 1e6:>8.1f} us "
                  f"{run['bytes_a_person']:>16,.0f}")

    replay, bare = (runs[name] for name in ("replay", "replayInTheBareLibrary"))
    live = runs["live/real_time"]
    print(f"\nreplay: {replay['lines']:,.0f} lines/s, {replay['bytes'] / 1e6:.1f} MB/s, "
          f"{replay['cpu_time'] / bare['cpu_time']:.2f} times the bare library's time")
    print(f"live: {live['lines']:,.0f} lines/s through a pipe")


main(*sys.argv[1:])
