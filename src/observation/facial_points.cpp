#include "zv/facial_points.hpp"

#include <stdexcept>
#include <string>

namespace ZV {
namespace {

// The slot of each landmark. Confidences are added slot by slot, and that order, which is not the
// order of the landmarks' numbers, decides the last digits of the sum.
constexpr std::array<std::size_t, 12> slots = {0, 3, 6, 1, 2, 4, 5, 7, 8, 10, 11, 9};

std::size_t slotOf(PointDescription description) {
  const auto number = static_cast<int>(description);
  if (number < 0 || number >= static_cast<int>(slots.size())) {
    throw std::invalid_argument("Error while getting point " + std::to_string(number) +
                                ", wrong argument.\n");
  }
  return slots[static_cast<std::size_t>(number)];
}

}  // namespace

FacialPoints::FacialPoints() { _points.fill(Point({0.0f, 0.0f}, 0.0f)); }

void FacialPoints::setFacialPoint(PointDescription description, const Point& point) {
  _points[slotOf(description)] = point;
}

FacialPoints::Point FacialPoints::facialPoint(PointDescription description) const {
  return _points[slotOf(description)];
}

float FacialPoints::globalConfidence() const {
  float sum = 0.0f;
  for (const auto& point : _points) sum += point.confidence;
  return sum / static_cast<float>(_points.size());
}

}  // namespace ZV
