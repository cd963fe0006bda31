#include <gtest/gtest.h>

#include "simulated_person.hpp"

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

TEST(Person, IsNeverEmptyWhenItIsMovedFrom) {
  SimulatedPerson subject;
  // NOLINTBEGIN(bugprone-use-after-move, performance-move-const-arg): what is tested
  const Person moved(std::move(subject.person));
  BodyLanguageState body;
  const BodyLanguageState movedBody(std::move(body));
  subject.person.update(touchedAt(0));
  EXPECT_EQ(&subject.state(), &moved.personState._record());
  EXPECT_EQ(moved.personMemory._record().touchEmotion.size(), 1u);
  EXPECT_EQ(&body._record(), &movedBody._record());
  // NOLINTEND(bugprone-use-after-move, performance-move-const-arg)
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
  graph.remove(3);  // the copy keeps the record alive
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

/// Every value of a state, and the readings it used.
std::string allOf(const Person& person) {
  const auto& s = person.personState._record();
  std::string all =
      textOf(s.valence.value, s.valence.confidence, s.unsmoothedValence.value,
             s.unsmoothedValence.confidence, s.attention.value, s.attention.confidence,
             s.bodyLanguageState, s.smile.smile().value, s.gaze.yaw, s.expressions.joy.value,
             s.headHeight, s.headAngles.yaw(), s.frequencyGaze, s.frequencyFace);
  for (const auto time : {s.headPostureTimestamp, s.smileTimestamp, s.expressionsTimestamp,
                          s.voiceEmotionTimestamp, s.asrEmotionTimestamp, s.gazeTimestamp,
                          s.touchEmotionTimestamp, s.contextEmotionTimestamp}) {
    all += textOf(" ", time.time_since_epoch().count());
  }
  return all;
}

/// The graph has the person 1, observed once, with no value at its default.
struct Observed {
  Observed() {
    graph.update(1, [](Person& person) {
      auto all = allChannelsAt(0);
      all.height = seen(0, 1.5f);
      all.smile->value.setSmile({1, 1});
      all.headPosture->value = HeadPosture(0, 9, 0);
      person.update(all);
      auto& state = person.personState._record();
      state.gaze.yaw = state.expressions.joy.value = 3;
      state.headAngles = HeadPosture(3, 0, 0);
      state.frequencyGaze = state.frequencyFace = 4;
    });
  }
  /// All that can be told of a person now and after more cycles.
  std::string futureOf(int id) {
    std::string all = allOf(*graph.find(id));
    for (int time = 1'000; time < 9'000; time += 1'000) {
      clock.set(at(time));
      graph.update(id, [](Person& person) { person.update({}); });
      all += '|' + allOf(*graph.find(id));
    }
    return all;
  }
  ku::SimulatedClock clock{at(0)};
  ku::ClockScope scope{clock};
  SocialGraph graph;
};

TEST(SocialGraph, RenamesAPersonWhoGoesOnTheSame) {
  const std::string expected = Observed().futureOf(1);
  Observed renamed;
  const auto copy = renamed.graph.find(1);
  renamed.graph.rename(7, 1);
  renamed.graph.rename(1, 1);
  renamed.graph.rename(1, 3);
  EXPECT_EQ(idsIn(renamed.graph), std::vector<int>{3});
  EXPECT_EQ(&copy->personState._record(), &renamed.graph.find(3)->personState._record());
  EXPECT_EQ(renamed.futureOf(3), expected);
  // Nor does it matter to be merged with somebody of whom nothing is known, either way.
  for (const int from : {1, 3}) {
    Observed merged;
    merged.graph.merge(1, 3);  // does nothing: 3 is unknown
    merged.graph.add(3);
    merged.graph.merge(from, from);
    from == 1 ? merged.graph.rename(1, 3) : merged.graph.merge(3, 1);
    EXPECT_EQ(idsIn(merged.graph), std::vector<int>{4 - from});
    EXPECT_EQ(merged.futureOf(4 - from), expected);
  }
}

TEST(SocialGraph, MergesMemoriesAndGoesOnFromWhoWasObservedLast) {
  for (const int late : {-1, 0, 1}) {
    ku::SimulatedClock clock(at(100));
    const ku::ClockScope scope(clock);
    SocialGraph graph;
    const auto touch = [&graph](int id, int time, int value) {
      graph.update(id, [&](Person& person) {
        person.update(only(&PersonObservation::touchEmotion, time, value));
      });
    };
    touch(1, 10, 1);
    touch(1, 50, 1);
    touch(3, 10, -1);
    touch(3, 20, -1);
    touch(3, 50 + late, -1);
    graph.update(1,
                 [](Person& person) { person.update(only(&PersonObservation::gaze, 5, Gaze())); });
    const Person from = *graph.find(3), to = *graph.find(1);
    const std::string before = allOf(from);
    graph.merge(3, 1);
    EXPECT_EQ(idsIn(graph), std::vector<int>{1});
    std::string entries;
    for (const auto& entry : to.personMemory._record().touchEmotion.entries()) {
      entries += textOf((entry.timestamp - at(0)).count() / 1'000'000, entry.value, "");
    }
    EXPECT_EQ(entries, late > 0   ? "51 -1 50 1 20 -1 10 1 "
                       : late < 0 ? "50 1 49 -1 20 -1 10 1 "
                                  : "50 1 20 -1 10 1 ");
    const auto& state = to.personState._record();
    EXPECT_EQ(state.valence.value<0, late> 0);
    EXPECT_EQ(state.gazeTimestamp, at(5));  // which 3 never had
    EXPECT_EQ(state.touchEmotionTimestamp, at(late > 0 ? 51 : 50));
    // Copies of who is gone are as they were.
    EXPECT_EQ(allOf(from), before);
    EXPECT_EQ(from.personMemory._record().touchEmotion.size(), 3u);
    graph.update(7, [](Person& person) {  // who has a reading that moves nothing
      person.update(only(&PersonObservation::distance, 60, 1.0f));
      person.personState._setValence(0.5f);
    });
    graph.merge(7, 1);
    EXPECT_EQ(state.valence.value, 0.5f);
  }
}

template <typename P, typename Call>
void expectCallsOfACopy(Call call) {
  std::vector<int> counts;
  boost::function<void(P&)> counting = [&counts, count = 0](P&) mutable {
    counts.push_back(++count);
  };
  call(counting);
  call(counting);
  EXPECT_EQ(counts, (std::vector<int>{1, 1}));
  const auto kept = std::make_shared<int>();
  boost::function<void(P&)> clearing = [&clearing, holding = kept](P&) {
    const std::weak_ptr<int> held = holding;
    clearing.clear();
    EXPECT_GT(held.use_count(), 1);  // the running callback still exists
  };
  call(clearing);
  EXPECT_TRUE(clearing.empty());
  EXPECT_EQ(kept.use_count(), 1);
}

TEST(SocialGraph, CallsACopyOfTheCallback) {
  SocialGraph graph;
  graph.add(1);
  expectCallsOfACopy<Person>([&](const auto& callback) { graph.update(1, callback); });
  expectCallsOfACopy<const Person>([&](const auto& callback) { graph.read(1, callback); });
}

TEST(SocialGraph, LocksForEachOperation) {
  SocialGraph graph;
  std::vector<std::future<void>> operations;
  const auto start = [&](const Person&) {
    operations.push_back(begin([&] { graph.add(2); }));
    operations.push_back(begin([&] { graph.remove(3); }));
    operations.push_back(begin([&] { graph.rename(3, 4); }));
    operations.push_back(begin([&] { graph.merge(3, 1); }));
    operations.push_back(begin([&] { graph.find(1); }));
    operations.push_back(begin([&] { graph.persons(); }));
    operations.push_back(begin([&] { graph.update(1, {}); }));
    operations.push_back(begin([&] { graph.read(4, {}); }));
    for (const auto& operation : operations) EXPECT_TRUE(isWaiting(operation));
  };
  graph.update(1, start);
  operations.clear();  // waits for them
  graph.read(1, start);
}

}  // namespace
}  // namespace ZV
