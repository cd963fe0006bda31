// What an update costs, against the work it cannot do without.

#include <benchmark/benchmark.h>

#include <zv/social_graph.hpp>

#include "allocations.hpp"
#include "floor.hpp"
#include "scene.hpp"

namespace zorvel::bench {
namespace {

enum ClockKind { Simulated, SystemWithOffset };

/// A clock that stands still between cycles, or the system's with an offset that jumps with them: a
/// tight loop on the bare system clock would never fill or empty a window.
void start(ku::SimulatedClock& clock, std::int64_t kind) {
  if (kind == SystemWithOffset) clock.run(Duration(0));
}

void cycle(ZV::SocialGraph& graph, int person) {
  const ZV::PersonObservation observation = observeAll();
  graph.update(person, [&observation](ZV::Person& seen) { seen.update(observation); });
}

void update(benchmark::State& state) {
  const auto rate = static_cast<int>(state.range(1));
  ku::SimulatedClock clock(Time(Duration(1'700'000'000'000'000'000)));
  const ku::ClockScope scope(clock);
  start(clock, state.range(0));
  ZV::SocialGraph graph;
  for (int warmUp = 0; warmUp < 25 * rate; ++warmUp) {
    clock.advance(period(rate));
    cycle(graph, 1);
  }
  const long allocationsBefore = allocationCount();
  for (auto _ : state) {
    clock.advance(period(rate));
    cycle(graph, 1);
  }
  state.counters["allocations"] =
      benchmark::Counter(static_cast<double>(allocationCount() - allocationsBefore),
                         benchmark::Counter::kAvgIterations);
}
BENCHMARK(update)
    ->ArgsProduct({{Simulated, SystemWithOffset}, {10, 30, 60}})
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
    ->ArgsProduct({{Simulated, SystemWithOffset}, {10, 30, 60}})
    ->ArgNames({"clock", "rate"})
    ->Unit(benchmark::kMicrosecond);

/// Many people in one graph, one after the other, as a camera gives them.
void people(benchmark::State& state) {
  constexpr int rate = 30;
  const auto count = static_cast<int>(state.range(0));
  ku::SimulatedClock clock(Time(Duration(1'700'000'000'000'000'000)));
  const ku::ClockScope scope(clock);
  ZV::SocialGraph graph;
  const long bytesBefore = allocatedBytes();
  const auto cycleOfAll = [&] {
    clock.advance(period(rate));
    for (int person = 0; person < count; ++person) cycle(graph, person);
  };
  for (int warmUp = 0; warmUp < 21 * rate; ++warmUp) cycleOfAll();
  for (auto _ : state) cycleOfAll();
  state.counters["seconds_an_update"] = benchmark::Counter(
      count, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
  state.counters["bytes_a_person"] = static_cast<double>(allocatedBytes() - bytesBefore) / count;
}
// So many updates each: the warm-up, seconds for the largest graph, is repeated for every estimate.
BENCHMARK(people)->ArgName("people")->Unit(benchmark::kMicrosecond)->Arg(1)->Iterations(20'000);
BENCHMARK(people)->ArgName("people")->Unit(benchmark::kMicrosecond)->Arg(10)->Iterations(2'000);
BENCHMARK(people)->ArgName("people")->Unit(benchmark::kMicrosecond)->Arg(100)->Iterations(200);
BENCHMARK(people)->ArgName("people")->Unit(benchmark::kMicrosecond)->Arg(1000)->Iterations(20);

}  // namespace
}  // namespace zorvel::bench
