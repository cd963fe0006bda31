#include "zv/head_posture.hpp"

#include <iomanip>
#include <ostream>

namespace ZV {

const float HeadPosture::upBoundary = 6.0f;
const float HeadPosture::downBoundary = -6.0f;
const float HeadPosture::leftBoundary = -6.0f;
const float HeadPosture::rightBoundary = 6.0f;

HeadPosture::HeadPosture(float yaw, float pitch, float roll)
    : _yaw(yaw), _pitch(pitch), _roll(roll) {}

void HeadPosture::setHeadPosture(float yaw, float pitch, float roll) {
  *this = HeadPosture(yaw, pitch, roll);
}

bool HeadPosture::isUp() const { return _pitch >= upBoundary; }

bool HeadPosture::isDown() const { return _pitch <= downBoundary; }

bool HeadPosture::isLeft() const { return _yaw <= leftBoundary; }

bool HeadPosture::isRight() const { return _yaw >= rightBoundary; }

std::ostream& operator<<(std::ostream& stream, const HeadPosture& posture) {
  stream << std::fixed << std::setprecision(1);
  stream << "θ(" << std::setw(5) << posture.yaw() << "°) ";
  stream << "φ(" << std::setw(5) << posture.pitch() << "°) ";
  stream << "ψ(" << std::setw(5) << posture.roll() << "°) ";
  stream << (posture.isUp() ? "Up" : posture.isDown() ? "Down" : "Straight pitch") << ' ';
  return stream << (posture.isLeft() ? "Left" : posture.isRight() ? "Right" : "Straight yaw");
}

}  // namespace ZV
