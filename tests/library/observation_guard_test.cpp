#include "zv/observation_guard.hpp"

#include <gtest/gtest.h>

#include <limits>

#include "simulated_person.hpp"
#include "tests/fill_observation.hpp"

namespace ZV {
namespace {

using Reason = ObservationGuard::Reason;
using boost::chrono::nanoseconds;
using boost::chrono::seconds;

std::string removed(const ObservationGuard::Report& report, Reason reason, nanoseconds ahead) {
  std::string names;
  for (const auto& field : report.removedFields) {
    EXPECT_TRUE(field.reason == reason && field.ahead == ahead) << field.name;
    names += std::string(field.name) + ' ';
  }
  return names;
}

/// Every field, with `odd` as the float at this position and 1 as the other numbers. Returns the
/// name of the field with the odd one; empty beyond the last float.
std::string_view fillAt(int time, int position, float odd, PersonObservation& all) {
  std::string_view oddField;
  zorvel::forEachField([&](std::size_t /*index*/, const auto& field) {
    zorvel::fillField(field, all, at(time), [&](const auto& /*kind*/, auto& number) {
      number = 1;
      if constexpr (std::is_same_v<std::decay_t<decltype(number)>, float>) {
        if (position-- != 0) return;
        number = odd;
        oddField = field.name;
      }
    });
  });
  return oddField;
}

TEST(ObservationGuard, RemovesTheFieldOfEachNumberThatIsNotFinite) {
  const SimulatedPerson withClock;
  ObservationGuard guard;
  constexpr auto highest = std::numeric_limits<float>::max();
  PersonObservation all;
  for (int position = 0; !fillAt(-5, position, highest, all).empty(); ++position) {
    EXPECT_TRUE(guard.clean(all).removedFields.empty());
    for (const float odd : {NAN, INFINITY, -INFINITY}) {
      const std::string field(fillAt(-5, position, odd, all));
      EXPECT_EQ(removed(guard.clean(all), Reason::NotFinite, milliseconds(-5)), field + ' ');
      EXPECT_TRUE(guard.clean(all).removedFields.empty()) << field;
    }
  }
}

TEST(ObservationGuard, RemovesWhatIsFurtherAheadOfTheClockThanTheLimit) {
  SimulatedPerson withClock;
  PersonObservation all;
  fillAt(1000, -1, 1, all);
  ObservationGuard guard;
  EXPECT_EQ(removed(guard.clean(all), Reason::Ahead, {}), "");
  withClock.clock.advance(nanoseconds(-1));
  std::string everyField;
  for (const auto& field : zorvel::fieldKinds) everyField.append(field.name).append(" ");
  EXPECT_EQ(removed(guard.clean(all), Reason::Ahead, nanoseconds(1'000'000'001)), everyField);
  EXPECT_EQ(removed(guard.clean(all), Reason::Ahead, {}), "");

  all.distance.emplace(at(0), NAN);  // NotFinite, whatever its time
  EXPECT_EQ(removed(ObservationGuard(nanoseconds(0)).clean(all), Reason::NotFinite, nanoseconds(1)),
            "distance ");
  all.distance.emplace(Time::max(), 1.0f);  // the difference does not fit into 64 bits
  withClock.clock.set(Time::min());
  EXPECT_EQ(removed(guard.clean(all), Reason::Ahead, nanoseconds::max()), "distance ");
  EXPECT_THROW(ObservationGuard(nanoseconds(-1)), std::invalid_argument);
}

TEST(ObservationGuard, ReportsOnceThatTheClockWasSetBackByMoreThanTheLimit) {
  const std::vector<int> times = {0, -1000, 500, -501, -501};
  ScriptedClock clock([&](int reading) { return at(times.at(static_cast<std::size_t>(reading))); });
  ObservationGuard guard;
  PersonObservation nothing;
  for (const int back : {0, 0, 0, 1001, 0}) {
    EXPECT_EQ(guard.clean(nothing).clockSetBack.value_or(seconds(0)), milliseconds(back));
  }
}

}  // namespace
}  // namespace ZV
