#include "zv/ambiance_state.hpp"

#include <algorithm>
#include <boost/thread/lock_types.hpp>
#include <cmath>
#include <ostream>
#include <stdexcept>
#include <string>

namespace ZV {
namespace {

constexpr float activityScale = 10.0f;
constexpr float smoothing = 0.2f;
constexpr float movementsAtFullPull = 5.0f;

using Lock = boost::unique_lock<boost::mutex>;

// Readers do not lock, so every access to one of the numbers is atomic by itself. The numbers stay
// plain floats because the type system refers to them.
float load(const float& number) {
  float value = 0.0f;
  __atomic_load(&number, &value, __ATOMIC_RELAXED);
  return value;
}

void store(float& number, float value) { __atomic_store(&number, &value, __ATOMIC_RELAXED); }

}  // namespace

AmbianceState::AmbianceState(const AmbianceState& other) { copyNumbers(other); }

AmbianceState& AmbianceState::operator=(const AmbianceState& other) {
  if (this == &other) return *this;
  const Lock lock(mutex);
  copyNumbers(other);
  return *this;
}

void AmbianceState::copyNumbers(const AmbianceState& other) {
  store(agitationLevel, load(other.agitationLevel));
  store(calmLevel, load(other.calmLevel));
  store(movementCount, load(other.movementCount));
}

void AmbianceState::updateAmbiance(float activity) {
  const float scaled = activity * activityScale;
  const Lock lock(mutex);
  const float agitation = load(agitationLevel);
  const float blended = (scaled - agitation) * smoothing + agitation;
  const float movementTerm = (load(movementCount) / movementsAtFullPull) * smoothing;
  _setAmbientActivityLevel(movementTerm + blended);
  store(movementCount, 0.0f);
}

void AmbianceState::incrementMovementDetected() {
  const Lock lock(mutex);
  store(movementCount, load(movementCount) + 1.0f);
}

void AmbianceState::_setAmbientActivityLevel(float level) {
  // In this order of arguments a NaN gives 0.
  const float held = std::min(1.0f, std::max(0.0f, level));
  store(agitationLevel, held);
  store(calmLevel, 1.0f - held);
}

AmbianceState::Saved AmbianceState::save() const {
  const Lock lock(mutex);
  return {load(agitationLevel), load(calmLevel), load(movementCount)};
}

void AmbianceState::restore(const Saved& saved) {
  const auto isLevel = [](float number) { return number >= 0.0f && number <= 1.0f; };
  if (!isLevel(saved.agitation) || !isLevel(saved.calm) || !(saved.movements >= 0.0f) ||
      std::isinf(saved.movements)) {
    throw std::invalid_argument("A number of the room is beyond its range.");
  }
  const Lock lock(mutex);
  store(agitationLevel, saved.agitation);
  store(calmLevel, saved.calm);
  store(movementCount, saved.movements);
}

float AmbianceState::ambientActivityLevel(AmbianceDescription description) const {
  switch (description) {
    case AmbianceDescription::Agitation:
      return load(agitationLevel);
    case AmbianceDescription::Calm:
      return load(calmLevel);
  }
  throw std::invalid_argument("Unknown emotional expression descriptor " +
                              std::to_string(static_cast<int>(description)));
}

std::ostream& operator<<(std::ostream& stream, const AmbianceState& state) {
  return stream << "Ambiance:" << std::endl
                << "\t - Activity : \t"
                << state.ambientActivityLevel(AmbianceDescription::Agitation) << std::endl
                << "\t - Calm : \t" << state.ambientActivityLevel(AmbianceDescription::Calm);
}

}  // namespace ZV
