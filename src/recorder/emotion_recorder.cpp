#include "zv/emotion_recorder.hpp"

#include <boost/thread/lock_types.hpp>
#include <stdexcept>

#include "state/person_state_private.hpp"

namespace ZV {
namespace {

using Lock = boost::unique_lock<boost::mutex>;

std::string labelOf(const ZVEmotionRecorder::Samples& samples) {
  const ValueConfidence<float> mean = ZVEmotionRecorder::meanValence(samples);
  // In single precision, unlike a state's label: a mean of exactly 0.2f is neutral. So is a NaN,
  // for which no comparison holds.
  if (PersonStatePrivate::binaryBoundaryConfidence > mean.confidence) return "unknown";
  if (mean.value > PersonStatePrivate::binaryBoundaryPositive) return "positive";
  if (PersonStatePrivate::binaryBoundaryNegative > mean.value) return "negative";
  return "neutral";
}

bool isWithin(const ValueConfidence<float>& pair, float lowest) {
  const auto isBeyond = [](float number, float least) { return number < least || number > 1.0f; };
  return !isBeyond(pair.value, lowest) && !isBeyond(pair.confidence, 0.0f);  // NaN is within
}

}  // namespace

ZVEmotionRecorder::ZVEmotionRecorder(const ZVEmotionRecorder& other) : _scopes(other._scopes) {}

void ZVEmotionRecorder::startRecording(const std::string& name, std::int32_t remainingSamples) {
  const Lock lock(mutex);
  EmoRecordInfo& scope = _scopes[name];
  scope.remainingSamples = remainingSamples;
  scope.samples.clear();
}

std::pair<std::string, ZVEmotionRecorder::Samples> ZVEmotionRecorder::stopRecording(
    const std::string& name) {
  const Lock lock(mutex);
  const auto found = _scopes.find(name);
  if (found == _scopes.end()) return {"error", {}};
  std::pair<std::string, Samples> result{labelOf(found->second.samples),
                                         std::move(found->second.samples)};
  _scopes.erase(found);
  return result;
}

ZVEmotionRecorder::SavedScopes ZVEmotionRecorder::save() const {
  const Lock lock(mutex);
  SavedScopes saved;
  for (const auto& [name, scope] : _scopes) {
    SavedScope& kept = saved[name];
    kept.remainingSamples = scope.remainingSamples;
    kept.samples.reserve(scope.samples.size());
    for (const auto& [time, state] : scope.samples) {
      kept.samples.push_back({time, state.personValence(), state.personAttention()});
    }
  }
  return saved;
}

void ZVEmotionRecorder::restore(const SavedScopes& scopes) {
  std::map<std::string, EmoRecordInfo> restored;
  for (const auto& [name, saved] : scopes) {
    EmoRecordInfo& scope = restored[name];
    scope.remainingSamples = saved.remainingSamples;
    for (const auto& [time, valence, attention] : saved.samples) {
      if (!isWithin(valence, -1.0f) || !isWithin(attention, 0.0f)) {
        throw std::invalid_argument("A sample of a scope is beyond its range.");
      }
      scope.samples.emplace_back(time, PersonState(valence.value, valence.confidence,
                                                   attention.value, attention.confidence));
    }
  }
  const Lock lock(mutex);
  _scopes.swap(restored);
}

void ZVEmotionRecorder::merge(ZVEmotionRecorder& other) {
  std::map<std::string, EmoRecordInfo> scopes;
  {
    const Lock lock(other.mutex);
    scopes.swap(other._scopes);
  }
  const Lock lock(mutex);
  _scopes.merge(scopes);
  for (auto& [name, left] : scopes) {
    Samples& samples = _scopes.find(name)->second.samples;
    samples.splice(samples.end(), left.samples);
    // Not a merge of two sorted lists: a clock may have run backwards.
    samples.sort([](const Sample& one, const Sample& next) { return one.first < next.first; });
  }
}

ValueConfidence<float> ZVEmotionRecorder::meanValence(const Samples& samples) {
  float weightedSum = 0.0f;
  float confidenceSum = 0.0f;
  for (const auto& sample : samples) {
    const PersonState& state = sample.second;
    const ValueConfidence<float> positive = state.personEmotion(PersonDescription::Positivity);
    const ValueConfidence<float> negative = state.personEmotion(PersonDescription::Negativity);
    weightedSum += (positive.value - negative.value) * positive.confidence;
    confidenceSum += positive.confidence;
  }
  return {weightedSum / confidenceSum, confidenceSum / static_cast<float>(samples.size())};
}

void ZVEmotionRecorder::update_notMutexed(const PersonState& state) {
  const ku::SystemClock::time_point now = ku::SystemClock::now();
  for (auto scope = _scopes.begin(); scope != _scopes.end();) {
    EmoRecordInfo& info = scope->second;
    if (info.remainingSamples == 0) {
      scope = _scopes.erase(scope);
      continue;
    }
    if (info.remainingSamples > 0) --info.remainingSamples;
    info.samples.emplace_back(now, state);
    ++scope;
  }
}

bool ZVEmotionRecorder::hasAnOpenScope_notMutexed() const { return !_scopes.empty(); }

}  // namespace ZV
