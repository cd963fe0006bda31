#include <gtest/gtest.h>

#include "simulated_person.hpp"

namespace ZV {
namespace {

TEST(Recorder, KeepsAScopeForItsLifetime) {
  using Case = std::tuple<int, int, int>;  // lifetime, updates, samples; -1 samples: no scope left
  for (const auto& [lifetime, updates, samples] :
       {Case{-1, 5, 5}, Case{-7, 1, 1}, Case{0, 0, 0}, Case{0, 1, -1}, Case{1, 0, 0}, Case{1, 1, 1},
        Case{1, 2, -1}, Case{2, 2, 2}, Case{2, 3, -1}}) {
    ZVEmotionRecorder recorder;
    recorder.startRecording("scope", lifetime);
    for (int i = 0; i < updates; ++i) recorder.update_notMutexed(PersonState());
    EXPECT_EQ(recorder.hasAnOpenScope_notMutexed(), samples >= 0);
    const auto [label, kept] = recorder.stopRecording("scope");
    EXPECT_EQ(label == "error" ? -1 : static_cast<int>(kept.size()), samples) << lifetime;
    EXPECT_EQ(recorder.stopRecording("scope").first, "error");
  }
}

using Scopes = std::map<std::string, ZVEmotionRecorder::EmoRecordInfo>;
template <Scopes ZVEmotionRecorder::*scopes>
struct Looking {
  friend const Scopes& scopesOf(const ZVEmotionRecorder& recorder) { return recorder.*scopes; }
};
template struct Looking<&ZVEmotionRecorder::_scopes>;  // may name a private member
const Scopes& scopesOf(const ZVEmotionRecorder& recorder);

TEST(Recorder, LocksAndCountsNoScopeWithoutLimit) {
  ZVEmotionRecorder recorder;
  boost::unique_lock<boost::mutex> lock(recorder.mutex);
  const auto starting = begin([&] { recorder.startRecording("scope", -1); });
  const auto stopping = begin([&] { recorder.stopRecording("other"); });
  EXPECT_TRUE(isWaiting(starting) && isWaiting(stopping));
  lock.unlock();
  starting.wait();
  recorder.update_notMutexed(PersonState());
  EXPECT_EQ(scopesOf(recorder).at("scope").remainingSamples, -1);  // for ever
}

TEST(Recorder, TakesSavedScopesWholeOrNotAtAll) {
  ku::SimulatedClock clock(at(0));
  const ku::ClockScope scope(clock);
  ZVEmotionRecorder recorder, restored;
  recorder.startRecording("", -1);
  for (const float valence : {0.5f, NAN, -1.0f}) {
    recorder.startRecording("limited", 2);
    recorder.update_notMutexed(PersonState(valence, 0.25f, 0.75f, 1));
    clock.set(at(-1));  // it was set back
  }
  restored.startRecording("gone", -1);
  restored.restore(recorder.save());
  const auto refuse = [&](ValueConfidence<float> valence, ValueConfidence<float> attention) {
    EXPECT_THROW(restored.restore({{"other", {-1, {{at(0), valence, attention}}}}}),
                 std::invalid_argument);
  };
  refuse({above(1), 0}, {0, 0});
  refuse({0, below(0)}, {0, 0});
  refuse({0, 0}, {below(0), 0});
  refuse({0, 0}, {0, above(1)});
  EXPECT_EQ(restored.stopRecording("gone").first, "error");
  for (ZVEmotionRecorder* const each : {&recorder, &restored}) {
    each->update_notMutexed(PersonState(1, 1, 1, 1));
    each->update_notMutexed(PersonState(1, 1, 1, 1));  // drops the limited one
    EXPECT_EQ(each->stopRecording("limited").first, "error");
  }
  const auto whole = recorder.stopRecording("").second, taken = restored.stopRecording("").second;
  ASSERT_EQ(taken.size(), 5);
  for (auto left = whole.begin(), right = taken.begin(); left != whole.end(); ++left, ++right) {
    EXPECT_EQ(left->first, right->first);
    EXPECT_EQ(textOf(left->second), textOf(right->second));
  }
}

TEST(Recorder, TakesOverTheScopesOfTheSamePerson) {
  // The clock is set back in between.
  ScriptedClock clock([](int reading) { return at(reading == 0 ? 5 : reading + 2); });
  ZVEmotionRecorder kept, moved;
  kept.startRecording("both", 3);
  for (const char* const name : {"both", "moved"}) moved.startRecording(name, 7);
  for (auto* recorder : {&kept, &moved, &kept, &moved}) recorder->update_notMutexed(PersonState());
  kept.merge(moved);
  kept.merge(kept);
  EXPECT_TRUE(scopesOf(moved).empty() && scopesOf(kept).count("moved") == 1);
  EXPECT_EQ(scopesOf(kept).at("both").remainingSamples, 1);
  std::vector<Time> times;
  for (const auto& sample : kept.stopRecording("both").second) times.push_back(sample.first);
  EXPECT_EQ(times, (std::vector<Time>{at(3), at(4), at(5), at(5)}));
}

TEST(Recorder, LabelsAScopeByItsWeightedMean) {
  // The scopes of three samples have a mean of 0.2, up to a last digit that depends on their order.
  using Samples = std::vector<std::pair<float, float>>;  // valence and confidence
  using Case = std::pair<const char*, Samples>;
  for (const auto& [label, samples] :
       {Case{"neutral", {}}, Case{"unknown", {{0.9f, 0}}}, Case{"unknown", {{1, below(0.4f)}}},
        Case{"positive", {{1, 0.4f}}}, Case{"neutral", {{0.2f, 1}}},
        Case{"positive", {{above(0.2f), 1}}}, Case{"neutral", {{-0.2f, 1}}},
        Case{"negative", {{below(-0.2f), 1}}}, Case{"positive", {{-1, 0.3f}, {1, 0.9f}}},
        Case{"neutral", {{NAN, 1}}}, Case{"neutral", {{1, NAN}}},
        Case{"positive", {{0.5f, 0.6f}, {0.4f, 0.5f}, {-0.2f, 0.7f}}},
        Case{"neutral", {{-0.2f, 0.7f}, {0.4f, 0.5f}, {0.5f, 0.6f}}}}) {
    ZVEmotionRecorder recorder;
    recorder.startRecording("scope", -1);
    for (const auto& [valence, confidence] : samples) {
      recorder.update_notMutexed(PersonState(valence, confidence, 0, 0));
    }
    EXPECT_EQ(recorder.stopRecording("scope").first, label) << testing::PrintToString(samples);
  }
}

TEST(Recorder, CountsAValenceThatIsNaNAsZero) {
  using Samples = ZVEmotionRecorder::Samples;
  const auto mean = ZVEmotionRecorder::meanValence(
      Samples{{at(0), PersonState(1, 0.5f, 0, 0)}, {at(1), PersonState(-0.5f, 0.25f, 0, 0)}});
  EXPECT_TRUE(mean.value == 0.5f && mean.confidence == 0.375f) << mean.value;
  const auto withNaN = ZVEmotionRecorder::meanValence(
      Samples{{at(0), PersonState(NAN, 1, 0, 0)}, {at(1), PersonState(1, 1, 0, 0)}});
  EXPECT_TRUE(withNaN.value == 0.5f && withNaN.confidence == 1.0f) << withNaN.value;
}

TEST(Recorder, SharesLiveStatesAndReleasesThem) {
  ScriptedClock clock([](int reading) { return at(reading); });
  ZVEmotionRecorder recorder;
  PersonState state(-1, 1, 0, 0);
  const auto record = recordOf(state);
  recorder.startRecording("b", -1);
  recorder.update_notMutexed(state);
  recorder.startRecording("a", 1);
  recorder.update_notMutexed(state);
  recorder.mutex.lock();
  ZVEmotionRecorder copy(recorder);  // with a free lock, and the same states
  recorder.mutex.unlock();
  EXPECT_EQ(record.use_count(), 1 + 3 + 3);
  copy.startRecording("b", 0);  // afresh
  EXPECT_EQ(record.use_count(), 1 + 3 + 1);
  state._setValence(1);
  EXPECT_EQ(recorder.stopRecording("a").second.front().first, at(1));
  const auto [label, samples] = recorder.stopRecording("b");
  EXPECT_EQ(label, "positive");
  EXPECT_TRUE(samples.front().first == at(0) && samples.back().first == at(1));
}

}  // namespace
}  // namespace ZV
