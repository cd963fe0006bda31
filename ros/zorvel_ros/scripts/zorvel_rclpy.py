#!/usr/bin/env python3
"""zorvel as a node of ROS 2, untried on a robot: written against the documented interface of rclpy.

What its messages mean is the matter of zorvel.node; here are the connections.
"""

from __future__ import annotations

import sys
from collections.abc import Mapping
from functools import partial
from typing import Any

import rclpy
from diagnostic_msgs.msg import DiagnosticArray, DiagnosticStatus, KeyValue
from rclpy.clock import Clock, ClockType
from rclpy.executors import ExternalShutdownException
from rclpy.publisher import Publisher
from rclpy.qos import DurabilityPolicy, QoSProfile, ReliabilityPolicy
from rclpy.subscription import Subscription
from rosidl_runtime_py.utilities import get_message
from std_msgs.msg import Empty, Float32

from zorvel.node import PARAMETERS, Node
from zorvel.rep155 import People

LOOK_EVERY = 0.25  # seconds
DIAGNOSE_EVERY = 1.0
QUEUE = 300  # messages that wait for a slow subscriber: 10 s at 30 Hz


class Shell:
    def __init__(self) -> None:
        self.ros = rclpy.create_node("zorvel")
        self.publishers: dict[str, Publisher] = {}
        self.subscriptions: dict[str, Subscription] = {}
        self.begun = 0
        self.unknown: set[str] = set()
        parameters = {name: self.ros.declare_parameter(name, default).value
                      for name, default in PARAMETERS.items()}
        self.node = Node(lambda: self.ros.get_clock().now().nanoseconds, self.publish,
                         self.ros.get_logger().info, self.ros.get_logger().warning, **parameters)
        self.diagnostics = self.ros.create_publisher(DiagnosticArray, "/diagnostics", 10)
        self.ros.create_subscription(Empty, "~/movement", lambda _: self.node.movement(), QUEUE)
        self.ros.create_subscription(
            Float32, "~/activity", lambda message: self.node.activity(message.data), QUEUE)
        wall = Clock(clock_type=ClockType.STEADY_TIME)  # that of a simulation may stand still or be set back
        self.ros.create_timer(float(parameters["cycle"]), self.node.advance, clock=wall)
        self.ros.create_timer(LOOK_EVERY, self.look, clock=wall)
        self.ros.create_timer(DIAGNOSE_EVERY, self.diagnose, clock=wall)

    def publish(self, topic: str, kind: str, stamp: int, values: Mapping[str, Any]) -> None:
        if (publisher := self.publishers.get(topic)) is not None:
            message = get_message(kind)(**values)
            message.header.stamp.sec, message.header.stamp.nanosec = divmod(stamp, 10**9)
            publisher.publish(message)

    def diagnose(self) -> None:
        status = self.node.diagnose()
        message = DiagnosticArray(status=[DiagnosticStatus(
            level=bytes([status.level]), name=self.ros.get_fully_qualified_name() + ": people",
            message=status.message,
            values=[KeyValue(key=key, value=value) for key, value in status.values.items()])])
        message.header.stamp = self.ros.get_clock().now().to_msg()
        self.diagnostics.publish(message)

    def look(self) -> None:
        """Follows the topics that come and go."""
        if self.begun != self.node.begun:  # to get latched messages again
            self.begun = self.node.begun
            while self.subscriptions:
                self.ros.destroy_subscription(self.subscriptions.popitem()[1])
        wanted = self.node.topics()
        for topic in self.publishers.keys() - wanted.keys():
            self.ros.destroy_publisher(self.publishers.pop(topic))
        for topic in wanted.keys() - self.publishers.keys() - self.unknown:
            if (kind := self.class_of(wanted[topic])) is not None:
                try:
                    self.publishers[topic] = self.ros.create_publisher(kind, topic, QUEUE)
                except ValueError as error:  # an id that no topic can have
                    self.unknown.add(topic)
                    self.ros.get_logger().warning(str(error))
        for topic, kinds in self.ros.get_topic_names_and_types():
            if not any(People.takes(topic, kind) for kind in kinds):
                continue
            offered = [publisher.qos_profile for publisher in self.ros.get_publishers_info_by_topic(topic)]
            if not offered and topic in self.subscriptions:
                self.ros.destroy_subscription(self.subscriptions.pop(topic))
            elif offered and topic not in self.subscriptions and (kind := self.class_of(kinds[0])) is not None:
                # No more than all of them offer, or nothing would come.
                is_latched = all(one.durability == DurabilityPolicy.TRANSIENT_LOCAL for one in offered)
                is_reliable = all(one.reliability == ReliabilityPolicy.RELIABLE for one in offered)
                self.subscriptions[topic] = self.ros.create_subscription(
                    kind, topic, partial(self.node.receive, topic), QoSProfile(
                        depth=QUEUE,
                        durability=DurabilityPolicy.TRANSIENT_LOCAL if is_latched else DurabilityPolicy.VOLATILE,
                        reliability=ReliabilityPolicy.RELIABLE if is_reliable else ReliabilityPolicy.BEST_EFFORT))

    def class_of(self, kind: str) -> Any:
        if kind in self.unknown:
            return None
        try:
            return get_message(kind)
        except (AttributeError, ImportError, ValueError):
            self.unknown.add(kind)
            self.ros.get_logger().warning(f"the messages {kind} are not built here")
            return None


def main() -> None:
    rclpy.init()
    try:
        shell = Shell()
    except (OSError, ValueError) as error:
        sys.exit(str(error))
    try:
        rclpy.spin(shell.ros)
    except (KeyboardInterrupt, ExternalShutdownException):
        pass
    finally:
        shell.node.close()
        rclpy.try_shutdown()


if __name__ == "__main__":
    main()
