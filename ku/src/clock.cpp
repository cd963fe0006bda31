#include "ku/clock.hpp"

#include <ctime>

namespace ku {
namespace {

// initial-exec: every timestamp and age goes through here, and the general model would make each
// reading a call of the dynamic linker.
__attribute__((tls_model("initial-exec"))) thread_local Clock* clockInPlace = nullptr;

SystemClock::time_point timePoint(SystemClock::rep nanoseconds) {
  return SystemClock::time_point(SystemClock::duration(nanoseconds));
}

}  // namespace

SystemClock::time_point SystemClock::wallClock() noexcept {
  timespec time{};
  clock_gettime(CLOCK_REALTIME, &time);
  return timePoint(rep{time.tv_sec} * 1'000'000'000 + time.tv_nsec);
}

SystemClock::time_point SystemClock::now() {
  return clockInPlace == nullptr ? wallClock() : clockInPlace->now();
}

Clock::~Clock() = default;

SimulatedClock::SimulatedClock(SystemClock::time_point time)
    : _time(time.time_since_epoch().count()), _offset(0), _runs(false) {}

void SimulatedClock::set(SystemClock::time_point time) noexcept {
  _time.store(time.time_since_epoch().count(), std::memory_order_relaxed);
  _runs.store(false, std::memory_order_release);
}

void SimulatedClock::advance(SystemClock::duration step) noexcept {
  auto& moved = _runs.load(std::memory_order_acquire) ? _offset : _time;
  moved.fetch_add(step.count(), std::memory_order_relaxed);
}

void SimulatedClock::run(SystemClock::duration offset) noexcept {
  _offset.store(offset.count(), std::memory_order_relaxed);
  _runs.store(true, std::memory_order_release);
}

SystemClock::time_point SimulatedClock::now() {
  if (_runs.load(std::memory_order_acquire)) {
    return SystemClock::wallClock() +
           SystemClock::duration(_offset.load(std::memory_order_relaxed));
  }
  return timePoint(_time.load(std::memory_order_relaxed));
}

ClockScope::ClockScope(Clock& clock) noexcept : _previous(clockInPlace) { clockInPlace = &clock; }

ClockScope::~ClockScope() { clockInPlace = _previous; }

}  // namespace ku
