"""table.py BENCHMARKS.json: prints the figures that matter, each the median of its repetitions."""

import itertools
import json
import re
import sys

CLOCKS = {"0": "simulated", "1": "system + offset"}


def main(path):
    with open(path, encoding="utf-8") as file:
        runs = json.load(file)["benchmarks"]
    medians = {run["run_name"]: run for run in runs if run.get("aggregate_name") == "median"}
    waits = {run["run_name"].split("/iterations")[0]: run for run in runs if "worst_seconds" in run}

    def microseconds(name, clock="cpu_time"):
        scale = {"ns": 1e-3, "us": 1, "ms": 1e3}[medians[name]["time_unit"]]
        return medians[name][clock] * scale

    def cases(pattern):
        matches = (re.fullmatch(pattern, name) for name in medians)
        cases = [(match[0], *match.groups()) for match in matches if match]
        return sorted(cases, key=lambda case: [int(number) for number in case[1:]])

    print("clock            rate     update      floor  update / floor  allocations")
    for name, clock, rate in cases(r"update/clock:(\d)/rate:(\d+)"):
        floor = microseconds(name.replace("update", "floorOfUpdate"))
        print(f"{CLOCKS[clock]:<15} {rate:>3} Hz {microseconds(name):>7.1f} us {floor:>7.1f} us "
              f"{microseconds(name) / floor:>15.3f} {medians[name]['allocations']:>12.2f}")
    for name, clock, rate in cases(r"updateWithoutNewFace/clock:(\d)/rate:(\d+)"):
        print(f"{CLOCKS[clock]:<15} {rate:>3} Hz {microseconds(name):>7.1f} us "
              f"{'without a new face':>26} {medians[name]['allocations']:>12.2f}")

    print("\npeople   an update   bytes a person")
    for name, people in cases(r"people/people:(\d+)"):
        print(f"{people:>6} {medians[name]['seconds_an_update'] * 1e6:>8.1f} us "
              f"{medians[name]['bytes_a_person']:>16,.0f}")

    print("\nreading everybody       99th percentile, worst in the graph   on the board")
    for people, others in itertools.product((1, 10, 60, 100), (0, 7)):
        row = f"{people:>6} people, {others} more readers:"
        for board in (0, 1):
            wait = waits[f"reading/people:{people}/others:{others}/board:{board}"]
            row += f"{wait['p99_seconds'] * 1e6:>12,.0f} us, {wait['worst_seconds'] * 1e6:>9,.0f} us"
        print(row)
    for name, people in cases(r"publish/people:(\d+)"):
        print(f"publishing {people}: {microseconds(name):.2f} us")

    print("\nof 5,000 people who come and go   before      all     half   nobody")
    for case, what in (("comeAndGoCopied", "copied"), ("comeAndGo", "moved")):
        costs = (microseconds(f"{case}/before:{before}") for before in (100, 50, 0))
        print(f"{what:<38}", *(f"{cost:>5.1f} us" for cost in costs))

    print("\nsamples remembered   an update")
    for name, samples in cases(r"window/(\d+)"):
        print(f"{samples:>18} {microseconds(name):>8.1f} us")

    print("\nsamples recorded   stopping the scope")
    for name, samples in cases(r"recorderStop/samples:(\d+)"):
        print(f"{samples:>16} {microseconds(name):>17.1f} us")

    print()
    for name, what in (("recorderUpdate", "recorder, one sample"), ("notSeen", "person not seen"),
                       ("ambiance", "ambiance, movement and update"),
                       ("guard", "guard, an observation with every field")):
        print(f"{what}: {microseconds(name) * 1000:.0f} ns")

    replay = medians["replay"]
    ratio = microseconds("replay") / microseconds("replayInTheBareLibrary")
    print(f"replay: {replay['lines']:,.0f} lines/s, {replay['bytes'] / 1e6:.1f} MB/s, "
          f"{ratio:.3f} times the bare library's time")
    one, two = (microseconds(f"replayMany/jobs:{jobs}/real_time", "real_time") for jobs in (1, 2))
    print(f"replay of 8 recordings: {one / 1e6:.2f} s with one job, {two / 1e6:.2f} s with two, "
          f"{one / two:.2f} times the speed")
    print(f"live: {medians['live/real_time']['lines']:,.0f} lines/s through a pipe")


main(*sys.argv[1:])
