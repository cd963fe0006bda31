#include <gtest/gtest.h>

#include <random>

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
  Person assigned(2);
  const auto former = recordOf(assigned.personState);
  assigned = std::move(subject.person);
  EXPECT_EQ(&assigned.personMemory._record(), &moved.personMemory._record());
  EXPECT_EQ(&subject.state(), former.lock().get());
  // NOLINTEND(bugprone-use-after-move, performance-move-const-arg)
}

/// Every value of a state, and how much is remembered.
std::string allOf(const Person& person) {
  const auto& s = person.personState._record();
  std::string all = textOf(s.valence.value, s.valence.confidence, s.unsmoothedValence.value,
                           s.unsmoothedValence.confidence, s.attention.value,
                           s.attention.confidence, s.bodyLanguageState, s.smile.smile().value,
                           s.gaze.yaw, s.expressions.joy.value, s.expressions.surprise.value,
                           s.headHeight, s.headAngles.yaw(), s.frequencyGaze, s.frequencyFace);
  for (const auto time : {s.headPostureTimestamp, s.smileTimestamp, s.expressionsTimestamp,
                          s.voiceEmotionTimestamp, s.asrEmotionTimestamp, s.gazeTimestamp,
                          s.touchEmotionTimestamp, s.contextEmotionTimestamp}) {
    all += textOf(" ", time.time_since_epoch().count());
  }
  person.personMemory._record().forEachChannel(
      [&all](auto& channel, auto /*field*/) { all += textOf(" ", channel.size()); });
  return all;
}

TEST(Person, GoesOnToTheBitWhenItIsSavedAndRestoredBeforeEveryCycle) {
  SimulatedPerson subject;
  Person restored(1);
  std::mt19937 random;
  int time = 0;
  for (int cycle = 0; cycle < 3000; ++cycle) {
    restored = Person(1, restored.save());
    ASSERT_EQ(allOf(restored), allOf(subject.person)) << cycle;
    time += random() % 100 == 0 ? 9000 : 40;  // with and without a gap
    // Ahead for a cycle, in which all is forgotten, and back again.
    subject.clock.set(at(time + (random() % 20 == 0 ? 3'600'000 : 0)));
    const auto present = random() % 8;  // of eight, on average
    PersonObservation seen;
    zorvel::forEachField([&](std::size_t /*index*/, const auto& field) {
      if (random() % 8 >= present) return;
      // Some late, some with the time of one before.
      const int cyclesLate = static_cast<int>(random() % 3) + cycle / 100 % 3 * 25;
      const int taken = time - 40 * cyclesLate;
      zorvel::fillField(field, seen, at(taken), [&](const auto& /*kind*/, auto& number) {
        number = static_cast<std::decay_t<decltype(number)>>(random() % 17) / 8;
      });
    });
    for (Person* const person : {&subject.person, &restored}) {
      if (cycle / 64 % 2 != 0 && cycle % 3 != 0) {
        person->decreaseSinceNotSeen();
      } else {
        person->update(seen);
      }
    }
  }
}

TEST(SocialGraph, TakesASavedPersonWholeOrNotAtAll) {
  SimulatedPerson subject;
  subject.person.update(allChannelsAt(0));
  subject.person.update(allChannelsAt(1));
  SocialGraph graph;
  graph.restore(2, subject.person.save());
  const auto refuse = [&](auto change) {
    SavedPerson saved = subject.person.save();
    change(saved);
    for (const int id : {1, 2}) EXPECT_THROW(graph.restore(id, saved), std::invalid_argument);
    EXPECT_EQ(idsIn(graph), std::vector<int>{2});
    EXPECT_EQ(allOf(*graph.find(2)), allOf(subject.person));
  };
  for (const auto pair :
       {&SavedPerson::valence, &SavedPerson::unsmoothedValence, &SavedPerson::attention}) {
    const float lowest = pair == &SavedPerson::attention ? 0 : -1;
    refuse([&](SavedPerson& saved) { (saved.*pair).value = below(lowest); });
    refuse([&](SavedPerson& saved) { (saved.*pair).value = above(1); });
    refuse([&](SavedPerson& saved) { (saved.*pair).confidence = below(0); });
    refuse([&](SavedPerson& saved) { (saved.*pair).confidence = INFINITY; });
  }
  refuse([](SavedPerson& saved) { saved.memory[1].gaze = saved.memory[0].gaze; });
  refuse([](SavedPerson& saved) { std::swap(saved.memory[0], saved.memory[1]); });
  refuse([](SavedPerson& saved) { saved.memory[0].height = seen(0, 1.0f); });
  refuse([](SavedPerson& saved) { saved.memory[1].voiceEmotion = seen(0, VoiceEmotion()); });
  SavedPerson odd = subject.person.save();
  odd.valence.value = NAN;
  graph.restore(1, odd);
  EXPECT_TRUE(std::isnan(graph.find(1)->personState.personValence().value));
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

TEST(SocialGraph, RenamesAPersonWhoGoesOnTheSame) {
  std::vector<std::string> futures;
  for (const int to : {1, 3, 4}) {  // 4 is there already, and nothing is known of them
    ku::SimulatedClock clock(at(0));
    const ku::ClockScope scope(clock);
    SocialGraph graph;
    auto all = allChannelsAt(0);
    all.height = seen(0, 1.5f);
    all.smile->value.setSmile({1, 1});
    all.headPosture->value = HeadPosture(0, 9, 0);
    graph.update(1, [&all](Person& person) {
      person.update(all);
      auto& state = person.personState._record();
      state.gaze.yaw = state.expressions.joy.value = state.frequencyGaze = state.frequencyFace = 3;
      state.headAngles = HeadPosture(3, 0, 0);
    });
    const auto copy = graph.find(1);
    if (to == 4) graph.add(to);
    graph.merge(1, 7);  // nobody is 7
    graph.rename(7, 1);
    graph.rename(1, to);
    EXPECT_EQ(idsIn(graph), std::vector<int>{to});
    EXPECT_EQ(&copy->personState._record() == &graph.find(to)->personState._record(), to != 4);
    futures.push_back(allOf(*graph.find(to)));
    for (int time = 1'000; time < 9'000; time += 1'000) {
      clock.set(at(time));
      graph.update(to, [](Person& person) { person.update({}); });
      futures.back() += allOf(*graph.find(to));
    }
    EXPECT_EQ(futures.back(), futures.front());
  }
}

TEST(SocialGraph, MergesMemoriesAndGoesOnFromWhoWasObservedLast) {
  for (const int last : {49, 50, 51}) {
    ku::SimulatedClock clock(at(100));
    const ku::ClockScope scope(clock);
    SocialGraph graph;
    const auto touch = &PersonObservation::touchEmotion;
    for (const auto& [id, seen] : {std::pair(1, only(touch, 10, 1)),
                                   {1, only(touch, 50, 1)},
                                   {3, only(touch, 10, -1)},
                                   {3, only(touch, 20, -1)},
                                   {3, only(&PersonObservation::distance, last, 1.0f)}}) {
      graph.update(id, [&seen = seen](Person& person) { person.update(seen); });
    }
    const Person from = *graph.find(3), to = *graph.find(1);
    const std::string before = allOf(from);
    graph.merge(3, 1);
    EXPECT_EQ(allOf(from), before);
    std::string touches;
    for (const auto& entry : to.personMemory._record().touchEmotion.entries()) {
      touches += textOf((entry.timestamp - at(0)).count() / 1'000'000, entry.value, "");
    }
    EXPECT_EQ(touches, "50 1 20 -1 10 1 ");
    const auto& state = to.personState._record();
    EXPECT_EQ(std::signbit(state.valence.value), last > 50);
    EXPECT_EQ(state.touchEmotionTimestamp, at(50));
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
