// Everybody at once: how long a thread waits that reads all while another updates them, and what it
// costs to come and go among many.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <thread>
#include <vector>
#include <zv/ambiance_state.hpp>
#include <zv/state_board.hpp>

#include "crowd.hpp"

namespace zorvel::bench {
namespace {

using Clock = std::chrono::steady_clock;

enum Way { FromTheGraph, FromTheBoard };

/// Calls `work` at this many hertz until it gives false; a call that is late is not made up for.
template <typename Work>
void repeat(int rate, Work work) {
  for (auto next = Clock::now(); work(); next = std::max(next, Clock::now())) {
    next += std::chrono::nanoseconds(std::chrono::seconds(1)) / rate;
    std::this_thread::sleep_until(next);
  }
}

void readFrom(const ZV::SocialGraph& graph, int people) {
  float sum = 0.0f;
  for (int person = 0; person < people; ++person) {
    graph.read(person,
               [&sum](const ZV::Person& seen) { sum += seen.personState.personValence().value; });
  }
  benchmark::DoNotOptimize(sum);
}

void readFrom(const ZV::StateBoard& board) {
  float sum = 0.0f;
  const auto frame = board.latest();
  for (const auto& state : frame->states) sum += state.valence.value;
  benchmark::DoNotOptimize(sum);
}

/// Eight seconds in which everybody is updated at 30 Hz, in a burst, and this thread reads all at
/// 50 Hz, as others do. No median would tell how long a reader may wait.
void reading(benchmark::State& state) {
  static std::map<int, Crowd> crowds;
  const auto count = static_cast<int>(state.range(0));
  Crowd& crowd = crowds.try_emplace(count, count).first->second;
  const ZV::AmbianceState room;
  ZV::StateBoard board(crowd.graph(), room);
  const auto read = [&] {
    if (state.range(2) == FromTheBoard) return readFrom(board);
    readFrom(crowd.graph(), count);
  };
  std::atomic<bool> isOver{false};
  std::vector<std::thread> others;
  std::vector<double> waits;
  for (auto _ : state) {
    crowd.run();
    others.emplace_back(repeat<std::function<bool()>>, Crowd::rate, [&] {
      crowd.update();
      if (state.range(2) == FromTheBoard) board.publish(ku::SystemClock::now());
      return !isOver;
    });
    for (int other = 0; other < state.range(1); ++other) {
      others.emplace_back(repeat<std::function<bool()>>, 50, [&] { return read(), !isOver; });
    }
    const auto end = Clock::now() + std::chrono::seconds(8);
    repeat(50, [&] {
      const auto before = Clock::now();
      read();
      const auto after = Clock::now();
      waits.push_back(std::chrono::duration<double>(after - before).count());
      return after < end;
    });
    isOver = true;
    for (auto& other : others) other.join();
  }
  std::sort(waits.begin(), waits.end());
  state.counters["readings"] = static_cast<double>(waits.size());
  state.counters["p99_seconds"] = waits[waits.size() * 99 / 100];
  state.counters["worst_seconds"] = waits.back();
}
BENCHMARK(reading)
    ->ArgsProduct({{1, 10, 60, 100}, {0, 7}, {FromTheGraph, FromTheBoard}})
    ->ArgNames({"people", "others", "board"})
    ->Iterations(1)
    ->Repetitions(1)
    ->UseRealTime();

/// What a frame costs whoever publishes it.
void publish(benchmark::State& state) {
  const Crowd crowd(static_cast<int>(state.range(0)));
  const ZV::AmbianceState room;
  ZV::StateBoard board(crowd.graph(), room);
  for (auto _ : state) board.publish(ku::SystemClock::time_point());
}
BENCHMARK(publish)->ArgName("people")->Arg(1)->Arg(10)->Arg(100)->Unit(benchmark::kMicrosecond);

/// A person who is copied when others make room, as all were before persons moved.
struct Copied {
  explicit Copied(int id) : person(id) {}
  Copied(const Copied&) = default;
  Copied& operator=(const Copied&) = default;

  ZV::Person person;
};

struct CopyingGraph {
  void add(int id) { persons.emplace(id, Copied(id)); }
  void remove(int id) { persons.erase(id); }

  boost::container::flat_map<int, Copied> persons;
};

/// Somebody comes and goes in a graph of 5,000, with an identifier below this share of theirs.
template <typename Graph>
void comeAndGo(benchmark::State& state) {
  Graph graph;
  for (int person = 0; person < 5000; ++person) graph.add(100 * person);
  const auto newcomer = 5000 * static_cast<int>(100 - state.range(0)) - 1;
  for (auto _ : state) {
    graph.add(newcomer);
    graph.remove(newcomer);
  }
}
BENCHMARK(comeAndGo<ZV::SocialGraph>)
    ->Name("comeAndGo")
    ->ArgName("before")
    ->Arg(100)
    ->Arg(50)
    ->Arg(0)
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(comeAndGo<CopyingGraph>)
    ->Name("comeAndGoCopied")
    ->ArgName("before")
    ->Arg(100)
    ->Arg(50)
    ->Arg(0)
    ->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace zorvel::bench
