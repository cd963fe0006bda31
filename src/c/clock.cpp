#include <ku/clock.hpp>
#include <optional>

#include "c/result.hpp"

// Apart from the rest, since a robot's own ku need not have clocks to put in place.

struct zv_clock final : ku::SimulatedClock {
  using SimulatedClock::SimulatedClock;
};

namespace {

thread_local std::optional<ku::ClockScope> clockScope;

ku::SystemClock::time_point at(std::int64_t time) {
  return ku::SystemClock::time_point(ku::SystemClock::duration(time));
}

}  // namespace

zv_clock* zv_clock_create(std::int64_t time) {
  return ZV::created([time] { return new zv_clock(at(time)); });
}

void zv_clock_destroy(zv_clock* clock) { delete clock; }

zv_code zv_clock_set(zv_clock* clock, std::int64_t time) {
  return ZV::resultOf([&] { ZV::notNull(clock, "clock").set(at(time)); });
}

zv_code zv_clock_use(zv_clock* clock) {
  return ZV::resultOf([&] {
    clockScope.reset();
    if (clock != nullptr) clockScope.emplace(*clock);
  });
}
