#include <gtest/gtest.h>

#include <thread>

#include "simulated_person.hpp"

namespace ZV {
namespace {

struct Board : testing::Test {
  void publish() { board.publish(at(++published)); }

  ku::SimulatedClock clock{at(0)};
  ku::ClockScope scope{clock};
  SocialGraph graph;
  AmbianceState room;
  StateBoard board{graph, room};
  int published = 0;
};

TEST_F(Board, ShowsTheLastFrameAndKeepsThoseThatAreHeld) {
  const auto empty = board.latest();
  for (const int id : {7, -2}) {
    graph.update(id, [](Person& person) { person.update(allChannelsAt(0)); });
  }
  graph.update(3, {});
  room.updateAmbiance(0.05f);
  EXPECT_EQ(board.latest()->number, 0u);
  publish();
  const auto first = board.latest();
  graph.remove(-2);
  graph.update(3, [](Person& person) { person.personState._setValence(0.5f); });
  publish();

  EXPECT_TRUE(empty->states.empty());
  EXPECT_EQ(textOf(first->number, first->time == at(1), first->agitation, first->calm),
            "1 1 0.100000001 0.899999976");  // as floats: 0.1, 1 - 0.1
  ASSERT_EQ(first->states.size(), 3u);
  for (std::size_t i : {0, 1, 2}) EXPECT_EQ(first->states[i].person, (std::array{-2, 3, 7}[i]));
  const auto second = board.latest();
  const auto* const known = second->find(3);
  EXPECT_EQ(textOf(second->number, known->valence.value, known->mood.value, known->cycleMood.value,
                   first->find(3)->mood.value),
            "2 0.5 1 0 0");
  EXPECT_EQ(second->find(-2), nullptr);
  EXPECT_EQ(second->find(8), nullptr);
  graph.read(7, [&](const Person& person) {
    const StateFrame::State& shown = *second->find(7);
    const PersonStatePrivate& state = person.personState._record();
    const auto ease = state.bodyLanguageState.bodyLanguageState(BodyLanguageDescription::Ease);
    EXPECT_EQ(textOf(shown.valence.value, shown.valence.confidence, shown.attention.value,
                     shown.attention.confidence, shown.ease.level, shown.ease.confidence),
              textOf(state.valence.value, state.valence.confidence, state.attention.value,
                     state.attention.confidence, ease.level, ease.confidence));
  });
}

TEST_F(Board, KeepsTheLastFrameWhenAllAreHeld) {
  std::vector<StateBoard::FramePointer> held;
  while (published < StateBoard::frameLimit - 1) {
    held.push_back(board.latest());
    publish();
  }
  EXPECT_EQ(errorOf<std::runtime_error>([&] { publish(); }), "All frames of the board are held.");
  EXPECT_EQ(board.latest()->number, 255u);
  held.erase(held.begin() + 100);
  publish();
  EXPECT_EQ(board.latest()->number, 256u);
  EXPECT_EQ(held[100]->number, 101u);
}

TEST_F(Board, IsReadWhileTheGraphIsLocked) {
  std::future<void> publishing;
  graph.update(1, [&](Person&) {
    publishing = begin([&] { publish(); });
    EXPECT_TRUE(isWaiting(publishing));
    EXPECT_EQ(board.latest()->number, 0u);
  });
  publishing.get();
  EXPECT_EQ(board.latest()->states.size(), 1u);
}

TEST_F(Board, NeverMixesFrames) {
  constexpr int frames = 2000;
  // In frame n there are n % 17 persons, and every number of the frame tells n.
  const auto levelOf = [](std::uint64_t number) { return static_cast<float>(number) / frames; };
  const auto look = [&](const StateFrame& frame) {
    ASSERT_EQ(frame.states.size(), frame.number % 17);
    ASSERT_EQ(frame.agitation, levelOf(frame.number));
    for (const auto& state : frame.states) ASSERT_EQ(state.valence.value, frame.agitation);
  };
  std::array<std::thread, 3> readers;
  for (auto& reader : readers) {
    reader = std::thread([&, held = board.latest(), former = board.latest()]() mutable {
      while (held->number < frames) {
        auto next = board.latest();
        ASSERT_GE(next->number, held->number);
        look(*next);
        look(*former);
        if (next->number != held->number) former = std::exchange(held, std::move(next));
      }
    });
  }
  while (published < frames) {
    const int number = published + 1;
    room._setAmbientActivityLevel(levelOf(static_cast<std::uint64_t>(number)));
    if (number % 17 == 0) {
      for (int id = 0; id < 17; ++id) graph.remove(id);
    }
    for (int id = 0; id < number % 17; ++id) {
      graph.update(id, [&](Person& person) { person.personState._setValence(levelOf(number)); });
    }
    publish();
  }
  for (auto& reader : readers) reader.join();
}

}  // namespace
}  // namespace ZV
