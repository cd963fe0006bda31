// One update cycle of a state, step by step.

#include <boost/thread/lock_types.hpp>
#include <cmath>
#include <stdexcept>
#include <vector>

#include "memory/person_memory_private.hpp"
#include "observation/age.hpp"
#include "state/person_state_private.hpp"
#include "zv/classification/mood_classifier.hpp"
#include "zv/person_memory.hpp"
#include "zv/person_observation.hpp"

namespace ZV {
namespace {

// Horizons: where the weight of a sample is one half.
constexpr float facialPointsHorizonSeconds = 3.0f;
constexpr float headPostureHorizonSeconds = 2.0f;
constexpr float gazeHorizonSeconds = 2.0f;
constexpr float asrEmotionHorizonSeconds = 4.0f;
constexpr float touchEmotionHorizonSeconds = 4.0f;
constexpr float noObservationHorizonSeconds = 2.5f;
constexpr float headAnglesHorizonDegrees = 15.0f;
constexpr float gazeHorizonDegrees = 20.0f;

// Strengths: the fraction of the way to its target that a force goes.
constexpr float facialPointsStrength = 0.7f;
constexpr float observationStrength = 0.65f;
constexpr float winnerUnknownStrength = 0.5f;
constexpr float bodyLanguageStrength = 0.065f;
constexpr float attentionConfidenceStrength = 0.35f;
constexpr float voiceEmotionStrength = 0.7f;
constexpr float noObservationConfidenceStrength = 0.7f;

// The yaw of a head counts two thirds, its pitch one third.
constexpr float headYawParts = 2.0f;
constexpr float headAngleParts = 3.0f;

// Sorrow pulls only half-way to the negative end.
constexpr float sorrowTarget = -0.5f;

using Lock = boost::unique_lock<boost::mutex>;

float ageWeight(ku::SystemClock::time_point timestamp, float horizonSeconds) {
  return PersonStatePrivate::_computeWeight(inSeconds(ageOf(timestamp)), horizonSeconds);
}

// How strongly a quantity without input is pulled to 0: the longer without, the more.
float restingStrength(boost::chrono::milliseconds sinceLastObservation) {
  const float weight = sinceLastObservation.count() > 0
                           ? PersonStatePrivate::_computeWeight(inSeconds(sinceLastObservation),
                                                                noObservationHorizonSeconds)
                           : 0.0f;
  return (1.0f - weight) * observationStrength;
}

// The steps on head postures and gazes throw std::runtime_error, whatever exception came up inside.
template <typename Step>
bool failingAsRuntimeError(Step step) {
  try {
    return step();
  } catch (const std::exception& error) {
    throw std::runtime_error(error.what());
  }
}

}  // namespace

void PersonStatePrivate::__update(const PersonObservation& observation,
                                  const PersonMemory& memory) {
  smile = Smile();
  expressions = Expressions();
  // These two stay zero: the mean angles go straight into a force.
  gaze = Gaze();
  headAngles = HeadPosture();
  headHeight = 0.0f;
  unsmoothedValence = {0.0f, 0.0f};

  bool valenceSeen = false;
  bool attentionSeen = false;
  pullByFacialPoints(memory);
  if (takeNewFace(observation)) {
    valenceSeen = true;
    classifyFace();
  }
  attentionSeen |= failingAsRuntimeError([&] { return pullByHeadPosture(memory); });
  attentionSeen |= failingAsRuntimeError([&] { return pullByGaze(memory); });
  valenceSeen |= pullByVoiceEmotion(observation);
  valenceSeen |= pullByAsrEmotion(memory);
  valenceSeen |= pullByTouchEmotion(memory);
  valenceSeen |= pullByContextEmotion(memory);
  restOrLimitValence(valenceSeen, observation);
  restOrLimitAttention(attentionSeen, observation);
}

void PersonStatePrivate::pullByFacialPoints(const PersonMemory& memory) {
  const Lock lock(locks.observation);
  auto& channel = memory._record().facialPoints;
  if (channel.size() == 0) return;
  float numerator = 0.0f;
  float denominator = 0.0f;
  for (const auto& sample : channel.entries()) {
    const float weight = ageWeight(sample.timestamp, facialPointsHorizonSeconds);
    numerator += sample.value.globalConfidence() * weight;
    denominator += weight;
  }
  float meanConfidence = numerator / denominator;
  if (meanConfidence < 0.0f) meanConfidence = 0.0f;
  const float freshness = ageWeight(channel.youngest().timestamp, facialPointsHorizonSeconds);
  const float target = meanConfidence * freshness;
  _applyForceValenceConfidence(target, facialPointsStrength, force_reasons::pointsConfidence.name);
  _applyForceAttentionConfidence(target, facialPointsStrength,
                                 force_reasons::pointsConfidence.name);
}

bool PersonStatePrivate::takeNewFace(const PersonObservation& observation) {
  bool isNew = false;
  {
    const Lock lock(locks.observation);
    if (observation.smile && observation.smile->timestamp != smileTimestamp) {
      smileTimestamp = observation.smile->timestamp;
      smile = observation.smile->value;
      isNew = true;
    }
  }
  {
    const Lock lock(locks.observation);
    if (observation.expressions && observation.expressions->timestamp != expressionsTimestamp) {
      expressionsTimestamp = observation.expressions->timestamp;
      expressions = observation.expressions->value;
      isNew = true;
    }
  }
  return isNew;
}

void PersonStatePrivate::classifyFace() {
  try {
    // No margin: the winner only has to lead.
    static const classification::ArgmaxClassifierType argMax(0.0f);
    std::vector<classification::MoodClass> classes = {
        {"positive", 1, *_reg_pos}, {"neutral", 0, *_reg_neu}, {"negative", -1, *_reg_neg}};
    const ValueConfidence<float> seenSmile = smile.smile();
    const std::vector<float> features = {seenSmile.value * seenSmile.confidence,
                                         expressions.calm.value, expressions.joy.value,
                                         expressions.anger.value, expressions.sorrow.value};
    for (auto& candidate : classes) candidate.calculateScore(features);
    const auto& winner = classification::MoodClassifier(argMax).classify(classes);
    _applyForceValence(static_cast<float>(winner.id), observationStrength,
                       force_reasons::faceCharacteristics.name);
  } catch (const std::exception&) {
    _applyForceValenceConfidence(0.0f, winnerUnknownStrength, force_reasons::winnerUnknown.name);
  }
}

bool PersonStatePrivate::pullByHeadPosture(const PersonMemory& memory) {
  const Lock lock(locks.observation);
  auto& channel = memory._record().headPosture;
  if (channel.size() == 0) {
    _applyForceAttentionConfidence(0.0f, attentionConfidenceStrength,
                                   force_reasons::noObservation.name);
    return false;
  }
  headPostureTimestamp = channel.youngest().timestamp;
  const float ease = bodyLanguageState.bodyLanguageState(BodyLanguageDescription::Ease).level;
  _applyForceValence(ease, bodyLanguageStrength, force_reasons::bodyLanguage.name);
  float yaw = 0.0f;
  float pitch = 0.0f;
  float weights = 0.0f;
  for (const auto& sample : channel.entries()) {
    const float weight = ageWeight(sample.timestamp, headPostureHorizonSeconds);
    yaw += sample.value.yaw() * weight;
    pitch += sample.value.pitch() * weight;
    weights += weight;
  }
  const float sideways = headYawParts * (yaw / weights) / headAngleParts;
  const float upwards = (pitch / weights) / headAngleParts;
  const auto angle =
      static_cast<float>(std::sqrt(static_cast<double>(sideways * sideways + upwards * upwards)));
  _applyForceAttention(_computeWeight(angle, headAnglesHorizonDegrees), observationStrength,
                       force_reasons::headAngles.name);
  _applyForceAttentionConfidence(1.0f, attentionConfidenceStrength,
                                 force_reasons::observation.name);
  return true;
}

bool PersonStatePrivate::pullByGaze(const PersonMemory& memory) {
  const Lock lock(locks.observation);
  auto& channel = memory._record().gaze;
  if (channel.size() == 0) {
    _applyForceAttentionConfidence(0.0f, attentionConfidenceStrength,
                                   force_reasons::noObservation.name);
    return false;
  }
  float yaw = 0.0f;
  float pitch = 0.0f;
  float weights = 0.0f;
  for (const auto& sample : channel.entries()) {
    const float weight = ageWeight(sample.timestamp, gazeHorizonSeconds);
    yaw += sample.value.yaw * weight;
    pitch += sample.value.pitch * weight;
    weights += weight;
  }
  const float meanYaw = yaw / weights;
  const float meanPitch = pitch / weights;
  const auto angle =
      static_cast<float>(std::sqrt(static_cast<double>(meanYaw * meanYaw + meanPitch * meanPitch)));
  _applyForceAttention(_computeWeight(angle, gazeHorizonDegrees), observationStrength,
                       force_reasons::gazeDirection.name);
  _applyForceAttentionConfidence(1.0f, attentionConfidenceStrength,
                                 force_reasons::observation.name);
  gazeTimestamp = channel.youngest().timestamp;
  return true;
}

bool PersonStatePrivate::pullByVoiceEmotion(const PersonObservation& observation) {
  const auto& voice = observation.voiceEmotion;
  if (!voice || voice->timestamp == voiceEmotionTimestamp) return false;
  voiceEmotionTimestamp = voice->timestamp;
  _warnIfObservationOld(ageOf(voice->timestamp), "Voice Emotion");
  const auto pull = [this](float target, const ValueConfidence<float>& emotion) {
    _applyForceValence(target, emotion.value * voiceEmotionStrength * observationStrength,
                       force_reasons::voiceEmotion.name);
  };
  pull(0.0f, voice->value.calm());
  pull(-1.0f, voice->value.anger());
  pull(1.0f, voice->value.joy());
  pull(sorrowTarget, voice->value.sorrow());
  return true;
}

// The next three apply a force for every remembered sample, new or not: a sample goes on pulling,
// ever more weakly, for as long as it is remembered.

bool PersonStatePrivate::pullByAsrEmotion(const PersonMemory& memory) {
  const Lock lock(locks.observation);
  auto& channel = memory._record().asrEmotion;
  if (channel.size() == 0) return false;
  asrEmotionTimestamp = channel.youngest().timestamp;
  for (const auto& sample : channel.entries()) {
    const float weight = ageWeight(sample.timestamp, asrEmotionHorizonSeconds);
    _applyForceValence(sample.value >= 0.0f ? 1.0f : -1.0f, weight * observationStrength,
                       force_reasons::asrEmotion.name);
  }
  return true;
}

bool PersonStatePrivate::pullByTouchEmotion(const PersonMemory& memory) {
  const Lock lock(locks.observation);
  auto& channel = memory._record().touchEmotion;
  if (channel.size() == 0) return false;
  touchEmotionTimestamp = channel.youngest().timestamp;
  for (const auto& sample : channel.entries()) {
    const float weight = ageWeight(sample.timestamp, touchEmotionHorizonSeconds);
    if (sample.value == 0) continue;
    _applyForceValence(sample.value > 0 ? 1.0f : -1.0f, weight * observationStrength,
                       force_reasons::touchEmotion.name);
  }
  return true;
}

bool PersonStatePrivate::pullByContextEmotion(const PersonMemory& memory) {
  const Lock lock(locks.observation);
  auto& channel = memory._record().contextEmotion;
  if (channel.size() == 0) return false;
  contextEmotionTimestamp = channel.youngest().timestamp;
  for (const auto& sample : channel.entries()) {
    const float weight = ageWeight(sample.timestamp, sample.value.duration);
    _applyForceValence(static_cast<float>(sample.value.emotion), weight * observationStrength,
                       force_reasons::contextEmotion.name);
  }
  return true;
}

boost::chrono::milliseconds PersonStatePrivate::_lastTimeStampedObservationValence() const {
  auto age = ageOf(smileTimestamp);
  age = std::min(age, ageOf(expressionsTimestamp));
  age = std::min(age, ageOf(voiceEmotionTimestamp));
  age = std::min(age, ageOf(asrEmotionTimestamp));
  return std::min(age, ageOf(touchEmotionTimestamp));
}

boost::chrono::milliseconds PersonStatePrivate::_lastTimeStampedObservationAttention() const {
  const auto age = ageOf(headPostureTimestamp);
  return std::min(age, ageOf(gazeTimestamp));
}

void PersonStatePrivate::restOrLimitValence(bool seen, const PersonObservation& observation) {
  if (seen) {
    limitBySensor(observation, "valence");
    return;
  }
  _applyForceValence(0.0f, restingStrength(_lastTimeStampedObservationValence()),
                     force_reasons::noObservation.name);
  _applyForceValenceConfidence(0.0f, noObservationConfidenceStrength,
                               force_reasons::noObservation.name);
}

void PersonStatePrivate::restOrLimitAttention(bool seen, const PersonObservation& observation) {
  if (seen) {
    limitBySensor(observation, "attention");
    return;
  }
  _applyForceAttention(0.0f, restingStrength(_lastTimeStampedObservationAttention()),
                       force_reasons::noObservation.name);
  _applyForceAttentionConfidence(0.0f, noObservationConfidenceStrength,
                                 force_reasons::noObservation.name);
}

void PersonStatePrivate::limitBySensor(const PersonObservation& observation,
                                       std::string_view which) {
  if (observation.height) {
    const Lock lock(locks.headHeight);
    headHeight = observation.height->value;
  }
  const float distance = observation.distance ? observation.distance->value : 0.0f;
  _handleOkaoLimitations(distance, headHeight, which);
}

}  // namespace ZV
