"""What ROS REP-155 (`hri_msgs`) says of people, as observations. Nothing here needs ROS.

`People` makes the events of a recording from the messages of a robot. The functions are for
plain values: what one returns is the value of one field of an observation. It is None when the
message cannot give that field: leave the field out then. Numbers that are not finite count as
absent, and confidences are held to 0 to 1.

Angles are in degrees, as everywhere in zorvel: a positive pitch is up, a negative yaw is to the
person's own left, a positive roll brings the head towards the person's own left shoulder. (0, 0)
is straight at the robot.
"""

from .engagement import Engagement, EngagementLevel
from .fields import (
    EXPRESSION_NAMES,
    FULL_INTENSITY,
    LANDMARKS_OF_68,
    NUMBERED_EXPRESSIONS,
    Estimate,
    Gender,
    Landmark,
    action_units,
    age,
    expressions_from_action_units,
    expressions_from_name,
    facial_points,
    gaze,
    gender,
    head_posture,
    seen_from_robot,
    smile_from_action_units,
)
from .messages import topic_pattern
from .people import People, moment
from .person_numbers import PersonNumbers

__all__ = ["EXPRESSION_NAMES", "FULL_INTENSITY", "LANDMARKS_OF_68", "NUMBERED_EXPRESSIONS", "Engagement",
           "EngagementLevel", "Estimate", "Gender", "Landmark", "People", "PersonNumbers",
           "action_units", "age", "expressions_from_action_units", "expressions_from_name",
           "facial_points", "gaze", "gender", "head_posture", "moment", "seen_from_robot",
           "smile_from_action_units", "topic_pattern"]
