#include <gtest/gtest.h>

#include "simulated_person.hpp"

namespace ZV {
namespace {

std::vector<int> valuesIn(const ShortTermMemory<int>& memory) {
  std::vector<int> values;
  for (const auto& entry : memory.entries()) values.push_back(entry.value);
  return values;
}

TEST(ShortTermMemory, KeepsTheFirstArrivalOfEachTimestampYoungestFirst) {
  const SimulatedPerson subject;
  using Arrivals = std::vector<std::pair<int, int>>;  // milliseconds and value
  for (const auto& [arrivals, kept] : std::vector<std::pair<Arrivals, std::vector<int>>>{
           {{{3, 3}, {1, 1}, {2, 2}, {4, 4}}, {4, 3, 2, 1}},
           {{{1, 1}, {2, 2}, {3, 3}, {3, 9}, {1, 8}, {2, 7}}, {3, 2, 1}},
           {{{0, 1}, {900'000, 2}, {-5, 3}}, {2, 1, 3}},  // the future has no limit
           {{{-7000, 1}, {-7001, 2}, {-9000, 3}, {0, 4}}, {4, 1}}}) {
    ShortTermMemory<int> memory(milliseconds(7000));
    for (const auto& [time, value] : arrivals) memory.record(seen(time, value));
    EXPECT_EQ(valuesIn(memory), kept);
    EXPECT_EQ(memory.youngest().value, kept.front());
  }
  ShortTermMemory<int> memory(milliseconds(7000));
  ScriptedClock clock([](int) { return Time::max(); });
  memory.record({Time::min(), 1});  // an age that 64 bits of nanoseconds cannot hold
  EXPECT_EQ(errorOf<std::range_error>([&] { memory.youngest(); }), "The ShortTermMemory is empty.");
  clock.script = [](int) { return at(7000) + boost::chrono::nanoseconds(999'999); };
  memory.record(seen(0, 2));
  EXPECT_EQ(memory.size(), 1u);
}

TEST(ShortTermMemory, ReadsTheClockForEveryEntryAndStopsForgettingWhereThatThrows) {
  // Of four entries, 3 to 0, the first is found too old and the others in time, so each of these
  // moves one place forward until a reading throws.
  using Case = std::pair<int, std::vector<int>>;
  for (const auto& [failing, left] :
       {Case{0, {3, 2, 1, 0}}, Case{1, {3, 2, 1, 0}}, Case{2, {2, 2, 1, 0}}, Case{3, {2, 1, 1, 0}},
        Case{4, {2, 1, 0}}}) {
    ScriptedClock clock([](int) { return at(0); });
    ShortTermMemory<int> memory(milliseconds(7000));
    for (int value = 0; value < 4; ++value) memory.record(seen(value, value));
    memory.record(seen(3, 9));
    memory.record(seen(-8000, 9));
    memory.youngest();
    EXPECT_EQ(std::exchange(clock.readings, 0), 1 + 2 + 3 + 4 + 4 + 5 + 4);
    clock.script = [number = failing](int reading) {
      if (reading == number) throw std::runtime_error("no time");
      return at(reading == 0 ? 20'000 : 0);
    };
    testing::internal::CaptureStdout();
    EXPECT_EQ(memory.size(), left.size());
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              failing == 4 ? "" : "Error while forgeting old memory: no time\n");
    EXPECT_EQ(valuesIn(memory), left);
  }
}

TEST(PersonMemory, FilesEveryFieldAndForgetsByChannel) {
  SimulatedPerson subject;
  PersonMemory& memory = subject.person.personMemory;
  auto& m = memory._record();
  memory.add(allChannelsAt(0));
  EXPECT_EQ(textOf(m.lookingAtRobot.youngest().value, m.faceDetected.youngest().value,
                   m.distance.youngest().value, m.asrEmotion.youngest().value),
            "1 0 1.25 0.75");  // fields of one type do not take each other's place
  for (const int time : {7000, 7001, 20'000, 20'001}) {
    subject.clock.set(at(time));
    memory.add(PersonObservation());
    m.forEachChannel([&](auto& channel, auto /*field*/) {
      const bool isContext = static_cast<void*>(&channel) == &m.contextEmotion;
      EXPECT_EQ(channel.size(), time <= (isContext ? 20'000 : 7000) ? 1u : 0u) << time;
    });
  }
}

}  // namespace
}  // namespace ZV
