#include <gtest/gtest.h>

#include <thread>

#include "simulated_person.hpp"

namespace ZV {
namespace {

struct Board : testing::Test {
  ku::SimulatedClock clock{at(0)};
  ku::ClockScope scope{clock};
  SocialGraph graph;
  AmbianceState room;
  StateBoard board{graph, room};
};

TEST_F(Board, ShowsTheLastFrameAndKeepsThoseThatAreHeld) {
  const auto empty = board.latest();
  graph.update(7, [](Person& person) { person.update(allChannelsAt(0)); });
  for (const int id : {-2, 3}) graph.add(id);
  room.updateAmbiance(0.05f);
  board.publish(at(1));
  const auto first = board.latest();
  graph.remove(-2);
  graph.update(3, [](Person& person) { person.personState._setValence(0.5f); });
  board.publish(at(2));

  EXPECT_EQ(textOf(empty->number, empty->states.size()), "0 0");
  EXPECT_EQ(textOf(first->number, first->time == at(1), first->agitation, first->calm),
            "1 1 0.100000001 0.899999976");  // as floats: 0.1, 1 - 0.1
  EXPECT_EQ(textOf(first->states.at(0).person, first->states.at(1).person,
                   first->states.at(2).person, first->find(3)->mood.value),
            "-2 3 7 0");
  const auto second = board.latest();
  const auto& known = *second->find(3);
  EXPECT_EQ(textOf(known.valence.value, known.mood.value, known.cycleMood.value), "0.5 1 0");
  for (const int id : {-2, 8}) EXPECT_EQ(second->find(id), nullptr);
  graph.read(7, [shown = second->find(7)](const Person& person) {
    const PersonStatePrivate& state = person.personState._record();
    const auto ease = state.bodyLanguageState.bodyLanguageState(BodyLanguageDescription::Ease);
    EXPECT_EQ(textOf(shown->valence.confidence, shown->attention.value, shown->ease.level),
              textOf(state.valence.confidence, state.attention.value, ease.level));
  });
}

TEST_F(Board, KeepsTheLastFrameWhenAllAreHeld) {
  std::vector<StateBoard::FramePointer> held;
  const auto publishAll = [&] {
    for (; held.size() < 1000; board.publish(at(0))) held.push_back(board.latest());
  };
  EXPECT_EQ(errorOf<std::runtime_error>(publishAll), "All frames of the board are held.");
  EXPECT_EQ(board.latest()->number, 255u);
  held.erase(held.begin() + 100);
  board.publish(at(0));
  EXPECT_EQ(textOf(board.latest()->number, held[100]->number), "256 101");
}

TEST_F(Board, IsReadWhileAPublisherWaits) {
  boost::unique_lock<boost::mutex> lock(mutexOf(room));
  std::future<void> publishing = begin([this] { board.publish(at(0)); });
  EXPECT_TRUE(isWaiting(publishing));
  graph.update(1, [&](Person&) {
    lock.unlock();
    EXPECT_TRUE(isWaiting(publishing));
    EXPECT_EQ(board.latest()->number, 0u);
  });
}

TEST_F(Board, NeverMixesFrames) {
  constexpr int frames = 2000;
  // In frame n there are n % 17 persons, and every number of the frame depends on n.
  const auto levelOf = [](std::uint64_t number) { return static_cast<float>(number) / frames; };
  const auto look = [&](const StateFrame& frame) {
    ASSERT_EQ(frame.states.size(), frame.number % 17);
    ASSERT_EQ(frame.agitation, levelOf(frame.number));
    for (const auto& state : frame.states) ASSERT_EQ(state.valence.value, frame.agitation);
  };
  std::array<std::thread, 3> readers;
  for (auto& reader : readers) {
    reader = std::thread([&, held = board.latest()]() mutable {
      while (held->number < frames) {
        auto next = board.latest();
        ASSERT_GE(next->number, held->number);
        look(*held);  // which another frame may have followed
        held = std::move(next);
      }
    });
  }
  for (std::uint64_t number = 1; number <= frames; ++number) {
    room._setAmbientActivityLevel(levelOf(number));
    for (int id = 0; id < 17; ++id) graph.remove(id);
    for (int id = 0; id < static_cast<int>(number % 17); ++id) {
      graph.update(id, [&](Person& person) { person.personState._setValence(levelOf(number)); });
    }
    board.publish(at(0));
  }
  for (auto& reader : readers) reader.join();
}

}  // namespace
}  // namespace ZV
