// simulated_day HOURS: 10 people at 10 Hz on a simulated clock, behind a guard. In each 24th of the
// time everybody has a scope of five seconds, the clock is set back by an hour, at which everybody
// is removed, one camera's clock is an hour ahead for a while, and some distances are NaN. Prints
// what an update reads of the clock and the heap in use, a line for each 24th. Exit status 1 when a
// value is out of range, when a scope lacks samples, or when readings or memory grow.

#include <malloc.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <zv/emotion_recorder.hpp>
#include <zv/observation_guard.hpp>
#include <zv/social_graph.hpp>

namespace {

using Reason = ZV::ObservationGuard::Reason;
using boost::chrono::hours;
using boost::chrono::milliseconds;

constexpr int people = 10;
constexpr int parts = 24;
constexpr int scopeCycles = 50;

using Recorders = std::array<ZV::ZVEmotionRecorder, people>;

/// Counts its readings, the part of an update's cost that is the same on every machine.
class CountingClock : public ku::Clock {
 public:
  ku::SystemClock::time_point now() override {
    ++readings;
    return time;
  }
  ku::SystemClock::time_point time{hours(500'000)};
  long readings = 0;
};

struct Part {
  long readings = 0;
  std::size_t heap = 0;  // the most in use
  long notFinite = 0, ahead = 0, clockSetBack = 0, outOfRange = 0;
  int samples = 0;
};

ZV::PersonObservation observe(ku::SystemClock::time_point now, int cycle, int person) {
  const float swing = static_cast<float>((cycle + 7 * person) % 60) - 30.0f;
  ZV::Expressions face;
  face.joy = {swing > 0.0f ? 0.9f : 0.1f, 0.8f};
  face.calm = {swing > 0.0f ? 0.1f : 0.9f, 0.8f};
  ZV::PersonObservation seen;
  seen.facialPoints.emplace(now, ZV::FacialPoints());
  seen.headPosture.emplace(now, ZV::HeadPosture(swing, swing / 3.0f, 0.0f));
  seen.gaze.emplace(now, ZV::Gaze(swing, 0.0f));
  seen.distance.emplace(now, cycle % 50 == person ? NAN : 1.0f);
  seen.smile.emplace(now, ZV::Smile(0.5f, 0.9f));
  seen.expressions.emplace(now, face);
  if (cycle % 90 == 0) seen.touchEmotion.emplace(now, person % 2 == 0 ? 1 : -1);
  if (cycle % 150 == 0) seen.contextEmotion.emplace(now, ZV::ContextEmotion(1, 10.0f));
  return seen;
}

bool isWithin(const ZV::PersonState& state) {
  const auto isShare = [](float value) { return value >= 0.0f && value <= 1.0f; };
  const auto valence = state.personValence();
  const auto attention = state.personAttention();
  return valence.value >= -1.0f && valence.value <= 1.0f && isShare(valence.confidence) &&
         isShare(attention.value) && isShare(attention.confidence);
}

Part run(ZV::SocialGraph& graph, ZV::ObservationGuard& guard, Recorders& recorders,
         CountingClock& clock, int cycles) {
  Part part;
  const long readingsBefore = clock.readings;
  for (int cycle = 0; cycle < cycles; ++cycle) {
    if (cycle == cycles / 4) clock.time -= hours(1);
    for (int person = 0; person < people; ++person) {
      auto& recorder = recorders.at(static_cast<std::size_t>(person));
      if (cycle == 0) recorder.startRecording("greeting", -1);
      if (cycle == scopeCycles)
        part.samples += static_cast<int>(recorder.stopRecording("greeting").second.size());
      const bool isSkewed = person == 3 && cycle > cycles / 2 && cycle < cycles * 3 / 4;
      auto observation = observe(clock.time + hours(isSkewed ? 1 : 0), cycle, person);
      const auto report = guard.clean(observation);
      for (const auto& field : report.removedFields) {
        ++(field.reason == Reason::Ahead ? part.ahead : part.notFinite);
      }
      if (report.clockSetBack) {
        ++part.clockSetBack;
        for (int known = 0; known < people; ++known) graph.remove(known);
      }
      graph.update(person, [&](ZV::Person& seen) {
        seen.update(observation);
        if (!isWithin(seen.personState)) ++part.outOfRange;
        if (cycle < scopeCycles) recorder.update_notMutexed(seen.personState);
      });
    }
    part.heap = std::max(part.heap, mallinfo2().uordblks);
    clock.time += milliseconds(100);
  }
  part.readings = clock.readings - readingsBefore;
  return part;
}

bool grows(double before, double now) { return now > before * 1.05; }

}  // namespace

int main(int argumentCount, char** arguments) {  // NOLINT(bugprone-exception-escape)
  const double time = argumentCount > 1 ? std::atof(arguments[1]) : 24.0;
  const int cycles = static_cast<int>(time * 36'000.0 / parts);
  CountingClock clock;
  const ku::ClockScope scope(clock);
  ZV::SocialGraph graph;
  ZV::ObservationGuard guard;
  Recorders recorders;
  Part full;  // the second: all windows are full from there on
  bool isGood = true;
  for (int number = 1; number <= parts; ++number) {
    const Part part = run(graph, guard, recorders, clock, cycles);
    const double updates = static_cast<double>(cycles) * people;
    std::printf(
        "%2d: %.0f updates of %.1f clock readings, heap %zu kB; removed: %ld not finite, %ld "
        "ahead; clock set back: %ld; out of range: %ld\n",
        number, updates, static_cast<double>(part.readings) / updates, part.heap / 1000,
        part.notFinite, part.ahead, part.clockSetBack, part.outOfRange);
    if (number <= 2) full = part;
    isGood &= part.outOfRange == 0 && part.notFinite > 0 && part.ahead > 0 &&
              part.clockSetBack == 1 && part.samples == scopeCycles * people &&
              !grows(static_cast<double>(full.heap), static_cast<double>(part.heap)) &&
              !grows(static_cast<double>(full.readings), static_cast<double>(part.readings));
  }
  return isGood ? 0 : 1;
}
