#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <ku/clock.hpp>
#include <map>
#include <memory>
#include <optional>
#include <set>

#include "playback/csv.hpp"
#include "playback/playback.hpp"
#include "recording/failure.hpp"
#include "recording/json_writer.hpp"
#include "recording/observation_fields.hpp"
#include "recording/recording_reader.hpp"
#include "system/command_line.hpp"
#include "system/interrupt.hpp"
#include "system/text_output.hpp"

namespace zorvel {
namespace {

constexpr const char* systemClock = "system";
constexpr const char* recordingClock = "recording";

struct LiveOptions {
  std::string clock = systemClock;
  bool strict = false;
  bool explain = false;
  double forgetSeconds = 0.0;
};

template <typename Value>
void appendPair(JsonLineWriter& line, std::string_view name, Value value, float confidence) {
  line.key(name);
  line.begin();
  line.member("value", value);
  line.member("confidence", confidence);
  line.end();
}

void append(JsonLineWriter& line, const StateRow& row) {
  line.member("person", row.person);
  appendPair(line, "valence", row.valence.value, row.valence.confidence);
  line.member("mood", row.mood);
  appendPair(line, "cycle_mood", row.cycleMood.value, row.cycleMood.confidence);
  appendPair(line, "attention", row.attention.value, row.attention.confidence);
  appendPair(line, "ease", row.ease.level, row.ease.confidence);
}

void append(JsonLineWriter& line, const std::vector<ZV::Force>& forces) {
  line.key("forces");
  line.beginList();
  for (const ZV::Force& force : forces) {
    line.begin();
    line.member("quantity", nameOf(force.quantity));
    line.member("reason", force.reason);
    line.member("target", force.target);
    line.member("strength", force.strength);
    line.member("before", force.before);
    line.member("after", force.after);
    line.end();
  }
  line.endList();
}

void append(JsonLineWriter& line, const ScopeRow& row) {
  line.member("person", row.person);
  line.member("scope", row.scope);
  line.member("label", row.label);
  line.member("samples", row.samples);
}

void append(JsonLineWriter& line, const AmbianceRow& row) {
  line.member("agitation", row.agitation);
  line.member("calm", row.calm);
}

void append(JsonLineWriter& /*line*/, std::monostate /*nothing*/) {}

double secondsSince(Time time) { return inSeconds(between(time, ku::SystemClock::now())); }

/// Warns, once for each person and field, of readings that are too old to be remembered or come
/// from the future. They are used all the same, which is easily taken for a fault of the estimator.
class FarReadings {
 public:
  void check(const Observation& observation, const std::string& place) {
    forEachReading(observation.fields, [&](std::size_t field, const auto& reading) {
      check(observation.person, fieldKinds.at(field), reading.timestamp, place);
    });
  }

  void forget(std::int32_t person) { _warned.erase(person); }

 private:
  void check(std::int32_t person, const FieldKind& field, Time time, const std::string& place) {
    const double age = secondsSince(time);
    std::string problem;
    if (age < 0.0) {
      problem = fmt::format("{:.3f} s in the future", -age);
    } else if (field.memory && age * 1000.0 > static_cast<double>(field.memory->count())) {
      problem =
          fmt::format("{:.3f} s ago, and remembered for {} s", age, field.memory->count() / 1000);
    } else {
      return;
    }
    if (!_warned[person].insert(field.name).second) return;
    fmt::print(stderr, "{}warning: person {}: {} is from {}; it is used as it is\n", place, person,
               field.name, problem);
  }

  std::map<std::int32_t, std::set<std::string_view>> _warned;
};

/// The service: a line in, what it gives out.
class Live {
 public:
  explicit Live(const LiveOptions& options)
      : _options(options),
        _playback(options.explain ? Forces::Watched : Forces::Unwatched),
        _recording("-", waitForInput,
                   options.clock == systemClock ? MissingTime::Now : MissingTime::Error) {
    if (options.clock == recordingClock) _clockScope.emplace(_clock);
  }

  /// Throws Failure in the end when a line was bad.
  void run() {
    std::uint64_t badLines = 0;
    bool hasMore = true;
    while (hasMore) {
      try {
        hasMore = handleLine();
      } catch (const BadLine& error) {
        if (_options.strict) throw;
        fmt::print(stderr, "{}\n", error.what());
        ++badLines;
      }
    }
    if (badLines > 0) throw Failure(fmt::format("bad lines skipped: {}", badLines));
  }

 private:
  bool handleLine() {
    const auto event = _recording.next();
    if (!event) return false;
    Time time = event->time;
    if (_clockScope) {
      time = std::max(_clock.now(), time);
      _clock.set(time);
    }
    forgetUnseen(*event);
    const auto* const observation = std::get_if<Observation>(&event->what);
    if (observation != nullptr) _farReadings.check(*observation, _recording.lines().place());
    Row row;
    try {
      row = _playback.play(*event);
    } catch (const std::exception& error) {
      throw BadLine(_recording.lines().place() + error.what());
    }
    writeRow(time, row);
    return true;
  }

  /// Writes the row as one line on standard output, at once.
  void writeRow(Time time, const Row& row) {
    if (std::holds_alternative<std::monostate>(row)) return;
    JsonLineWriter line(_output.text());
    line.member("time", time);
    std::visit([&line](const auto& content) { append(line, content); }, row);
    const auto* const state = std::get_if<StateRow>(&row);
    if (state != nullptr && _options.explain) append(line, state->forces);
    line.finish();
    _output.flush();
  }

  void forgetUnseen(const Event& event) {
    if (_options.forgetSeconds <= 0.0) return;
    const Time now = ku::SystemClock::now();
    for (auto seen = _lastSeen.begin(); seen != _lastSeen.end();) {
      if (secondsSince(seen->second) <= _options.forgetSeconds) {
        ++seen;
        continue;
      }
      _playback.play({now, Remove{seen->first}});
      _farReadings.forget(seen->first);
      seen = _lastSeen.erase(seen);
    }
    if (const auto* observation = std::get_if<Observation>(&event.what)) {
      _lastSeen[observation->person] = now;
    } else if (const auto* notSeen = std::get_if<NotSeen>(&event.what)) {
      _lastSeen.emplace(notSeen->person, now);
    } else if (const auto* start = std::get_if<StartRecording>(&event.what)) {
      _lastSeen.emplace(start->person, now);
    }
  }

  LiveOptions _options;
  ku::SimulatedClock _clock{Time::min()};
  std::optional<ku::ClockScope> _clockScope;
  Playback _playback;
  RecordingReader _recording;
  TextOutput _output{"-"};
  FarReadings _farReadings;
  /// When each known person was last observed, or came to be known.
  std::map<std::int32_t, Time> _lastSeen;
};

}  // namespace

void addLive(CLI::App& tool) {
  auto* const command =
      tool.add_subcommand("live", "Read recording lines as they happen and write states at once");
  command->footer(
      R"(Reads the lines of a recording on standard input. Writes one JSON object a line on standard output:
  after each observation and not_seen
    {"time":…,"person":…,"valence":{"value":…,"confidence":…},"mood":…,
     "cycle_mood":{"value":…,"confidence":…},"attention":{…},"ease":{…}}
    with --explain also "forces":[{"quantity":…,"reason":…,"target":…,"strength":…,
     "before":…,"after":…},…], what moved the person in this cycle, in order
  after each stop_recording {"time":…,"person":…,"scope":…,"label":…,"samples":…}
  after each activity {"time":…,"agitation":…,"calm":…}
A value that is not a number is null. A bad line is reported on standard error and skipped; the exit
status is then 1 at the end of the input. SIGINT and SIGTERM end the service with 0.

Example:
  my-perception | zorvel live --forget 60 | my-robot)");
  const auto options = std::make_shared<LiveOptions>();
  command
      ->add_option("--clock", options->clock,
                   "system: ages run by the wall clock, and a line without time happens now; "
                   "recording: the lines' times are the clock, as in replay")
      ->check(CLI::IsMember({systemClock, recordingClock}))
      ->capture_default_str();
  command->add_flag("--explain", options->explain, "Add the forces of the cycle to each state");
  command->add_flag("--strict", options->strict, "Stop at the first bad line");
  command
      ->add_option("--forget", options->forgetSeconds,
                   "Remove people, with their open scopes, who were not observed for so long")
      ->type_name("SECONDS")
      ->check(isBetween(1e-3, 1e9));
  command->callback([options] {
    catchInterrupts();
    std::signal(SIGPIPE, SIG_IGN);
    try {
      Live(*options).run();
    } catch (const Interrupted&) {
      // A signal, or a reader that has gone away: either is the way to end a service.
    }
  });
}

}  // namespace zorvel
