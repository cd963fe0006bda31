#include <gtest/gtest.h>

#include <set>
#include <type_traits>

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

TEST(PersonMemory, FilesEachFieldInAChannelOfItsOwn) {
  SimulatedPerson subject;
  auto& m = subject.person.personMemory._record();
  subject.person.personMemory.add(allChannelsAt(0));
  EXPECT_EQ(textOf(m.lookingAtRobot.youngest().value, m.faceDetected.youngest().value,
                   m.distance.youngest().value, m.asrEmotion.youngest().value),
            "1 0 1.25 0.75");  // fields of one type do not take each other's place
}

TEST(PersonMemory, KeepsWhatTheTableOfFieldsSaysAndMovesWhatItPulls) {
  zorvel::forEachField([](std::size_t /*index*/, const auto& field) {
    SimulatedPerson subject;
    std::set<Quantity> pulled;
    subject.person.personState.setForceObserver([&pulled](const Force& force) {
      if (force.reason != force_reasons::noObservation.name) pulled.insert(force.quantity);
    });
    PersonObservation observation;
    zorvel::fillField(field, observation, at(0), [](const auto& /*kind*/, auto& number) {
      number = std::decay_t<decltype(number)>(1);
    });
    subject.person.update(observation);
    EXPECT_EQ(pulled.count(field.pulls.value_or(Quantity::Valence)), field.pulls ? 1u : 0u)
        << field.name;
    const int limit = field.name == "contextEmotion" ? 20'000 : 7000;
    EXPECT_EQ(field.memory.value_or(milliseconds(limit)).count(), limit) << field.name;
    for (const int time : {7000, 7001, 20'000, 20'001}) {
      subject.clock.set(at(time));
      std::size_t size = 0;
      subject.person.personMemory._record().forEachChannel([&](auto& channel, auto member) {
        if constexpr (std::is_same_v<decltype(member), decltype(field.member)>) {
          if (member == field.member) size = channel.size();
        }
      });
      EXPECT_EQ(size, field.memory && time <= limit ? 1u : 0u) << field.name << ' ' << time;
    }
  });
}

}  // namespace
}  // namespace ZV
