// Counts the work of a real update with every field, and prints it beside what is derived from the
// number of remembered samples. Exit status 1 when they differ, when the update allocates more than
// the two lists that a new face needs, or when one that observes nothing takes other than seven
// clock readings.

#include <dlfcn.h>
#include <pthread.h>

#include <cstdio>
#include <zv/social_graph.hpp>

#include "bench/allocations.hpp"
#include "bench/floor.hpp"
#include "bench/scene.hpp"

namespace {

long locked = 0;

}  // namespace

// Replaces the system's function for the whole process.
extern "C" __attribute__((visibility("default"))) int pthread_mutex_lock(
    pthread_mutex_t* mutex) noexcept {
  using Lock = int (*)(pthread_mutex_t*);
  static const auto lock = reinterpret_cast<Lock>(dlsym(RTLD_NEXT, "pthread_mutex_lock"));
  ++locked;
  return lock(mutex);
}

namespace zorvel::bench {
namespace {

class CountingClock : public ku::Clock {
 public:
  Time now() override {
    ++readings;
    return time;
  }
  Time time{Duration(1'700'000'000'000'000'000)};
  long readings = 0;
};

struct Counts {
  int forces;
  long readings;
  long locks;
  long allocations;
};

/// Of an update that observes nothing, of a person of whom nothing is remembered.
long countEmptyUpdate() {
  CountingClock clock;
  const ku::ClockScope scope(clock);
  ZV::SocialGraph graph;
  graph.update(1, [&clock](ZV::Person& seen) {
    clock.readings = 0;
    seen.update(ZV::PersonObservation());
  });
  return clock.readings;
}

/// What the last of many updates does, with full windows.
Counts countUpdate(int rate, bool newFace) {
  CountingClock clock;
  const ku::ClockScope scope(clock);
  ZV::SocialGraph graph;
  int forces = 0;
  graph.update(1, [&forces](ZV::Person& seen) {
    seen.personState.setForceObserver([&forces](const ZV::Force&) { ++forces; });
  });
  Counts counts{};
  for (int cycle = 0; cycle < 25 * rate; ++cycle) {
    clock.time += period(rate);
    ZV::PersonObservation observation = observeAll();
    if (!newFace) observation.smile->timestamp = observation.expressions->timestamp = Time();
    forces = 0;
    clock.readings = 0;
    locked = 0;
    const long allocationsBefore = allocationCount();
    graph.update(1, [&observation](ZV::Person& seen) { seen.update(observation); });
    counts = {forces, clock.readings, locked, allocationCount() - allocationsBefore};
  }
  return counts;
}

bool printWork(int rate) {
  const NeededWork needed{Windows(rate)};
  const Counts counted = countUpdate(rate, true);
  const Counts withoutNewFace = countUpdate(rate, false);
  std::printf("%5d %15d %9ld %16d %8d %9d %11d %9ld %12ld, %ld\n", rate, needed.clockReadings,
              counted.readings, needed.errorFunctions, needed.forces, counted.forces,
              needed.lockPairs, counted.locks, counted.allocations, withoutNewFace.allocations);
  return counted.forces == needed.forces && counted.readings == needed.clockReadings &&
         counted.locks == needed.lockPairs && counted.allocations <= 2 &&
         withoutNewFace.allocations == 0;
}

}  // namespace
}  // namespace zorvel::bench

int main() {  // NOLINT(bugprone-exception-escape): one would rightly end it
  std::printf("%5s %15s %9s %16s %8s %9s %11s %9s %15s\n", "rate", "clock readings", "counted",
              "error functions", "forces", "counted", "lock pairs", "counted",
              "allocations: new face, none");
  bool agrees = true;
  for (const int rate : {10, 30, 60}) agrees &= zorvel::bench::printWork(rate);
  // The ages of five timestamps for the valence and of two for the attention.
  const long readings = zorvel::bench::countEmptyUpdate();
  std::printf("an update that observes nothing: %ld clock readings, needs 7\n", readings);
  agrees &= readings == 7;
  return agrees ? 0 : 1;
}
