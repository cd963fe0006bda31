#ifndef ZV_HEAD_POSTURE_HPP
#define ZV_HEAD_POSTURE_HPP

#include <iosfwd>

#include "zv/export.hpp"

namespace ZV {

/// Where a head is turned, in degrees, from straight at the robot. A positive pitch is up; a
/// negative yaw is towards the person's own left; a positive roll is towards the person's own left
/// shoulder.
///
/// Thread safety: that of a plain value.
class ZV_API HeadPosture {
 public:
  /// The angles, in degrees, at and beyond which a head counts as turned.
  static const float upBoundary;     ///< 6
  static const float downBoundary;   ///< -6
  static const float leftBoundary;   ///< -6
  static const float rightBoundary;  ///< 6

  /// Straight ahead: all three angles are 0.
  HeadPosture() = default;
  /// Angles in degrees, of any size.
  HeadPosture(float yaw, float pitch, float roll);

  float yaw() const { return _yaw; }      ///< in degrees; negative to the person's own left
  float pitch() const { return _pitch; }  ///< up or down, in degrees; positive is up
  float roll() const { return _roll; }    ///< in degrees; positive to the own left shoulder

  /// Replaces the yaw, in degrees.
  void setYaw(float yaw) { _yaw = yaw; }
  /// Replaces the pitch, in degrees.
  void setPitch(float pitch) { _pitch = pitch; }
  /// Replaces the roll, in degrees.
  void setRoll(float roll) { _roll = roll; }
  /// Replaces all three angles, in degrees.
  void setHeadPosture(float yaw, float pitch, float roll);

  bool isUp() const;     ///< whether the pitch is at `upBoundary` or above
  bool isDown() const;   ///< whether the pitch is at `downBoundary` or below
  bool isLeft() const;   ///< whether the yaw is at `leftBoundary` or below
  bool isRight() const;  ///< whether the yaw is at `rightBoundary` or above

 private:
  float _yaw = 0.0f;
  float _pitch = 0.0f;
  float _roll = 0.0f;
};

/// Writes the three angles with one decimal, a word for the pitch and one for the yaw; no line end.
/// The stream keeps fixed notation and precision 1 afterwards.
ZV_API std::ostream& operator<<(std::ostream& stream, const HeadPosture& posture);

}  // namespace ZV

#endif
