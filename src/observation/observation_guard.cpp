#include "zv/observation_guard.hpp"

#include <cmath>
#include <stdexcept>

#include "observation/age.hpp"

namespace ZV {
namespace {

bool isFinite(bool /*value*/) { return true; }

bool isFinite(std::int32_t /*value*/) { return true; }

bool isFinite(unsigned int /*value*/) { return true; }

bool isFinite(float value) { return std::isfinite(value); }

bool isFinite(const std::pair<float, float>& position) {
  return isFinite(position.first) && isFinite(position.second);
}

template <typename T>
bool isFinite(const ValueConfidence<T>& pair) {
  return isFinite(pair.value) && isFinite(pair.confidence);
}

bool isFinite(const Gaze& gaze) { return isFinite(gaze.yaw) && isFinite(gaze.pitch); }

bool isFinite(const Smile& smile) { return isFinite(smile.smile()); }

// Voice emotions as well, which derive from it.
bool isFinite(const Expressions& all) {
  return isFinite(all.calm) && isFinite(all.anger) && isFinite(all.joy) && isFinite(all.sorrow) &&
         isFinite(all.laughter) && isFinite(all.excitement) && isFinite(all.surprise);
}

bool isFinite(const HeadPosture& posture) {
  return isFinite(posture.yaw()) && isFinite(posture.pitch()) && isFinite(posture.roll());
}

bool isFinite(const FacialPoints& points) {
  constexpr auto last = static_cast<int>(PointDescription::RightMouthCorner);
  for (int point = 0; point <= last; ++point) {
    if (!isFinite(points.facialPoint(static_cast<PointDescription>(point)))) return false;
  }
  return true;
}

bool isFinite(const ContextEmotion& context) { return isFinite(context.duration); }

}  // namespace

ObservationGuard::ObservationGuard(Duration limit) : _limit(limit) {
  if (limit < Duration::zero()) {
    throw std::invalid_argument("The limit of an ObservationGuard is negative.");
  }
}

ObservationGuard::Report ObservationGuard::clean(PersonObservation& observation) {
  const auto now = ku::SystemClock::now();
  Report report;
  if (_lastReading) {
    const Duration back = timeBetween(now, *_lastReading);
    if (back > _limit) report.clockSetBack = back;
  }
  _lastReading = now;

  const auto check = [&](std::string_view name, auto& field) {
    if (!field) return;
    const Duration ahead = timeBetween(now, field->timestamp);
    const bool finite = isFinite(field->value);
    if (finite && ahead <= _limit) return;
    report.removedFields.push_back({name, finite ? Reason::Ahead : Reason::NotFinite, ahead});
    field.reset();
  };
  // A member that is missing here does not compile.
  auto& [lookingAtRobot, height, distance, gaze, smile, expressions, headPosture, gender, age,
         faceDetected, facialPoints, voiceEmotion, asrEmotion, touchEmotion, contextEmotion] =
      observation;
  check("lookingAtRobot", lookingAtRobot);
  check("height", height);
  check("distance", distance);
  check("gaze", gaze);
  check("smile", smile);
  check("expressions", expressions);
  check("headPosture", headPosture);
  check("gender", gender);
  check("age", age);
  check("faceDetected", faceDetected);
  check("facialPoints", facialPoints);
  check("voiceEmotion", voiceEmotion);
  check("asrEmotion", asrEmotion);
  check("touchEmotion", touchEmotion);
  check("contextEmotion", contextEmotion);
  return report;
}

}  // namespace ZV
