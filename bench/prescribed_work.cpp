// Prints the work that one update with every field present cannot do without, as derived from the
// windows, beside what an update is counted to do. Exit status 1 when they differ.

#include <dlfcn.h>
#include <pthread.h>

#include <cstdio>
#include <zv/social_graph.hpp>

#include "floor.hpp"
#include "scene.hpp"

namespace {

long locked = 0;

}  // namespace

// Takes the place of the system's for the whole process.
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

bool printWork(int rate) {
  CountingClock clock;
  const ku::ClockScope scope(clock);
  ZV::SocialGraph graph;
  long readings = 0;
  long locks = 0;
  for (int cycle = 0; cycle < 25 * rate; ++cycle) {
    clock.time += period(rate);
    const ZV::PersonObservation observation = observeAll();
    clock.readings = 0;
    locked = 0;
    graph.update(1, [&observation](ZV::Person& seen) { seen.update(observation); });
    readings = clock.readings;
    locks = locked;
  }
  const Prescribed prescribed{Windows(rate)};
  std::printf("%5d %15d %9ld %16d %8d %11d %9ld\n", rate, prescribed.clockReadings, readings,
              prescribed.errorFunctions, prescribed.forces, prescribed.lockPairs, locks);
  return readings == prescribed.clockReadings && locks == prescribed.lockPairs;
}

}  // namespace
}  // namespace zorvel::bench

int main() {  // NOLINT(bugprone-exception-escape): one would rightly end it
  std::printf("%5s %15s %9s %16s %8s %11s %9s\n", "rate", "clock readings", "counted",
              "error functions", "forces", "lock pairs", "counted");
  bool agrees = true;
  for (const int rate : {10, 30, 60}) agrees &= zorvel::bench::printWork(rate);
  return agrees ? 0 : 1;
}
