#ifndef ZV_GAZE_HPP
#define ZV_GAZE_HPP

namespace ZV {

/// Where a person looks, in degrees; (0, 0) is at the robot. Either side may be positive, always
/// the same one: of the mean of those remembered, only the size counts.
///
/// Thread safety: that of a plain value.
struct Gaze {
  /// Straight at the robot: (0, 0).
  Gaze() = default;
  /// Angles in degrees, of any size.
  Gaze(float yaw_, float pitch_) : yaw(yaw_), pitch(pitch_) {}

  float yaw = 0.0f;    ///< to the side, in degrees
  float pitch = 0.0f;  ///< up or down, in degrees
};

}  // namespace ZV

#endif
