#!/usr/bin/env python3
"""zorvel as a node of ROS 1. What its messages mean is the matter of zorvel.node; here are the connections."""

from __future__ import annotations

import contextlib
import gc
import http.client
import sys
import threading
import time
import xmlrpc.client
from collections.abc import Mapping
from functools import partial
from typing import Any

import roslib.message
import rosgraph
import rospy
from diagnostic_msgs.msg import DiagnosticArray, DiagnosticStatus, KeyValue
from std_msgs.msg import Empty, Float32

from zorvel.node import AMBIANCE, PARAMETERS, Node
from zorvel.rep155 import People

LOOK_EVERY = 0.25  # seconds
DIAGNOSE_EVERY = 1.0
COLLECTED = 100  # topics
QUEUE = 300  # states that wait for a slow subscriber: 10 s at 30 Hz


class Shell:
    def __init__(self) -> None:
        self.publishers: dict[str, Any] = {}
        self.subscribers: dict[str, Any] = {}
        self.begun = self.dropped = 0
        parameters = {name: rospy.get_param("~" + name, default) for name, default in PARAMETERS.items()}
        self.node = Node(lambda: int(rospy.get_rostime().to_nsec()), self.publish, rospy.loginfo,
                         rospy.logwarn, **parameters)
        self.diagnostics = rospy.Publisher("/diagnostics", DiagnosticArray, queue_size=10)
        self.of_room = (rospy.Subscriber("~movement", Empty, lambda _: self.node.movement()),
                        rospy.Subscriber("~activity", Float32, lambda message: self.node.activity(message.data)))

    def publish(self, topic: str, kind: str, stamp: int, values: Mapping[str, Any]) -> None:
        if (publisher := self.publishers.get(topic)) is not None:
            message = self.class_of(kind)(**values)
            message.header.stamp = rospy.Time(*divmod(stamp, 10**9))
            with contextlib.suppress(rospy.ROSException):  # just closed
                publisher.publish(message)

    def diagnose(self) -> None:
        status = self.node.diagnose()
        message = DiagnosticArray(status=[DiagnosticStatus(
            status.level, rospy.get_name() + ": people", status.message, "",
            [KeyValue(*value) for value in status.values.items()])])
        message.header.stamp = rospy.get_rostime()
        self.diagnostics.publish(message)

    def look(self) -> None:
        """Follows the topics that come and go. Raises where the core is away; then all stays as it is, since
        rospy waits for the core wherever something new begins."""
        topics = {topic: kind for topic, kind in rospy.get_published_topics()}
        if AMBIANCE in self.publishers and AMBIANCE not in topics:
            self.register_again()
        if self.begun != self.node.begun:  # to get latched messages again
            self.begun = self.node.begun
            for topic in list(self.subscribers):
                self.drop(self.subscribers, topic)
        wanted = self.node.topics()
        for topic in self.publishers.keys() - wanted.keys():
            self.drop(self.publishers, topic)
        for topic in wanted.keys() - self.publishers.keys():
            if (kind := self.class_of(wanted[topic])) is not None:
                self.publishers[topic] = rospy.Publisher(topic, kind, queue_size=QUEUE)
        for topic in self.subscribers.keys() - topics.keys():
            if self.subscribers[topic].get_num_connections() == 0:
                self.drop(self.subscribers, topic)
        for topic in topics.keys() - self.subscribers.keys():
            if People.takes(topic, topics[topic]) and (kind := self.class_of(topics[topic])) is not None:
                self.subscribers[topic] = rospy.Subscriber(topic, kind, partial(self.node.receive, topic))

    def register_again(self) -> None:
        """Registers this node, whose connections go on, with a core that was started anew."""
        core, uri = rosgraph.Master(rospy.get_name()), rospy.get_node_uri()
        for topic, publisher in self.publishers.items():
            core.registerPublisher(topic, publisher.type, uri)
        core.registerPublisher("/diagnostics", self.diagnostics.type, uri)
        for subscriber in (*self.subscribers.values(), *self.of_room):
            core.registerSubscriber(subscriber.name, subscriber.type, uri)
        for topic in list(self.subscribers):
            if self.subscribers[topic].get_num_connections() == 0:
                self.drop(self.subscribers, topic)

    def drop(self, connections: dict[str, Any], topic: str) -> None:
        connections.pop(topic).unregister()
        self.dropped += 1
        if self.dropped % COLLECTED == 0:
            gc.collect()  # rospy leaves a handle of each topic to Python's collector, which may take long

    @staticmethod
    def class_of(kind: str) -> Any:
        package, _, name = kind.replace("/msg/", "/").partition("/")
        found = roslib.message.get_message_class(f"{package}/{name}")
        if found is None:
            rospy.logwarn_throttle(60.0, f"the messages {kind} are not built here")
        return found

    def keep_looking(self) -> None:
        while not rospy.is_shutdown():
            try:
                self.look()
            except (OSError, http.client.HTTPException, xmlrpc.client.Error, rospy.ROSException) as error:
                rospy.logwarn_throttle(60.0, f"the core is away: {error}")
            time.sleep(LOOK_EVERY)


def main() -> None:
    rospy.init_node("zorvel")
    try:
        shell = Shell()
    except (OSError, ValueError) as error:
        sys.exit(str(error))
    threading.Thread(target=shell.keep_looking, daemon=True).start()
    period = min(0.1, rospy.get_param("~cycle", PARAMETERS["cycle"]))  # nor does a signal wait for long
    diagnosed = 0.0
    while not rospy.is_shutdown():
        shell.node.advance()
        if time.monotonic() - diagnosed >= DIAGNOSE_EVERY:
            diagnosed = time.monotonic()
            shell.diagnose()
        time.sleep(period)  # of the wall: the clock of a simulation may stand still or be set back
    shell.node.close()


if __name__ == "__main__":
    main()
