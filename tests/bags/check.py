"""Compares what reads and what makes bags here with libraries of npm, on random messages of each type.

Run by scripts/check-bags, which gets the libraries.
"""

import json
import pathlib
import random
import struct
import subprocess
import sys

from zorvel.cdr import LAYOUTS
from zorvel.rosbag2 import Bag

FOLDER = pathlib.Path(sys.argv[1])  # where the libraries are
sys.path.insert(0, str(pathlib.Path(__file__).parents[2] / "bench"))
import make_bag  # noqa: E402

TOPMOST = ("tf2_msgs/TFMessage", "std_msgs/String", "hri_msgs/IdsList", "hri_msgs/Expression", "hri_msgs/Gaze",
           "hri_msgs/FacialActionUnits", "hri_msgs/FacialLandmarks", "hri_msgs/SoftBiometrics")
DEFINITIONS = "\n".join(f"{'=' * 80}\nMSG: {kind}\n{text}" for kind, text in LAYOUTS.items())
chance = random.Random(1)


def value(kind, package):
    name, _, count = kind.partition("[")
    if count:
        return [value(name, package) for _ in range(int(count[:-1] or chance.randrange(5)))]
    if name == "string":
        # Their writer takes a text to have as many bytes as letters.
        return "".join(chance.choices("ab_/~", k=chance.randrange(9)))
    if name.startswith("float"):
        number = chance.gauss(0.0, 10.0)
        return number if name == "float64" else struct.unpack("f", struct.pack("f", number))[0]
    if name.startswith(("int", "uint")):
        return chance.randrange(2 ** (int(name.lstrip("uint")) - 1))
    name = name if "/" in name else f"{package}/{name}"
    fields = (line.split() for line in LAYOUTS[name].splitlines())
    return {field: value(inner, name.split("/")[0]) for inner, field in fields}


def plain(message):
    """A decoded message as JSON has it."""
    if isinstance(message, (list, tuple)):
        names = [name for name in vars(type(message)) if not name.startswith("_")] if type(
            message) not in (list, tuple) else None
        return ({name: plain(getattr(message, name)) for name in names} if names
                else [plain(one) for one in message])
    return message


def node(mode, file, given=""):
    return subprocess.run(["node", FOLDER / "bags.mjs", mode, file], input=given, text=True, check=True,
                          stdout=subprocess.PIPE).stdout


def read(file):
    bag = Bag(file)
    messages = [(topic, str(time), plain(message)) for time, topic, message in bag.messages(lambda *_: True)]
    assert not bag.faults and not bag.left_out, (bag.faults, bag.left_out)
    return messages


made = [{"topic": f"/{number}", "time": str(10**18 + number), "kind": kind.replace("/", "/msg/"),
         "definition": f"{LAYOUTS[kind]}\n{DEFINITIONS}", "message": value(kind, "")}
        for number in range(100) for kind in TOPMOST]
node("write", FOLDER / "random.mcap", "".join(json.dumps(one) + "\n" for one in made))
assert read(FOLDER / "random.mcap") == [(one["topic"], one["time"], one["message"]) for one in made]
make_bag.write_mcap(FOLDER / "scene.mcap", make_bag.scene(5.0, 2), make_bag.DEFINITIONS)
told = [json.loads(line) for line in node("read", FOLDER / "scene.mcap").splitlines()]
assert read(FOLDER / "scene.mcap") == [(one["topic"], one["time"], one["message"]) for one in told]
print(f"{len(made)} messages written there and {len(told)} written here are read the same")
