// Makes everything that can fail do so, one place at a time: heap allocations and readings of the
// clock. Whatever fails, the objects can be used afterwards and no lock stays held. The address
// sanitizer finds leaks.

#include <gtest/gtest.h>
#include <unistd.h>
#include <zv/zorvel.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <new>
#include <optional>
#include <zv/ambiance_state.hpp>
#include <zv/emotion_recorder.hpp>
#include <zv/observation_guard.hpp>
#include <zv/social_graph.hpp>
#include <zv/state_board.hpp>

#include "failing_allocator.hpp"
#include "memory/person_memory_private.hpp"
#include "recording/recording_reader.hpp"
#include "state/person_state_private.hpp"
#include "tests/fill_observation.hpp"

namespace ZV {
namespace {

using Time = ku::SystemClock::time_point;

/// Throws at its n-th reading.
class FailingClock : public ku::Clock {
 public:
  Time now() override {
    if (readingsUntilFailure >= 0 && readingsUntilFailure-- == 0) throw std::logic_error("no time");
    return time;
  }
  Time time{boost::chrono::seconds(1'000'000'000)};
  long readingsUntilFailure = -1;
};

struct Failing : testing::Test {
  PersonObservation everything() {
    return zorvel::filledObservation(clock.time,
                                     [](const auto& /*kind*/, auto& number) { number = 1; });
  }

  /// Runs `operation` on a new subject with its first, second, third, … allocation failing, until
  /// it succeeds. After each failure `look` is called with the subject.
  template <typename Subject, typename Operation, typename Look>
  void failAllocations(Operation operation, Look look) {
    for (int failures = 0;; ++failures) {
      Subject subject;
      setAllocationsUntilFailure(failures);
      try {
        operation(subject);
      } catch (const std::bad_alloc&) {
      }
      const bool hasFailed = allocationsUntilFailure() < 0;
      setAllocationsUntilFailure(-1);
      if (!hasFailed) {
        EXPECT_GT(failures, 0);
        return;
      }
      look(subject);
    }
  }

  static void expectUnlocked(const Person& person) {
    auto& locks = person.personState._record().locks;
    for (boost::mutex* lock : {&locks.valence, &locks.attention, &locks.valenceConfidence,
                               &locks.attentionConfidence, &locks.headHeight, &locks.observation}) {
      ASSERT_TRUE(lock->try_lock());
      lock->unlock();
    }
  }

  void expectUsable(SocialGraph& graph) {
    clock.time += boost::chrono::milliseconds(33);
    graph.update(1, [this](Person& person) { person.update(everything()); });
    ASSERT_FALSE(graph.persons().empty());
    for (const Person& person : graph.persons()) expectUnlocked(person);
    EXPECT_GT(graph.find(1)->personState.personAttention().confidence, 0.3f);
  }

  FailingClock clock;
  ku::ClockScope scope{clock};
};

TEST_F(Failing, GraphWithoutMemory) {
  const auto usable = [this](SocialGraph& graph) { expectUsable(graph); };
  const auto empty = [&](SocialGraph& graph) {
    EXPECT_TRUE(graph.persons().empty());
    expectUsable(graph);
  };
  failAllocations<SocialGraph>([](SocialGraph& graph) { graph.add(1); }, empty);
  failAllocations<SocialGraph>([](SocialGraph& graph) { graph.update(1, {}); }, empty);

  struct Peopled : SocialGraph {
    Peopled() {
      for (const int person : {1, 2, 3}) add(person);
    }
  };
  failAllocations<Peopled>([](Peopled& graph) { graph.persons(); }, usable);
  const auto update = [this](Peopled& graph) {
    graph.update(1, [this](Person& person) { person.update(everything()); });
  };
  failAllocations<Peopled>(update, usable);

  SocialGraph graphOfOne;
  graphOfOne.update(1, [this](Person& person) { person.update(everything()); });
  const SavedPerson saved = graphOfOne.find(1)->save();
  const auto isAsBefore = [&](Peopled& graph) {
    EXPECT_EQ(graph.find(1)->personState.personAttention().confidence, 0);
    EXPECT_FALSE(graph.find(4));
    expectUsable(graph);
  };
  for (const int id : {1, 4}) {
    failAllocations<Peopled>([&](Peopled& graph) { graph.restore(id, saved); }, isAsBefore);
  }
  failAllocations<Peopled>([&](Peopled& /*graph*/) { graphOfOne.find(1)->save(); }, isAsBefore);

  struct Split : SocialGraph {
    Split() {
      for (const int person : {1, 3}) {
        PersonObservation seen;
        const auto now = ku::SystemClock::now() + boost::chrono::seconds(person);
        seen.smile.emplace(now, Smile());
        seen.gaze.emplace(now, Gaze());
        update(person, [&seen](Person& of) { of.update(seen); });
      }
    }
  };
  const auto asBefore = [](Split& graph) {
    ASSERT_EQ(graph.persons().size(), 2U);
    auto& memory = graph.find(1)->personMemory._record();
    EXPECT_TRUE(memory.smile.entries().size() == 1 && memory.gaze.entries().size() == 1);
  };
  failAllocations<Split>([](Split& graph) { graph.rename(3, 1); }, asBefore);
}

TEST_F(Failing, BoardWithoutMemory) {
  SocialGraph graph;
  const AmbianceState room;
  StateBoard board(graph, room);
  graph.add(1);
  for (int frame = 0; frame < 5; ++frame) {
    setAllocationsUntilFailure(frame < 2 ? -1 : 0);  // by then, both places have held a person
    board.publish(clock.time);
  }
  setAllocationsUntilFailure(-1);
  graph.add(2);
  setAllocationsUntilFailure(0);
  EXPECT_THROW(board.publish(clock.time), std::bad_alloc);
  EXPECT_EQ(board.latest()->states.size(), 1);
  expectUsable(graph);
}

TEST_F(Failing, CInterface) {
  zv_observation seen{};
  seen.size = sizeof seen;
  zv_graph* const graph = zv_graph_create();
  const auto update = [&] { return zv_graph_update(graph, 1, &seen, nullptr); };
  setAllocationsUntilFailure(0);
  EXPECT_EQ(update(), ZV_OUT_OF_MEMORY);
  EXPECT_STREQ(zv_error_text(), "No memory is left.");
  clock.readingsUntilFailure = 0;
  EXPECT_EQ(update(), ZV_FAILED);
  EXPECT_STREQ(zv_error_text(), "no time");
  EXPECT_EQ(update(), ZV_OK);
  zv_graph_destroy(graph);
}

TEST_F(Failing, MemoryWithoutMemory) {
  const auto sizes = [](PersonMemory& memory) {
    std::vector<std::size_t> all;
    memory._record().forEachChannel(
        [&all](auto& channel, auto /*field*/) { all.push_back(channel.size()); });
    return all;
  };
  std::size_t filed = 0;
  const auto look = [&](PersonMemory& memory) {
    std::vector<std::size_t> expected(sizes(memory).size(), 0);
    std::fill_n(expected.begin(), filed++, 1);
    EXPECT_EQ(sizes(memory), expected);  // the channels before the one that failed
    memory.add(everything());
    EXPECT_EQ(sizes(memory), std::vector<std::size_t>(expected.size(), 1));
  };
  const auto all = everything();
  failAllocations<PersonMemory>([&](PersonMemory& memory) { memory.add(all); }, look);
}

TEST_F(Failing, GuardWithoutMemory) {
  auto all = everything();
  all.distance->value = NAN;
  all.gaze->timestamp += boost::chrono::hours(1);
  ObservationGuard guard;
  for (const std::size_t removed : {2U, 0U}) {
    setAllocationsUntilFailure(0);
    const auto report = guard.clean(all);
    EXPECT_EQ(allocationsUntilFailure(), 0);
    setAllocationsUntilFailure(-1);
    EXPECT_EQ(report.removedFields.size(), removed);
  }
}

TEST_F(Failing, RecorderWithoutMemory) {
  const PersonState state(0.5f, 0.5f, 0.5f, 0.5f);
  const std::string name = "a scope with a name that is too long to stand in a string itself";
  struct Recording : ZVEmotionRecorder {
    Recording() {
      startRecording("first", -1);
      startRecording("second", 2);
    }
  };
  const auto usable = [&](ZVEmotionRecorder& recorder) {
    ASSERT_TRUE(recorder.mutex.try_lock());
    recorder.mutex.unlock();
    recorder.startRecording(name, -1);
    recorder.update_notMutexed(state);
    EXPECT_EQ(recorder.stopRecording(name).first, "positive");
    EXPECT_EQ(recorder.stopRecording("first").first, "positive");
  };
  failAllocations<Recording>([&](Recording& recorder) { recorder.startRecording(name, 1); },
                             usable);
  failAllocations<Recording>([&](Recording& recorder) { recorder.update_notMutexed(state); },
                             usable);
  failAllocations<Recording>(
      [](Recording& recorder) { ZVEmotionRecorder(recorder).stopRecording("first"); }, usable);
  failAllocations<Recording>([](Recording& recorder) { recorder.restore(recorder.save()); },
                             usable);
}

TEST_F(Failing, ReadersWithoutMemory) {
  const auto folder = std::filesystem::temp_directory_path();
  const auto file = folder / ("zorvel-failing-" + std::to_string(getpid()) + ".jsonl");
  std::ofstream(file) << R"({"event":"header","version":1,"source":"somewhere rather far away"}
{"event":"observation","time":1,"person":1,"smile":{"value":0.5,"confidence":0.5}}
{"event":"start_recording","time":2,"person":1,"scope":"a scope with a name of some length"}
{"event":"movement","time":3}
)";
  using zorvel::RecordingReader;
  int failures = 0;
  for (bool hasFailed = true; hasFailed; ++failures) {
    std::vector<std::int64_t> times;
    times.reserve(3);
    setAllocationsUntilFailure(failures);
    std::optional<RecordingReader> reader;
    while (true) {
      try {
        if (!reader) reader.emplace(file);
        const auto event = reader->next();
        if (!event) break;
        times.push_back(event->time.time_since_epoch().count());
      } catch (const std::bad_alloc&) {
      }
    }
    hasFailed = allocationsUntilFailure() < 0;
    setAllocationsUntilFailure(-1);
    // The line whose memory could not be had may be lost; the others are there.
    EXPECT_GE(times.size(), hasFailed ? 2 : 3);
    EXPECT_TRUE(std::is_sorted(times.begin(), times.end()));
  }
  EXPECT_GT(failures, 10);
  RecordProperty("allocations", failures);
  std::filesystem::remove(file);
}

TEST_F(Failing, ClockAtEachOfItsReadings) {
  int failures = 0;
  for (bool hasFailed = true; hasFailed; ++failures) {
    SocialGraph graph;
    for (int cycle = 0; cycle < 3; ++cycle) expectUsable(graph);
    clock.readingsUntilFailure = failures;
    try {
      graph.update(1, [this](Person& person) { person.update(everything()); });
    } catch (const std::exception& error) {  // only forgetting survives it, by giving up
      EXPECT_STREQ(error.what(), "no time");
    }
    hasFailed = clock.readingsUntilFailure < 0;
    clock.readingsUntilFailure = -1;
    if (hasFailed) expectUsable(graph);
  }
  EXPECT_GT(failures, 100);

  ZVEmotionRecorder recorder;
  recorder.startRecording("scope", -1);
  clock.readingsUntilFailure = 0;
  EXPECT_THROW(recorder.update_notMutexed(PersonState()), std::logic_error);
  EXPECT_EQ(recorder.stopRecording("scope").second.size(), 0);
}

}  // namespace
}  // namespace ZV
