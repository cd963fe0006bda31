#include <gtest/gtest.h>

#include <atomic>
#include <ku/type.hpp>
#include <thread>

#include "simulated_person.hpp"
#include "zv/ambiance_state.hpp"
#include "zv/emotion_recorder.hpp"
#include "zv/social_graph.hpp"

namespace ZV {
namespace {

PersonObservation touchedAt(int time) { return only(&PersonObservation::touchEmotion, time, 1); }

std::vector<int> idsIn(const SocialGraph& graph) {
  std::vector<int> ids;
  for (const Person& person : graph.persons()) ids.push_back(person.userSessionID);
  return ids;
}

TEST(Person, SharesStateAndMemoryWithItsCopies) {
  SimulatedPerson subject;
  Person copy(subject.person), assigned(-7);
  assigned = subject.person;
  copy.update(touchedAt(0));
  const float once = subject.state().valence.value;
  assigned._updateOnlineModels(touchedAt(5));  // does not file it
  EXPECT_EQ(subject.person.personMemory._record().touchEmotion.size(), 1u);
  EXPECT_GT(subject.state().valence.value, once);
  for (int i = 0; i < 2; ++i) copy.decreaseSinceNotSeen();
  EXPECT_LT(subject.state().valence.value, once);
  EXPECT_EQ(textOf(std::hex, Person(-17), assigned), " Person (US#-17)  Person (US#1) ");
}

TEST(SocialGraph, KeepsPersonsByAscendingIdentifier) {
  SocialGraph graph;
  for (const int id : {5, -1, 4, 3}) graph.add(id);
  auto found = graph.find(3);
  const auto state = recordOf(found->personState);
  graph.add(3);
  graph.update(3, [](Person& person) { person.personState._setValence(-1); });
  graph.remove(42);
  graph.remove(4);
  EXPECT_FALSE(graph.find(4));
  EXPECT_EQ(idsIn(graph), (std::vector<int>{-1, 3, 5}));
  graph.remove(3);  // the copy keeps the record for as long as it lives
  EXPECT_EQ(found->personState.personValence().value, -1.0f);
  EXPECT_EQ(state.use_count(), 1);
  found = boost::none;
  EXPECT_TRUE(state.expired());
}

TEST(SocialGraph, CreatesOnUpdateAndNeverOnRead) {
  SocialGraph graph;
  graph.read(9, {});
  graph.read(9, [](const Person&) { ADD_FAILURE(); });
  EXPECT_TRUE(graph.persons().empty());
  graph.update(9, {});
  EXPECT_EQ(errorOf<boost::bad_function_call>([&] { graph.read(9, {}); }),
            "call to empty boost::function");
  EXPECT_THROW(graph.update(7, [](Person& person) { throw person.userSessionID++; }), int);
  EXPECT_THROW(graph.read(7, [](const Person&) { throw 1; }), int);  // the lock is free
  EXPECT_EQ(idsIn(graph), (std::vector<int>{8, 9}));
}

TEST(SocialGraph, ServesOneCallbackAtATime) {
  SocialGraph graph;
  int calls = 0;
  const auto alone = [&calls](const Person&) {
    const int before = calls;
    std::this_thread::yield();
    calls = before + 1;
  };
  const auto serve = [&](int id) {
    for (int i = 0; i < 1000; ++i) {
      graph.update(1, alone);
      graph.read(1, alone);
      graph.add(id);
      graph.remove(id);
    }
  };
  std::thread other(serve, 2);
  serve(3);
  other.join();
  EXPECT_EQ(calls, 4000);
  EXPECT_EQ(idsIn(graph), std::vector<int>{1});
}

std::string levelsOf(const AmbianceState& state) {
  return textOf(state.ambientActivityLevel(AmbianceDescription::Agitation),
                state.ambientActivityLevel(AmbianceDescription::Calm));
}

TEST(Ambiance, FollowsMovementsAndActivityWithinItsRange) {
  AmbianceState state;
  EXPECT_EQ(levelsOf(state), "0 0");
  using Step = std::tuple<int, float, const char*>;  // movements, activity, levels
  for (const auto& [movements, activity, levels] :
       {Step{0, 0.05f, "0.100000001 0.899999976"}, Step{3, 0.07f, "0.340000004 0.659999967"},
        Step{1, 0.001f, "0.313999981 0.68599999"}, Step{0, NAN, "0 1"},
        Step{5, 0, "0.200000003 0.800000012"}, Step{0, -100, "0 1"}, Step{26, 0, "1 0"}}) {
    for (int i = 0; i < movements; ++i) state.incrementMovementDetected();
    state.updateAmbiance(activity);
    EXPECT_EQ(levelsOf(state), levels) << movements << ' ' << activity;
  }

  state.incrementMovementDetected();
  for (const auto& [level, levels] : {std::pair(2.0f, "1 0"), std::pair(-1.0f, "0 1"),
                                      std::pair(NAN, "0 1"), std::pair(0.25f, "0.25 0.75")}) {
    state._setAmbientActivityLevel(level);
    EXPECT_EQ(levelsOf(state), levels);
  }
  EXPECT_EQ(textOf(state), "Ambiance:\n\t - Activity : \t0.25\n\t - Calm : \t0.75");
  AmbianceState copy(state), assigned;
  assigned = state;
  for (AmbianceState* each : {&state, &copy, &assigned}) {
    EXPECT_EQ(levelsOf(*each), "0.25 0.75");
    each->updateAmbiance(0.025f);
    EXPECT_EQ(levelsOf(*each), "0.289999992 0.710000038");  // the movement is copied
  }
  EXPECT_EQ(
      errorOf<std::invalid_argument>([&] { state.ambientActivityLevel(AmbianceDescription(2)); }),
      "Unknown emotional expression descriptor 2");
}

static_assert(!std::is_copy_assignable_v<ZVEmotionRecorder>);

TEST(Ambiance, CountsFromTwoThreadsWhileOthersReadWithoutTheLock) {
  AmbianceState state;
  std::atomic<bool> done{false};
  const auto count = [&state] {
    for (int i = 0; i < 10'000; ++i) state.incrementMovementDetected();
  };
  std::thread reader([&] {
    const auto& type = dynamic_cast<const ku::StructTypeInterface&>(*ku::typeOf<AmbianceState>());
    while (!done) {
      const AmbianceState copy(state);
      EXPECT_LE(copy.ambientActivityLevel(AmbianceDescription::Calm), 1);
      EXPECT_GE(type.get(&state, 0).as<float>(), 0);
    }
  });
  std::thread first(count), second(count);
  for (int i = 0; i < 100; ++i) state._setAmbientActivityLevel(static_cast<float>(i) / 100);
  first.join();
  second.join();
  done = true;
  reader.join();
  state._setAmbientActivityLevel(0);
  state.updateAmbiance(-399.75f);  // takes 799.5 away from the 800 that 20,000 movements add
  EXPECT_EQ(levelsOf(state), "0.5 0.5");
  const AmbianceState& same = state;
  state = same;
  EXPECT_EQ(levelsOf(state), "0.5 0.5");
}

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

TEST(Recorder, LabelsAScopeByItsWeightedMean) {
  // The scopes of three samples have a mean of 0.2, but for a last digit that their order decides.
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
