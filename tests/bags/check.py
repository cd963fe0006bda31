"""Compares what reads and makes bags here with libraries of npm, for scripts/check-bags, which gets them."""

import json
import pathlib
import subprocess
import sys

from zorvel.rosbag2 import Bag

sys.path.insert(0, str(pathlib.Path(__file__).parents[2] / "bench"))
import make_bag  # noqa: E402

FOLDER = pathlib.Path(sys.argv[1])  # where the libraries are


def read(file):
    bag = Bag(file)
    messages = [(topic, str(time), message) for time, topic, message in bag.messages(lambda *_: True)]
    assert not bag.faults and not bag.left_out, (bag.faults, bag.left_out)
    return json.loads(json.dumps(messages))


ours, theirs = FOLDER / "ours.mcap", FOLDER / "theirs.mcap"
make_bag.write_mcap(ours, make_bag.scene(5.0, 2, every=1), make_bag.DEFINITIONS)
told = subprocess.run(["node", FOLDER / "bags.mjs", ours, theirs], check=True, text=True,
                      stdout=subprocess.PIPE).stdout
messages = [json.loads(line) for line in told.splitlines()]
assert read(ours) == messages and read(theirs) == messages
print(f"{len(messages)} messages are read and written here as there")
