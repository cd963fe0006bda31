"""Compares what reads and makes bags here with libraries of npm, for scripts/check-bags, which gets them."""

import json
import pathlib
import random
import struct
import subprocess
import sys

from zorvel.cdr import LAYOUTS
from zorvel.rep155 import TOPICS
from zorvel.rosbag2 import Bag

sys.path.insert(0, str(pathlib.Path(__file__).parents[2] / "bench"))
import make_bag  # noqa: E402

FOLDER = pathlib.Path(sys.argv[1])  # where the libraries are
DEFINITIONS = "\n".join(f"{'=' * 80}\nMSG: {kind}\n{text}" for kind, text in LAYOUTS.items())
chance = random.Random(1)


def value(kind, package):
    name, _, count = kind.partition("[")
    if count:
        return [value(name, package) for _ in range(int(count[:-1] or chance.randrange(5)))]
    if name == "string":  # of ASCII: their writer takes a text to have as many bytes as letters
        return "".join(chance.choices("ab_/~", k=chance.randrange(9)))
    if name.startswith("float"):
        return struct.unpack("f", struct.pack("f", chance.gauss(0.0, 10.0)))[0]
    if name.startswith(("int", "uint")):
        return chance.randrange(2 ** (int(name.lstrip("uint")) - 1))
    name = name if "/" in name else f"{package}/{name}"
    return {field: value(inner, name.split("/")[0])
            for inner, field in map(str.split, LAYOUTS[name].splitlines())}


def plain(message):
    """A decoded message as JSON has it."""
    if not isinstance(message, (list, tuple)):
        return message
    names = [name for name in vars(type(message)) if not name.startswith("_")]
    if type(message) in (list, tuple):
        return [plain(one) for one in message]
    return {name: plain(getattr(message, name)) for name in names}


def read(file):
    bag = Bag(file)
    messages = [{"topic": topic, "time": str(time), "message": plain(message)}
                for time, topic, message in bag.messages(lambda *_: True)]
    assert not bag.faults and not bag.left_out, (bag.faults, bag.left_out)
    return messages


made = [{"topic": f"/{number}", "time": str(10**18 + number), "message": value(kind, "")}
        | {"kind": kind.replace("/", "/msg/"), "definition": f"{LAYOUTS[kind]}\n{DEFINITIONS}"}
        for number in range(100) for kind in LAYOUTS if kind.partition("/")[2] in {*TOPICS.values(), "Gaze"}]
make_bag.write_mcap(FOLDER / "ours.mcap", make_bag.scene(5.0, 2), make_bag.DEFINITIONS)
told = subprocess.run(["node", FOLDER / "bags.mjs", FOLDER / "theirs.mcap", FOLDER / "ours.mcap"], check=True,
                      input="".join(json.dumps(one) + "\n" for one in made), text=True, stdout=subprocess.PIPE)
ours = [json.loads(line) for line in told.stdout.splitlines()]
assert read(FOLDER / "ours.mcap") == ours
assert read(FOLDER / "theirs.mcap") == [{key: one[key] for key in ("topic", "time", "message")} for one in made]
print(f"{len(made)} messages written there and {len(ours)} written here are read the same")
