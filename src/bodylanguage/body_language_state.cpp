#include "zv/body_language_state.hpp"

#include <boost/make_shared.hpp>
#include <ostream>
#include <stdexcept>

#include "bodylanguage/body_language_state_private.hpp"
#include "memory/person_memory_private.hpp"
#include "zv/person_memory.hpp"

namespace ZV {
namespace {

// A raised head counts as uneasy and a lowered one as at ease; left and right differ on purpose.
constexpr float raisedHeadEase = -0.5f;
constexpr float loweredHeadEase = 0.5f;
constexpr float leftTurnedHeadEase = -0.5f;
constexpr float rightTurnedHeadEase = 0.5f;
constexpr float straightHeadEase = 0.0f;
constexpr float easeConfidence = 0.5f;

}  // namespace

float BodyLanguageStatePrivate::estimateFromHeadPosture(const HeadPosture& posture) {
  if (posture.isUp()) return raisedHeadEase;
  if (posture.isDown()) return loweredHeadEase;
  if (posture.isLeft()) return leftTurnedHeadEase;
  if (posture.isRight()) return rightTurnedHeadEase;
  return straightHeadEase;
}

void BodyLanguageStatePrivate::_update(ShortTermMemory<HeadPosture>& headPostures) {
  if (headPostures.size() == 0) return;
  float sum = 0.0f;
  for (const auto& entry : headPostures.entries()) sum += estimateFromHeadPosture(entry.value);
  // size() forgets once more: an entry that expires in between is in the sum but not in the
  // divisor.
  ease.level = sum / static_cast<float>(headPostures.size());
  ease.confidence = easeConfidence;
}

BodyLanguageState::BodyLanguageState() : _state(boost::make_shared<BodyLanguageStatePrivate>()) {}

void BodyLanguageState::update(const PersonMemory& memory) {
  _state->_update(memory._record().headPosture);
}

BodyLanguageEase BodyLanguageState::bodyLanguageState(BodyLanguageDescription description) const {
  if (description != BodyLanguageDescription::Ease) {
    throw std::invalid_argument("This descriptor is not valid.");
  }
  return _state->ease;
}

std::ostream& operator<<(std::ostream& stream, const BodyLanguageState& state) {
  return stream << state.bodyLanguageState(BodyLanguageDescription::Ease);
}

}  // namespace ZV
