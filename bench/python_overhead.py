"""python_overhead.py BENCHMARKS: what an update costs from Python and from C++, with all fields.

The two are measured in turn, so that other load on the machine hits both alike; figures are medians.
"""

import json
import statistics
import subprocess
import sys
import time

import zorvel

RUNS = 9
SECOND = 10**9
FIELDS = {"looking_at_robot": True, "height": 1.8, "distance": 6.0, "gaze": (36.0, 36.0),
          "smile": (0.6, 0.6), "head_posture": (36.0, 36.0, 36.0), "gender": (True, 0.6),
          "age": (78, 0.6), "face_detected": True, "asr_emotion": 1.2, "touch_emotion": 1,
          "context_emotion": (1, 360.0), "facial_points": [(1.2, 1.2, 0.6)] * 12,
          "expressions": dict.fromkeys(
              ["calm", "anger", "joy", "sorrow", "laughter", "excitement", "surprise"], (0.6, 0.6)),
          "voice_emotion": dict.fromkeys(
              ["calm", "anger", "joy", "sorrow", "laughter", "excitement"], (0.6, 0.6))}


def from_cpp(benchmarks, rate):
    output = subprocess.run(
        [benchmarks, f"--benchmark_filter=^update/clock:0/rate:{rate}$", "--benchmark_format=json",
         "--benchmark_min_time=0.1"], check=True, stdout=subprocess.PIPE).stdout
    return json.loads(output)["benchmarks"][0]["cpu_time"]


def from_python(rate):
    """Microseconds for an update, and for making its observation."""
    graph = zorvel.SocialGraph()
    warm_up = 25 * rate
    count = max(2000, 4 * rate)
    with zorvel.SimulatedClock(1_700_000_000 * SECOND) as clock:
        times = [clock.time + cycle * SECOND // rate for cycle in range(warm_up + count)]
        begin = time.perf_counter()
        observations = [zorvel.Observation(time=at, **FIELDS) for at in times]
        making = (time.perf_counter() - begin) / len(times)
        for at, observation in zip(times[:warm_up], observations):
            clock.set(at)
            graph.update(1, observation)
        begin = time.perf_counter()
        for at, observation in zip(times[warm_up:], observations[warm_up:]):
            clock.set(at)
            graph.update(1, observation)
        updates = time.perf_counter() - begin
        begin = time.perf_counter()
        for at, observation in zip(times[warm_up:], observations[warm_up:]):
            clock.set(at)
        updates -= time.perf_counter() - begin
    return updates / count * 1e6, making * 1e6


def main(benchmarks):
    print("rate    from C++   from Python   difference   ratio   making the observation")
    for rate in (1, 30):
        runs = [(from_cpp(benchmarks, rate), *from_python(rate)) for _ in range(RUNS)]
        cpp, python, making = (statistics.median(column) for column in zip(*runs))
        difference = statistics.median(run[1] - run[0] for run in runs)
        ratio = statistics.median(run[1] / run[0] for run in runs)
        print(f"{rate:>2} Hz {cpp:>8.2f} us {python:>10.2f} us {difference:>9.2f} us {ratio:>7.3f} "
              f"{making:>21.2f} us")


if __name__ == "__main__":
    main(*sys.argv[1:])
