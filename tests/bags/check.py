"""Compares what reads and makes bags here with libraries of npm, for scripts/check-bags, which gets them."""

import json
import pathlib
import subprocess
import sys

from zorvel.rosbag2 import Bag

sys.path.insert(0, str(pathlib.Path(__file__).parents[2] / "bench"))
import make_bag  # noqa: E402

FOLDER = pathlib.Path(sys.argv[1])  # where the libraries are


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


ours, theirs = FOLDER / "ours.mcap", FOLDER / "theirs.mcap"
make_bag.write_mcap(ours, make_bag.scene(5.0, 2, every=1), make_bag.DEFINITIONS)
told = subprocess.run(["node", FOLDER / "bags.mjs", ours, theirs], check=True, text=True,
                      stdout=subprocess.PIPE).stdout
messages = [json.loads(line) for line in told.splitlines()]
assert read(ours) == messages and read(theirs) == messages
print(f"{len(messages)} messages are read and written here as there")
