#ifndef ZV_FACIAL_POINTS_HPP
#define ZV_FACIAL_POINTS_HPP

#include <array>
#include <utility>

#include "zv/export.hpp"
#include "zv/value_confidence.hpp"

namespace ZV {

/// The twelve facial landmarks. Left and right are the image's.
enum class PointDescription {
  LeftEyeOuterCorner = 0,
  LeftEyeInnerCorner = 1,
  RightEyeInnerCorner = 2,
  RightEyeOuterCorner = 3,
  LeftBrowOuterEnd = 4,
  LeftBrowInnerEnd = 5,
  RightBrowInnerEnd = 6,
  RightBrowOuterEnd = 7,
  NoseTip = 8,
  NoseBase = 9,
  LeftMouthCorner = 10,
  RightMouthCorner = 11,
};

/// The facial landmarks of one face: image positions (x, y), in pixels by convention, each with a
/// confidence in [0, 1]. All are (0, 0) with confidence 0 at first.
///
/// Thread safety: that of a plain value.
class ZV_API FacialPoints {
 public:
  /// A position (x, y) and its confidence.
  using Point = ValueConfidence<std::pair<float, float>>;

  /// All twelve at (0, 0) with confidence 0.
  FacialPoints();

  /// Replaces the position and the confidence of one landmark. Throws std::invalid_argument for a
  /// description outside 0 to 11.
  void setFacialPoint(PointDescription description, const Point& point);
  /// The position and the confidence of one landmark. Throws std::invalid_argument for a
  /// description outside 0 to 11.
  Point facialPoint(PointDescription description) const;
  /// The mean confidence of the twelve landmarks; one that was never set counts with 0.
  float globalConfidence() const;

 private:
  std::array<Point, 12> _points;
};

}  // namespace ZV

#endif
