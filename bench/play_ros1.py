"""Publishes the scene of make_bag.py through rospy, as a robot would, and writes down the states that come:
bench/play_ros1.py --seconds 60 --people 6 --states states.jsonl

Takes a core, and hri_msgs and zorvel_msgs in PYTHONPATH.
"""

from __future__ import annotations

import argparse
import json
import threading
import time
import warnings
from typing import Any

import make_bag
import roslib.message
import rospy

from zorvel import rep155
from zorvel.cdr import Decoder


def filled(message: Any, values: Any) -> Any:
    """Puts what a message of ROS 2 says into one of ROS 1."""
    for name, kind in zip(message.__slots__, message._slot_types):
        if name == "header":
            message.header.stamp = rospy.Time(values.header.stamp.sec, values.header.stamp.nanosec)
            message.header.frame_id = values.header.frame_id
        elif kind == "uint8" and name == "expression":  # before 0.7.0
            message.expression = rep155.NUMBERED_EXPRESSIONS.index(values.expression)
        elif kind.endswith("]") and "/" in kind:
            one = roslib.message.get_message_class(kind.partition("[")[0])
            setattr(message, name, [filled(one(), value) for value in getattr(values, name)])
        elif "/" in kind:
            filled(getattr(message, name), getattr(values, name))
        elif hasattr(values, name):
            setattr(message, name, getattr(values, name))
    return message


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--seconds", type=float, default=60.0)
    parser.add_argument("--people", type=int, default=6)
    parser.add_argument("--faces", type=int, default=3, help="every so many frames, what faces show")
    parser.add_argument("--stay", type=float, default=3600.0, help="seconds until somebody new comes")
    parser.add_argument("--states", help="a file for the states that are received, one per line")
    options = parser.parse_args()
    rospy.init_node("scene")
    warnings.simplefilter("ignore", SyntaxWarning)  # of publishers that send at once, without a queue
    states = open(options.states, "w") if options.states else None
    watched: dict[str, Any] = {}
    lock = threading.Lock()

    def write(state: Any, topic: str) -> None:
        if states is not None:
            with lock:
                json.dump({"topic": topic, "time": state.header.stamp.to_nsec(), **{
                    name: getattr(state, name) for name in state.__slots__[1:]}}, states)
                states.write("\n")

    def watch() -> None:
        while not rospy.is_shutdown():
            there = {topic: kind for topic, kind in rospy.get_published_topics()
                     if kind == "zorvel_msgs/PersonState"}
            for topic in there.keys() - watched.keys():
                watched[topic] = rospy.Subscriber(
                    topic, roslib.message.get_message_class(there[topic]), write, topic)
            for topic in watched.keys() - there.keys():
                watched.pop(topic).unregister()
            time.sleep(0.1)

    threading.Thread(target=watch, daemon=True).start()
    make_bag.START = time.time_ns() + 10**9
    publishers: dict[str, Any] = {}
    decoders: dict[str, Decoder] = {}
    for sent in make_bag.scene(options.seconds, options.people, every=options.faces, stay=options.stay):
        time.sleep(max(0.0, (sent.time - time.time_ns()) / 1e9))
        if rospy.is_shutdown():
            break
        kind = sent.kind.replace("/msg/", "/")
        if sent.topic not in publishers:
            if (of := roslib.message.get_message_class(kind)) is None:
                continue  # not in this version
            publishers[sent.topic] = rospy.Publisher(
                sent.topic, of, queue_size=None, latch=kind == "std_msgs/String" or sent.topic == "/tf_static")
            decoders.setdefault(kind, Decoder(kind))
        publisher = publishers[sent.topic]
        publisher.publish(filled(publisher.data_class(), decoders[kind].decode(sent.data)))
        if sent.topic.endswith("/face_id"):  # somebody who has gone takes their topics along
            gone = int(sent.topic.split("/")[3][1:]) - options.people
            for topic in [topic for topic in publishers if f"/f{gone:04}/" in topic or f"/p{gone}/" in topic]:
                publishers.pop(topic).unregister()
    time.sleep(1.0)


if __name__ == "__main__":
    main()
