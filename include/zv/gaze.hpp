#ifndef ZV_GAZE_HPP
#define ZV_GAZE_HPP

namespace ZV {

/// Where a person looks, in degrees; (0, 0) is at the robot. Which side is positive is up to the
/// host, but must not change: only the size of the mean of the remembered gazes counts.
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
