from launch import LaunchDescription
from launch.actions import DeclareLaunchArgument
from launch.substitutions import LaunchConfiguration
from launch_ros.actions import Node
from launch_ros.parameter_descriptions import ParameterValue


def generate_launch_description() -> LaunchDescription:
    arguments = {
        "robot_frame": DeclareLaunchArgument(
            "robot_frame", description="the frame at the robot's eyes, with x forward"),
        "optical": DeclareLaunchArgument(
            "optical", default_value="false", description="true: that frame has z forward"),
        "record": DeclareLaunchArgument("record", default_value="", description="a recording to write"),
    }
    return LaunchDescription([*arguments.values(), Node(
        package="zorvel_ros", executable="zorvel_rclpy.py", name="zorvel", output="screen",
        parameters=[{name: ParameterValue(LaunchConfiguration(name), value_type=bool if name == "optical" else str)
                     for name in arguments}])])
