// The other operations that a host calls in its cycle.

#include <benchmark/benchmark.h>

#include <zv/ambiance_state.hpp>
#include <zv/emotion_recorder.hpp>
#include <zv/observation_guard.hpp>
#include <zv/person.hpp>

#include "scene.hpp"

namespace zorvel::bench {
namespace {

/// The cost of an update by the number of samples that its channels remember.
void window(benchmark::State& state) {
  const auto samples = state.range(0);
  ku::SimulatedClock clock(Time(Duration(1'700'000'000'000'000'000)));
  const ku::ClockScope scope(clock);
  const Duration step(7'000'000'000 / (samples - 1));
  ZV::Person person;
  const auto cycle = [&] {
    clock.advance(step);
    ZV::PersonObservation observation = observeAll();
    observation.contextEmotion.reset();  // the one channel with another window
    person.update(observation);
  };
  for (std::int64_t warmUp = 0; warmUp < samples + 10; ++warmUp) cycle();
  for (auto _ : state) cycle();
  state.SetComplexityN(samples);
}
BENCHMARK(window)
    ->RangeMultiplier(4)
    ->Range(16, 4096)
    ->Unit(benchmark::kMicrosecond)
    ->Complexity(benchmark::oN);

void notSeen(benchmark::State& state) {
  ZV::Person person;
  for (auto _ : state) person.decreaseSinceNotSeen();
}
BENCHMARK(notSeen);

void recorderUpdate(benchmark::State& state) {
  ZV::ZVEmotionRecorder recorder;
  const ZV::PersonState person;
  recorder.startRecording("scope", -1);
  for (auto _ : state) {
    recorder.update_notMutexed(person);
    if (state.iterations() % 100'000 == 0) recorder.startRecording("scope", -1);
  }
}
BENCHMARK(recorderUpdate);

void recorderStop(benchmark::State& state) {
  ZV::ZVEmotionRecorder recorder;
  const ZV::PersonState person(0.5f, 0.5f, 0.5f, 0.5f);
  for (auto _ : state) {
    state.PauseTiming();
    recorder.startRecording("scope", -1);
    for (std::int64_t sample = 0; sample < state.range(0); ++sample) {
      recorder.update_notMutexed(person);
    }
    state.ResumeTiming();
    benchmark::DoNotOptimize(recorder.stopRecording("scope"));
  }
}
BENCHMARK(recorderStop)
    ->ArgName("samples")
    ->Arg(10)
    ->Arg(1000)
    ->Arg(100'000)
    ->Unit(benchmark::kMicrosecond);

void ambiance(benchmark::State& state) {
  ZV::AmbianceState room;
  for (auto _ : state) {
    room.incrementMovementDetected();
    room.updateAmbiance(0.03f);
  }
}
BENCHMARK(ambiance);

/// With every field, and nothing wrong.
void guard(benchmark::State& state) {
  ku::SimulatedClock clock(Time(Duration(1'700'000'000'000'000'000)));
  const ku::ClockScope scope(clock);
  ZV::PersonObservation observation = observeAll();
  ZV::ObservationGuard guard;
  for (auto _ : state) benchmark::DoNotOptimize(guard.clean(observation));
}
BENCHMARK(guard);

}  // namespace
}  // namespace zorvel::bench
