// What an update costs, against the work it cannot do without.

#include <benchmark/benchmark.h>

#include <map>
#include <zv/social_graph.hpp>

#include "allocations.hpp"
#include "crowd.hpp"
#include "floor.hpp"
#include "scene.hpp"

namespace zorvel::bench {
namespace {

enum ClockKind { Simulated, SystemWithOffset };

/// The clock stands still between cycles, or runs as the system's with an offset that jumps from
/// cycle to cycle. On the bare system clock, a tight loop would never fill or empty a window.
void start(ku::SimulatedClock& clock, std::int64_t kind) {
  if (kind == SystemWithOffset) clock.run(Duration(0));
}

void update(ZV::SocialGraph& graph, int person, const ZV::PersonObservation& observation) {
  graph.update(person, [&observation](ZV::Person& seen) { seen.update(observation); });
}

/// The cycles of one person with full windows, each observed by `observe`.
void measureCycles(benchmark::State& state, ZV::PersonObservation (*observe)()) {
  const auto rate = static_cast<int>(state.range(1));
  ku::SimulatedClock clock(Time(Duration(1'700'000'000'000'000'000)));
  const ku::ClockScope scope(clock);
  start(clock, state.range(0));
  ZV::SocialGraph graph;
  const auto cycle = [&] {
    clock.advance(period(rate));
    update(graph, 1, observe());
  };
  for (int warmUp = 0; warmUp < 25 * rate; ++warmUp) cycle();
  const long allocationsBefore = allocationCount();
  for (auto _ : state) cycle();
  state.counters["allocations"] =
      benchmark::Counter(static_cast<double>(allocationCount() - allocationsBefore),
                         benchmark::Counter::kAvgIterations);
}

void update(benchmark::State& state) { measureCycles(state, observeAll); }
BENCHMARK(update)
    ->Args({Simulated, 1})
    ->ArgsProduct({{Simulated, SystemWithOffset}, {10, 30, 60}})
    ->ArgNames({"clock", "rate"})
    ->Unit(benchmark::kMicrosecond);

/// The face analysis gives the same old face in every cycle.
void updateWithoutNewFace(benchmark::State& state) {
  measureCycles(state, [] {
    ZV::PersonObservation observation = observeAll();
    observation.smile->timestamp = Time();
    observation.expressions->timestamp = Time();
    return observation;
  });
}
BENCHMARK(updateWithoutNewFace)
    ->Args({Simulated, 30})
    ->ArgNames({"clock", "rate"})
    ->Unit(benchmark::kMicrosecond);

void floorOfUpdate(benchmark::State& state) {
  ku::SimulatedClock clock(Time(Duration(1'700'000'000'000'000'000)));
  const ku::ClockScope scope(clock);
  start(clock, state.range(0));
  Floor floor(static_cast<int>(state.range(1)));
  for (auto _ : state) benchmark::DoNotOptimize(floor.run());
}
BENCHMARK(floorOfUpdate)
    ->Args({Simulated, 1})
    ->ArgsProduct({{Simulated, SystemWithOffset}, {10, 30, 60}})
    ->ArgNames({"clock", "rate"})
    ->Unit(benchmark::kMicrosecond);

void people(benchmark::State& state) {
  const auto count = static_cast<int>(state.range(0));
  static std::map<int, Crowd> crowds;
  Crowd& crowd = crowds.try_emplace(count, count).first->second;
  state.counters["bytes_a_person"] = crowd.bytesOfOne();
  for (auto _ : state) crowd.cycle();
  state.counters["seconds_an_update"] = benchmark::Counter(
      count, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(people)
    ->ArgName("people")
    ->Unit(benchmark::kMicrosecond)
    ->RangeMultiplier(10)
    ->Range(1, 1000);

}  // namespace
}  // namespace zorvel::bench
