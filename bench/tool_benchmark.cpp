// What the tool adds to the library: reading lines and writing results.

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <zv/social_graph.hpp>

#include "playback/csv.hpp"
#include "playback/playback.hpp"
#include "recording/recording_reader.hpp"
#include "recording/recording_writer.hpp"
#include "scene.hpp"

namespace zorvel::bench {
namespace {

constexpr int framesPerSecond = 30;
constexpr int seconds = 60;

/// A folder with a recording of one person, every field in every line.
class Workplace {
 public:
  Workplace() {
    std::filesystem::create_directories(_folder);
    fmt::memory_buffer text;
    appendHeader(text, "benchmark");
    ku::SimulatedClock clock(Time(Duration(1'700'000'000'000'000'000)));
    const ku::ClockScope scope(clock);
    for (int cycle = 0; cycle < framesPerSecond * seconds; ++cycle) {
      clock.advance(period(framesPerSecond));
      _events.push_back({ku::SystemClock::now(), Observation{1, observeAll()}});
      appendEvent(text, _events.back());
    }
    std::ofstream(recording()).write(text.data(), static_cast<std::streamsize>(text.size()));
    _bytes = text.size();
  }
  Workplace(const Workplace&) = delete;
  Workplace& operator=(const Workplace&) = delete;
  ~Workplace() { std::filesystem::remove_all(_folder); }

  std::string recording() const { return _folder / "recording.jsonl"; }
  const std::filesystem::path& folder() const { return _folder; }
  const std::vector<Event>& events() const { return _events; }

  void count(benchmark::State& state) const {
    using benchmark::Counter;
    state.counters["lines"] =
        Counter(framesPerSecond * seconds, Counter::kIsIterationInvariantRate);
    state.counters["bytes"] =
        Counter(static_cast<double>(_bytes), Counter::kIsIterationInvariantRate);
  }

 private:
  std::filesystem::path _folder = std::filesystem::temp_directory_path() / "zorvel-benchmark";
  std::vector<Event> _events;
  std::size_t _bytes = 0;
};

void replay(benchmark::State& state) {
  const Workplace workplace;
  for (auto _ : state) {
    ku::SimulatedClock clock;
    const ku::ClockScope scope(clock);
    RecordingReader recording(workplace.recording());
    Playback playback(Forces::Unwatched);
    std::ofstream timeline(workplace.folder() / "timeline.csv");
    fmt::memory_buffer text;
    while (const auto event = recording.next()) {
      clock.set(event->time);
      appendRow(text, event->time, std::get<StateRow>(playback.play(*event)));
      if (text.size() < 65'536) continue;
      timeline.write(text.data(), static_cast<std::streamsize>(text.size()));
      text.clear();
    }
    timeline.write(text.data(), static_cast<std::streamsize>(text.size()));
  }
  workplace.count(state);
}
BENCHMARK(replay)->Unit(benchmark::kMillisecond);

void replayInTheBareLibrary(benchmark::State& state) {
  const Workplace workplace;
  for (auto _ : state) {
    ku::SimulatedClock clock;
    const ku::ClockScope scope(clock);
    ZV::SocialGraph graph;
    for (const Event& event : workplace.events()) {
      clock.set(event.time);
      const auto& observation = std::get<Observation>(event.what);
      graph.update(observation.person,
                   [&observation](ZV::Person& person) { person.update(observation.fields); });
    }
  }
  workplace.count(state);
}
BENCHMARK(replayInTheBareLibrary)->Unit(benchmark::kMillisecond);

void live(benchmark::State& state) {
  const Workplace workplace;
  const std::string command = "cat " + workplace.recording() +
                              " | " ZORVEL_TOOL " live --clock recording | cat > /dev/null";
  for (auto _ : state) {
    if (std::system(command.c_str()) != 0) state.SkipWithError("live failed");
  }
  workplace.count(state);
}
BENCHMARK(live)->UseRealTime()->Unit(benchmark::kMillisecond);

/// Eight recordings, in as many threads as the benchmark's argument says.
void replayMany(benchmark::State& state) {
  const Workplace workplace;
  std::string command = ZORVEL_TOOL " replay --quiet --output " + workplace.folder().string() +
                        "/results --jobs " + std::to_string(state.range(0));
  for (int recording = 0; recording < 8; ++recording) command += ' ' + workplace.recording();
  for (auto _ : state) {
    if (std::system(command.c_str()) != 0) state.SkipWithError("replay failed");
  }
}
BENCHMARK(replayMany)
    ->ArgName("jobs")
    ->Arg(1)
    ->Arg(2)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace zorvel::bench
