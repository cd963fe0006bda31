#include "zv/person_state.hpp"

#include <algorithm>
#include <boost/make_shared.hpp>
#include <stdexcept>

#include "bodylanguage/body_language_state_private.hpp"
#include "state/person_state_private.hpp"

namespace ZV {
namespace {

int labelOf(float valence) {
  const auto number = static_cast<double>(valence);
  if (number > PersonStatePrivate::labelBoundaryPositive) return 1;
  if (number > PersonStatePrivate::labelBoundaryNegative) return 0;
  return -1;
}

template <typename Cycle>
void passingOnObserverFailures(Cycle cycle) {
  try {
    cycle();
  } catch (const ObserverFailure& failure) {
    std::rethrow_exception(failure.error);
  }
}

}  // namespace

void PersonStatePrivate::_setValence(float value) {
  valence.value = std::clamp(value, -1.0f, 1.0f);
}

void PersonStatePrivate::_setValenceConfidence(float value) {
  valence.confidence = std::clamp(value, 0.0f, 1.0f);
}

void PersonStatePrivate::_setAttention(float value) {
  attention.value = std::clamp(value, 0.0f, 1.0f);
}

void PersonStatePrivate::_setAttentionConfidence(float value) {
  attention.confidence = std::clamp(value, 0.0f, 1.0f);
}

void PersonStatePrivate::_setUnsmoothedValence(float value) {
  unsmoothedValence.value = std::clamp(value, -1.0f, 1.0f);
}

void PersonStatePrivate::_setUnsmoothedValenceConfidence(float value) {
  unsmoothedValence.confidence = std::clamp(value, 0.0f, 1.0f);
}

ku::SystemClock::time_point PersonStatePrivate::_newestReading() const {
  ku::SystemClock::time_point newest = never;
  for (const auto time : usedTimes()) newest = std::max(newest, this->*time);
  return newest;
}

void PersonStatePrivate::_goOnFrom(const PersonStatePrivate& other) {
  bodyLanguageState._record() = other.bodyLanguageState._record();
  valence = other.valence;
  unsmoothedValence = other.unsmoothedValence;
  attention = other.attention;
  smile = other.smile;
  gaze = other.gaze;
  expressions = other.expressions;
  headHeight = other.headHeight;
  headAngles = other.headAngles;
  frequencyGaze = other.frequencyGaze;
  frequencyFace = other.frequencyFace;
}

void PersonStatePrivate::_useLaterReadings(const PersonStatePrivate& other) {
  for (const auto time : usedTimes()) this->*time = std::max(this->*time, other.*time);
}

PersonState::PersonState() : _state(boost::make_shared<PersonStatePrivate>()) {}

PersonState::PersonState(float valence, float valenceConfidence, float attention,
                         float attentionConfidence)
    : PersonState() {
  _state->_setValence(valence);
  _state->_setValenceConfidence(valenceConfidence);
  _state->_setAttention(attention);
  _state->_setAttentionConfidence(attentionConfidence);
}

ValueConfidence<float> PersonState::personValence() const { return _state->valence; }

ValueConfidence<float> PersonState::personAttention() const { return _state->attention; }

ValueConfidence<int> PersonState::personValenceBinary() const {
  return {labelOf(_state->valence.value), _state->valence.confidence};
}

ValueConfidence<int> PersonState::personUnsmoothedValenceBinary() const {
  return {labelOf(_state->unsmoothedValence.value), _state->unsmoothedValence.confidence};
}

ValueConfidence<float> PersonState::personEmotion(PersonDescription description) const {
  const ValueConfidence<float>& valence = _state->valence;
  switch (description) {
    case PersonDescription::Positivity:
      // In this order of arguments a NaN gives 0.
      return {std::max(0.0f, valence.value), valence.confidence};
    case PersonDescription::Negativity:
      return {valence.value < 0.0f ? -valence.value : 0.0f, valence.confidence};
    case PersonDescription::Attention:
      return _state->attention;
  }
  throw std::invalid_argument("Unknown emotional expression descriptor " +
                              std::to_string(static_cast<int>(description)));
}

Smile PersonState::smile() const { return _state->smile; }

Expressions PersonState::expressions() const { return _state->expressions; }

Gaze PersonState::gaze() const { return _state->gaze; }

HeadPosture PersonState::headAngles() const { return _state->headAngles; }

float PersonState::headHeight() const { return _state->headHeight; }

void PersonState::setFrequencyFace(float frequency) { _state->frequencyFace = frequency; }

void PersonState::setFrequencyGaze(float frequency) { _state->frequencyGaze = frequency; }

BodyLanguageState& PersonState::bodyLanguageState() { return _state->bodyLanguageState; }

const BodyLanguageState& PersonState::bodyLanguageState() const {
  return _state->bodyLanguageState;
}

void PersonState::setForceObserver(const ForceObserver& observer) {
  _state->observer.observe = observer;
}

void PersonState::_update(const PersonObservation& observation, const PersonMemory& memory) {
  passingOnObserverFailures([&] { _state->__update(observation, memory); });
}

void PersonState::decreaseSinceNotSeen() {
  passingOnObserverFailures([this] { _state->_decreaseSinceNotSeen(); });
}

void PersonState::_setValence(float valence) { _state->_setValence(valence); }

}  // namespace ZV
