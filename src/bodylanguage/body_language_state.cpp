#include "zv/body_language_state.hpp"

#include <boost/make_shared.hpp>
#include <ostream>
#include <stdexcept>

#include "bodylanguage/body_language_state_private.hpp"
#include "memory/person_memory_private.hpp"
#include "zv/person_memory.hpp"

namespace ZV {

float BodyLanguageStatePrivate::estimateFromHeadPosture(const HeadPosture& posture) {
  // A raised head counts as uneasy and a lowered one as at ease; left and right differ on purpose.
  if (posture.isUp()) return -0.5f;
  if (posture.isDown()) return 0.5f;
  if (posture.isLeft()) return -0.5f;
  if (posture.isRight()) return 0.5f;
  return 0.0f;
}

void BodyLanguageStatePrivate::_update(ShortTermMemory<HeadPosture>& headPostures) {
  if (headPostures.size() == 0) return;
  float sum = 0.0f;
  for (const auto& entry : headPostures.entries()) sum += estimateFromHeadPosture(entry.value);
  // The size is asked for again, and forgets again: an entry that expires between the two is in the
  // sum and not in the divisor.
  ease.level = sum / static_cast<float>(headPostures.size());
  ease.confidence = 0.5f;
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
