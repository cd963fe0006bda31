#!/usr/bin/env python3
"""Recalculates what `zorvel replay RECORDING` writes, sharing no code with the library.

`--compare` checks timeline.csv, scopes.csv and ambiance.csv in a folder, to the last bit, and a summary
of the recording alone, persons.csv, if there is one. In place of a
recording, `--evaluate` takes an expression over the functions below and prints its numbers; the tests of
the library name such expressions.

The recording is taken to be valid. All arithmetic is in 32-bit floats, rounded after each operation,
except where a comment says double.
"""

import argparse
import csv
import ctypes
import functools
import itertools
import json
import math
import statistics
import sys
from pathlib import Path

libm = ctypes.CDLL("libm.so.6")
libm.tanhf.argtypes, libm.tanhf.restype = [ctypes.c_float], ctypes.c_float
# Unlike math.exp, this one overflows to infinity.
libm.exp.argtypes, libm.exp.restype = [ctypes.c_double], ctypes.c_double


def single(number):
    return ctypes.c_float(number).value


MAX_AGE_MS = {"facialPoints": 7000, "headPosture": 7000, "gaze": 7000, "asrEmotion": 7000,
              "touchEmotion": 7000, "contextEmotion": 20000}
VALENCE_INPUTS = ("smile", "expressions", "voiceEmotion", "asrEmotion", "touchEmotion")
ATTENTION_INPUTS = ("headPosture", "gaze")
NEVER_NS = -1_000_000
POINT_SUMMATION_ORDER = (0, 3, 4, 1, 5, 6, 2, 7, 8, 11, 9, 10)
POSTURE_BOUNDARY_DEGREES = 6.0

FACIAL_POINTS_HORIZON_SECONDS = 3.0
HEAD_AND_GAZE_HORIZON_SECONDS = 2.0
SPEECH_AND_TOUCH_HORIZON_SECONDS = 4.0
LAST_INPUT_HORIZON_SECONDS = 2.5
HEAD_HORIZON_DEGREES = 15.0
GAZE_HORIZON_DEGREES = 20.0

VALUE_STRENGTH = single(0.65)
BODY_LANGUAGE_STRENGTH = single(0.065)
CONFIDENCE_STRENGTH = single(0.7)
NO_WINNER_STRENGTH = 0.5
PRESENCE_STRENGTH = single(0.35)
LIMITATION_STRENGTH = single(0.175)
NOT_SEEN_VALUE_STRENGTH = single(0.26)
VOICE_FACTOR = single(0.7)

LIMITATIONS = (("distance", single(1.4)), ("height", single(1.5)))  # metres
LIMITATION_WIDTH_METRES = single(0.2)

FIELDS_THAT_MOVE_NOTHING = ("lookingAtRobot", "faceDetected", "gender", "age")
NO_READINGS = {"event", "time", "person", "height"}  # of which a height is not remembered
KEYS = {*NO_READINGS, *MAX_AGE_MS, *VALENCE_INPUTS, *dict(LIMITATIONS),
        *FIELDS_THAT_MOVE_NOTHING}

# Valence of the mood, weights of smile, calm, joy, anger and sorrow, intercept.
MOODS = [
    (valence, [single(weight) for weight in weights], single(intercept))
    for valence, weights, intercept in (
        (1.0, (2.38828954219, -3.15291359475, 6.85025791269, -1.41616331546, -0.395405045619),
         -0.9510546),
        (0.0, (2.939970882, 5.47256141157, -6.78930233561, -1.49980029085, -1.0211854597),
         -0.86178476),
        (-1.0, (-5.80814485571, -4.06000541074, -3.21490518458, 2.53144329703, 1.6637735194),
         -0.50614434),
    )
]


def from_json(number):
    return single(float(number))


def divide(dividend, divisor):
    """Division of floats, by zero too."""
    if divisor != 0.0:
        return single(dividend / divisor)
    if dividend == 0.0 or math.isnan(dividend):
        return math.nan
    return math.copysign(math.inf, dividend) * math.copysign(1.0, divisor)


def clamp(number, lowest, highest):
    if number < lowest:
        return lowest
    return highest if number > highest else number


def age_ms(now, time):
    elapsed_ns = now - time
    return elapsed_ns // 1_000_000 if elapsed_ns >= 0 else -(-elapsed_ns // 1_000_000)


def seconds(age):
    return single(single(age) * single(0.001))


def weight(distance, horizon):
    slope = clamp(divide(2.0, horizon), single(0.001), 2.0)
    argument = single(single(horizon - distance) * slope)
    error_function = single(math.erf(argument))  # double inside
    return max(single(0.01), single(single(error_function + 1.0) * 0.5))


@functools.lru_cache(maxsize=100_000)
def age_weight(age, horizon):
    return weight(seconds(age), horizon)


def weighted_mean(values, weights):
    numerator = denominator = 0.0
    for value, sample_weight in zip(values, weights):
        numerator = single(numerator + single(value * sample_weight))
        denominator = single(denominator + sample_weight)
    return single(numerator / denominator)


def falling_ramp(position, center, width):
    gain = single(4.0 / width)
    tangent = libm.tanhf(single(single(position - center) * gain))
    return single(single(1.0 - tangent) * 0.5)


def mood_score(features, weights, intercept):
    total = 0.0
    for feature, coefficient in zip(features, weights):
        total = single(total + single(coefficient * feature))
    return single(1.0 / (1.0 + libm.exp(-single(total + intercept))))  # double logistic


def classify_mood(features):
    """The valence of the mood with the highest score, None without a clear winner."""
    ranking = [(mood_score(features, weights, intercept), valence)
               for valence, weights, intercept in MOODS]
    ranking.sort(key=lambda entry: entry[0], reverse=True)
    return ranking[0][1] if single(ranking[0][0] - ranking[1][0]) > 0.0 else None


def ternary_label(valence):
    # In double: the float nearest to 0.2 is above 0.2.
    if valence > 0.2:
        return 1
    return 0 if valence > -0.2 else -1


def expression_value(expressions, name):
    return from_json(expressions[name]["value"]) if name in expressions else 0.0


def global_confidence(facial_points):
    confidences = {int(point["point"]): from_json(point["confidence"])
                   for point in facial_points["points"]}
    total = 0.0
    for point in POINT_SUMMATION_ORDER:
        total = single(total + confidences.get(point, 0.0))
    return single(total / 12.0)


def yaw_and_pitch(reading):
    return from_json(reading["yaw"]), from_json(reading["pitch"])


CHANNEL_VALUE = {
    "facialPoints": global_confidence,
    "headPosture": yaw_and_pitch,
    "gaze": yaw_and_pitch,
    "asrEmotion": lambda reading: from_json(reading["value"]),
    "touchEmotion": lambda reading: int(reading["value"]),
    "contextEmotion": lambda reading: (single(int(reading["emotion"])),
                                       from_json(reading["duration"])),
}


def reading_time(observation, field):
    return int(observation[field].get("time", observation["time"]))


def posture_ease(yaw, pitch):
    if pitch >= POSTURE_BOUNDARY_DEGREES:
        return -0.5
    if pitch <= -POSTURE_BOUNDARY_DEGREES:
        return 0.5
    if yaw <= -POSTURE_BOUNDARY_DEGREES:
        return -0.5
    return 0.5 if yaw >= POSTURE_BOUNDARY_DEGREES else 0.0


class Person:
    def __init__(self):
        self.state = dict.fromkeys(
            ("valence", "valence_confidence", "cycle_valence", "cycle_valence_confidence",
             "attention", "attention_confidence", "ease", "ease_confidence"), 0.0)
        self.memory = {channel: [] for channel in MAX_AGE_MS}  # (time, value), youngest first
        self.last_used = dict.fromkeys(VALENCE_INPUTS + ATTENTION_INPUTS, NEVER_NS)
        self.scopes = {}
        self.newest = NEVER_NS  # of all its readings
        self.measured = set()  # what something measured moves in this cycle

    def pull(self, quantity, target, strength, measured=True):
        """Moves a quantity, and its value of this cycle alone, a part of the way to a target."""
        if measured:
            self.measured.add(quantity)
        lowest = -1.0 if quantity == "valence" else 0.0
        for name in (quantity, "cycle_" + quantity):
            if name in self.state:
                way = single(target - self.state[name])
                moved = single(self.state[name] + single(way * strength))
                self.state[name] = clamp(moved, lowest, 1.0)

    def remember(self, observation, now):
        for channel, samples in self.memory.items():
            if channel in observation:
                time = reading_time(observation, channel)
                position = 0
                while position < len(samples) and samples[position][0] > time:
                    position += 1
                if position == len(samples) or samples[position][0] != time:
                    value = CHANNEL_VALUE[channel](observation[channel])
                    samples.insert(position, (time, value))
            self.memory[channel] = [sample for sample in samples
                                    if age_ms(now, sample[0]) <= MAX_AGE_MS[channel]]

    def samples(self, channel, now):
        """Ages and values of a channel; its youngest sample counts as used."""
        if not self.memory[channel]:
            return (), ()
        times, values = zip(*self.memory[channel])
        if channel in self.last_used:
            self.last_used[channel] = times[0]
        return [age_ms(now, time) for time in times], values

    def new_reading(self, observation, field):
        if field not in observation or reading_time(observation, field) == self.last_used[field]:
            return None
        self.last_used[field] = reading_time(observation, field)
        return observation[field]

    def observe(self, observation, now):
        if not observation.keys() <= KEYS:
            raise ValueError(f"cannot recalculate {observation.keys() - KEYS}")
        self.newest = max([self.newest, *(reading_time(observation, field)
                                          for field in observation.keys() - NO_READINGS)])
        self.remember(observation, now)
        self.measured = set()
        postures = self.memory["headPosture"]
        if postures:
            self.measured.add("ease")
            self.state["ease"] = single(sum(posture_ease(*p) for _, p in postures) / len(postures))
            self.state["ease_confidence"] = 0.5
        self.state["cycle_valence"] = self.state["cycle_valence_confidence"] = 0.0
        self.apply_facial_points(now)
        face_seen = self.apply_face(observation)
        if postures:
            self.pull("valence", self.state["ease"], BODY_LANGUAGE_STRENGTH)
        head_seen = self.apply_direction("headPosture", HEAD_HORIZON_DEGREES, now)
        gaze_seen = self.apply_direction("gaze", GAZE_HORIZON_DEGREES, now)
        voice_seen = self.apply_voice(observation)
        emotion_seen = self.apply_remembered_emotions(now)
        valence_seen = face_seen or voice_seen or emotion_seen
        self.close("valence", VALENCE_INPUTS, valence_seen, observation, now)
        self.close("attention", ATTENTION_INPUTS, head_seen or gaze_seen, observation, now)

    def apply_facial_points(self, now):
        ages, confidences = self.samples("facialPoints", now)
        if ages:
            weights = [age_weight(age, FACIAL_POINTS_HORIZON_SECONDS) for age in ages]
            mean = weighted_mean(confidences, weights)
            target = single((0.0 if mean < 0.0 else mean) * weights[0])
            self.pull("valence_confidence", target, CONFIDENCE_STRENGTH)
            self.pull("attention_confidence", target, CONFIDENCE_STRENGTH)

    def apply_face(self, observation):
        smile = self.new_reading(observation, "smile")
        expressions = self.new_reading(observation, "expressions")
        if smile is None and expressions is None:
            return False
        # A reading that is not new counts as zero, not as its last value.
        features = [0.0 if smile is None else
                    single(from_json(smile["value"]) * from_json(smile["confidence"]))]
        features += [expression_value(expressions or {}, name)
                     for name in ("calm", "joy", "anger", "sorrow")]
        mood = classify_mood(features)
        if mood is None:
            self.pull("valence_confidence", 0.0, NO_WINNER_STRENGTH)
        else:
            self.pull("valence", mood, VALUE_STRENGTH)
        return True

    def apply_direction(self, channel, horizon_degrees, now):
        ages, angles = self.samples(channel, now)
        if ages:
            weights = [age_weight(age, HEAD_AND_GAZE_HORIZON_SECONDS) for age in ages]
            yaw, pitch = (weighted_mean(component, weights) for component in zip(*angles))
            if channel == "headPosture":
                yaw, pitch = single(single(2.0 * yaw) / 3.0), single(pitch / 3.0)
            squares = single(single(yaw * yaw) + single(pitch * pitch))
            deviation = single(math.sqrt(squares))  # double inside
            self.pull("attention", weight(deviation, horizon_degrees), VALUE_STRENGTH)
        self.pull("attention_confidence", 1.0 if ages else 0.0, PRESENCE_STRENGTH)
        return bool(ages)

    def apply_voice(self, observation):
        voice = self.new_reading(observation, "voiceEmotion")
        if voice is None:
            return False
        for name, target in (("calm", 0.0), ("anger", -1.0), ("joy", 1.0), ("sorrow", -0.5)):
            strength = single(single(expression_value(voice, name) * VOICE_FACTOR) * VALUE_STRENGTH)
            self.pull("valence", target, strength)
        return True

    def apply_remembered_emotions(self, now):
        pulls = []
        for age, sentiment in zip(*self.samples("asrEmotion", now)):
            target = 1.0 if sentiment >= 0.0 else -1.0
            pulls.append((target, age_weight(age, SPEECH_AND_TOUCH_HORIZON_SECONDS)))
        for age, touch in zip(*self.samples("touchEmotion", now)):
            target = None if touch == 0 else math.copysign(1.0, touch)
            pulls.append((target, age_weight(age, SPEECH_AND_TOUCH_HORIZON_SECONDS)))
        for age, (emotion, duration) in zip(*self.samples("contextEmotion", now)):
            pulls.append((emotion, weight(seconds(age), duration)))
        for target, sample_weight in pulls:
            if target is not None:
                self.pull("valence", target, single(sample_weight * VALUE_STRENGTH))
        return bool(pulls)

    def close(self, quantity, inputs, seen, observation, now):
        """Lowers the confidence of a face too far away or too high, or lets an unseen one rest."""
        if seen:
            for field, limit_metres in LIMITATIONS:
                metres = from_json(observation[field]["value"]) if field in observation else 0.0
                target = falling_ramp(metres, limit_metres, LIMITATION_WIDTH_METRES)
                self.pull(quantity + "_confidence", target, LIMITATION_STRENGTH)
            return
        age = min(age_ms(now, self.last_used[field]) for field in inputs)
        freshness = age_weight(age, LAST_INPUT_HORIZON_SECONDS) if age > 0 else 0.0
        self.pull(quantity, 0.0, single(single(1.0 - freshness) * VALUE_STRENGTH), measured=False)
        self.pull(quantity + "_confidence", 0.0, CONFIDENCE_STRENGTH)

    def not_seen(self):
        self.measured = set()
        for quantity in ("valence", "attention"):
            self.pull(quantity, 0.0, NOT_SEEN_VALUE_STRENGTH, measured=False)
            self.pull(quantity + "_confidence", 0.0, CONFIDENCE_STRENGTH)

    def take_in(self, other):
        """Goes on with what is known of both; where both have a scope or a reading, with its own."""
        if other.newest > self.newest:
            self.state, self.newest = other.state, other.newest
        for field, time in other.last_used.items():
            self.last_used[field] = max(self.last_used[field], time)
        for channel, samples in other.memory.items():
            self.memory[channel] = sorted({**dict(samples), **dict(self.memory[channel])}.items(),
                                          reverse=True)
        for name, scope in other.scopes.items():
            own = self.scopes.setdefault(name, {**scope, "samples": []})
            own["begin"] = min(own["begin"], scope["begin"])
            own["samples"] = sorted(own["samples"] + scope["samples"], key=lambda sample: sample[0])

    def record_sample(self, now):
        for name, scope in list(self.scopes.items()):
            if scope["remaining"] == 0:
                del self.scopes[name]
                continue
            if scope["remaining"] > 0:
                scope["remaining"] -= 1
            state = self.state["valence"], self.state["valence_confidence"]
            scope["samples"].append((now, *state))

    def timeline_row(self):
        state = self.state
        return [state["valence"], state["valence_confidence"], ternary_label(state["valence"]),
                ternary_label(state["cycle_valence"]), state["cycle_valence_confidence"],
                state["attention"], state["attention_confidence"],
                state["ease"], state["ease_confidence"]]


def scope_summary(samples):
    """The label, the mean valence and the mean confidence, and the mean valence in double."""
    weighted_sum = confidence_sum = exact_sum = exact_confidences = 0.0
    for _, valence, confidence in samples:
        exact_sum += (0.0 if math.isnan(valence) else valence) * confidence
        exact_confidences += confidence
        positivity = valence if valence > 0.0 else 0.0
        negativity = -valence if valence < 0.0 else 0.0
        product = single(single(positivity - negativity) * confidence)
        weighted_sum = single(weighted_sum + product)
        confidence_sum = single(confidence_sum + confidence)
    mean_valence = divide(weighted_sum, confidence_sum)
    mean_confidence = divide(confidence_sum, single(len(samples)))
    label = "neutral"
    if mean_confidence < single(0.4):
        label = "unknown"
    elif mean_valence > single(0.2):
        label = "positive"
    elif mean_valence < single(-0.2):
        label = "negative"
    exact = exact_sum / exact_confidences if exact_confidences else math.nan
    return label, mean_valence, mean_confidence, repr(exact).removesuffix(".0")


def persons_row(person, cycles):
    """Of the states after each cycle, with what was measured; doubles, and "" for what there is not."""
    states, measured = zip(*cycles)
    row = [person]
    for name in QUANTITIES:
        values = [state[name] for state in states]
        confidences = [state[f"{name}_confidence"] for state in states]
        coverage = sum(name in names for names in measured) / len(cycles)
        row += [statistics.fmean(values), statistics.stdev(values) if len(values) > 1 else "",
                statistics.fmean(confidences)] if coverage else ["", "", ""]
        row.append(coverage)
    moods = [ternary_label(state["valence"]) for state in states]
    row += [moods.count(mood) / len(moods) if row[4] else "" for mood in (1, 0, -1)]
    attentive = sum(state["attention"] > 0.5 for state in states) / len(states)
    return row + [attentive if row[8] else ""]


class Ambiance:
    def __init__(self):
        self.agitation = self.calm = self.movements = 0.0

    def movement(self):
        self.movements = single(self.movements + 1.0)

    def activity(self, value):
        factor = single(0.2)
        scaled = single(value * 10.0)
        blended = single(single(single(scaled - self.agitation) * factor) + self.agitation)
        level = single(single(single(self.movements / 5.0) * factor) + blended)
        self.agitation = min(1.0, level if level > 0.0 else 0.0)
        self.calm = single(1.0 - self.agitation)
        self.movements = 0.0


def two_cycles(first, second):
    """The numbers after two observations, at 0 and 1.7 s, whose readings were taken at -0.3 and 1.6 s.

    Valence and confidence, the same of the second cycle alone, attention and confidence; the person
    begins with a valence of 0.25 (0.5) and an attention of 0.4 (0.6).
    """
    person = Person()
    person.state.update(valence=0.25, valence_confidence=0.5, attention=single(0.4),
                        attention_confidence=single(0.6))
    for now_ms, read_ms, fields in ((0, -300, first), (1700, 1600, second)):
        time = (10**12 + read_ms) * 1_000_000
        readings = {name: {**reading, "time": time} for name, reading in fields.items()}
        person.observe({"time": time, **readings}, (10**12 + now_ms) * 1_000_000)
    return list(person.state.values())[:6]


QUANTITIES = ("valence", "attention", "ease")
COLUMNS = {
    "timeline.csv": ["time", "person", "valence", "valence_confidence", "mood", "cycle_mood",
                     "cycle_mood_confidence", "attention", "attention_confidence", "ease",
                     "ease_confidence", "seconds", "event", "visit"],
    "scopes.csv": ["time", "person", "scope", "label", "samples", "begin", "end", "mean_valence",
                   "mean_confidence", "exact_mean_valence", "visit"],
    "ambiance.csv": ["time", "agitation", "calm"],
    "persons.csv": ["person", *(f"{name}_{part}" for name in QUANTITIES for part in
                                ("mean", "deviation", "confidence", "coverage")),
                    "positive", "neutral", "negative", "attentive"],
}


def in_seconds(nanoseconds):
    whole, rest = divmod(abs(nanoseconds), 10**9)
    return f"{'-' * (nanoseconds < 0)}{whole}.{rest:09}".rstrip("0").rstrip(".")


def replay(recording):
    tables = {name: [columns] for name, columns in COLUMNS.items()}
    persons, ambiance, now, start = {}, Ambiance(), -2**62, None
    cycles = {}  # each person's states
    visits = {}  # each person's cycles since the last removal, visit by visit
    for text in recording:
        if not text.strip():
            continue
        # Integers stay text, so that each key reads its own type: -0 as a float keeps its sign.
        line = json.loads(text, parse_int=str)
        event = line["event"]
        if event == "header":
            start = int(line["origin"]) if "origin" in line else None
            continue
        now = max(now, int(line["time"]))
        start = now if start is None else start
        if event == "restore":
            raise ValueError("cannot recalculate what comes after a restore")
        if event == "movement":
            ambiance.movement()
            continue
        if event == "activity":
            ambiance.activity(from_json(line["value"]))
            tables["ambiance.csv"].append([now, ambiance.agitation, ambiance.calm])
            continue
        person_id = int(line["person"])
        if event == "remove":
            persons.pop(person_id, None)
            if visits.get(person_id, [0])[-1]:
                visits[person_id].append(0)
        elif event == "rename":
            to = int(line["to"])
            if person_id not in persons or to == person_id:
                continue
            person = persons.pop(person_id)
            if to in persons:
                persons[to].take_in(person)
            else:
                persons[to] = person
            if count := visits.get(person_id, [0])[-1]:
                visits[person_id].append(0)
                # The visit goes on, though no cycle of it may be under the new id yet.
                visits.setdefault(to, [0])[-1] += count
        elif event == "stop_recording":
            scopes = persons[person_id].scopes if person_id in persons else {}
            scope = scopes.pop(line["scope"], None)
            samples = scope["samples"] if scope else []
            label, *means = scope_summary(samples)
            tables["scopes.csv"].append(
                [now, person_id, line["scope"], label if scope else "error", len(samples),
                 in_seconds(scope["begin"] - start) if scope else "", in_seconds(now - start), *means,
                 len(visits.get(person_id, [0]))])
        else:
            person = persons.setdefault(person_id, Person())
            if event == "start_recording":
                remaining = int(line.get("samples", -1))
                person.scopes[line["scope"]] = {"remaining": remaining, "samples": [],
                                                "begin": now}
                continue
            if event == "observation":
                person.observe(line, now)
            else:
                person.not_seen()
            person.record_sample(now)
            cycles.setdefault(person_id, []).append((dict(person.state), person.measured))
            visits.setdefault(person_id, [0])[-1] += 1
            tables["timeline.csv"].append([now, person_id, *person.timeline_row(),
                                           in_seconds(now - start), event, len(visits[person_id])])
    tables["persons.csv"] += [persons_row(*entry) for entry in sorted(cycles.items())]
    return tables


def as_text(cell):
    return f"{cell:.9g}" if isinstance(cell, float) else str(cell)


def compare(tables, folder):
    """Whether the files agree to the last bit; rows are counted from the header, which is row 1."""
    differences = []
    for name, rows in tables.items():
        is_summary = name == "persons.csv"
        if is_summary and not (folder / name).exists():
            continue
        with open(folder / name, encoding="utf-8", newline="") as file:
            written = list(csv.reader(file))
        if is_summary:  # some of its columns, whose sums may be rounded otherwise
            places = [written[0].index(column) for column in rows[0]]
            written = [[row[place] for place in places] for row in written]
        kept = float if is_summary else single
        pairs = itertools.zip_longest(rows, written, fillvalue=())
        for number, (expected, found) in enumerate(pairs, 1):
            shown = [as_text(kept(float(text))) if text and isinstance(cell, float) else text
                     for cell, text in itertools.zip_longest(expected, found, fillvalue="")]
            expected = list(map(as_text, expected))
            if shown != expected:
                differences.append(f"{name}: row {number}: recalculated {expected}, written {shown}")
    print(*differences[:20], sep="\n")
    counts = ", ".join(f"{name} {len(rows) - 1} rows" for name, rows in tables.items())
    print(f"{counts}; {len(differences)} differences")
    return not differences


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("recording", type=Path, nargs="?")
    action = parser.add_mutually_exclusive_group(required=True)
    action.add_argument("--compare", type=Path, metavar="DIR", help="check the files in DIR")
    action.add_argument("--evaluate", metavar="EXPRESSION", help="print the numbers of a list")
    arguments = parser.parse_args()
    if arguments.evaluate:
        print(*map(as_text, eval(arguments.evaluate)))
        return 0
    with open(arguments.recording, encoding="utf-8", newline="\n") as recording:
        return 0 if compare(replay(recording), arguments.compare) else 1


if __name__ == "__main__":
    sys.exit(main())
