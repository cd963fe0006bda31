#ifndef ZV_HEAD_POSTURE_HPP
#define ZV_HEAD_POSTURE_HPP

#include <iosfwd>

#include "zv/export.hpp"

namespace ZV {

/// Where a head is turned, in degrees. A positive pitch is up, a negative yaw is left.
///
/// Thread safety: that of a plain value.
class ZV_API HeadPosture {
 public:
  /// The angles, in degrees, from which on a head counts as turned; each itself included.
  static const float upBoundary;     ///< 6
  static const float downBoundary;   ///< -6
  static const float leftBoundary;   ///< -6
  static const float rightBoundary;  ///< 6

  /// Straight ahead: all three angles are 0.
  HeadPosture() = default;
  /// Angles in degrees, of any size.
  HeadPosture(float yaw, float pitch, float roll);

  float yaw() const { return _yaw; }
  float pitch() const { return _pitch; }
  float roll() const { return _roll; }

  void setYaw(float yaw) { _yaw = yaw; }
  void setPitch(float pitch) { _pitch = pitch; }
  void setRoll(float roll) { _roll = roll; }
  void setHeadPosture(float yaw, float pitch, float roll);

  bool isUp() const;
  bool isDown() const;
  bool isLeft() const;
  bool isRight() const;

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
