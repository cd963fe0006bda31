#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <ku/clock.hpp>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string_view>
#include <utility>
#include <zv/observation_guard.hpp>

#include "inspection/findings.hpp"
#include "playback/csv.hpp"
#include "playback/playback.hpp"
#include "recording/failure.hpp"
#include "recording/json_writer.hpp"
#include "recording/observation_fields.hpp"
#include "recording/recording_reader.hpp"
#include "system/command_line.hpp"
#include "system/distinct_files.hpp"
#include "system/interrupt.hpp"
#include "system/text_output.hpp"
#include "system/warnings.hpp"

namespace zorvel {
namespace {

constexpr const char* systemClock = "system";
constexpr const char* recordingClock = "recording";

struct LiveOptions {
  std::string clock = systemClock;
  double aheadSeconds = 1.0;
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

/// Warns of readings that are far from the clock, once for each person, field and consequence.
class FarReadings {
 public:
  /// Readings that are too old to be remembered. That they are used all the same is easily taken
  /// for a fault of the estimator.
  void warnOfOld(const Observation& observation, const std::string& place) {
    forEachReading(observation.fields, [&](std::size_t index, const auto& reading) {
      const FieldKind& field = fieldKinds.at(index);
      const double age = secondsSince(reading.timestamp);
      if (!field.memory || age * 1000.0 <= static_cast<double>(field.memory->count())) return;
      warnOnce(
          place, observation.person, field.name,
          fmt::format("{:.3f} s ago, and remembered for {} s", age, field.memory->count() / 1000),
          isUsed);
    });
  }

  /// Readings from the future that are used.
  void warnOfFuture(const Observation& observation, const std::string& place) {
    forEachReading(observation.fields, [&](std::size_t index, const auto& reading) {
      const double age = secondsSince(reading.timestamp);
      if (age >= 0.0) return;
      warnOfFuture(place, observation.person, fieldKinds.at(index).name, -age, isUsed);
    });
  }

  /// A reading from the future that was left out.
  void warnOfLeftOut(const ZV::ObservationGuard::RemovedField& field, std::int32_t person,
                     const std::string& place) {
    warnOfFuture(place, person, field.name, inSeconds(field.ahead), isLeftOut);
  }

  void forget(std::int32_t person) { _warned.erase(person); }
  void forgetEverybody() { _warned.clear(); }

 private:
  static constexpr std::string_view isUsed = "it is used as it is";
  static constexpr std::string_view isLeftOut = "such readings are left out";

  void warnOfFuture(const std::string& place, std::int32_t person, std::string_view field,
                    double seconds, std::string_view consequence) {
    warnOnce(place, person, field, fmt::format("{:.3f} s in the future", seconds), consequence);
  }

  void warnOnce(const std::string& place, std::int32_t person, std::string_view field,
                const std::string& time, std::string_view consequence) {
    if (!_warned[person].emplace(field, consequence).second) return;
    fmt::print(stderr, "{}warning: person {}: {} is from {}; {}\n", place, person, field, time,
               consequence);
  }

  std::map<std::int32_t, std::set<std::pair<std::string_view, std::string_view>>> _warned;
};

/// Whether something goes wrong in single lines, and is told there.
bool isToldByLine(const Finding& finding) {
  return finding.kind == "time_backwards" || finding.kind == "time_jump" ||
         finding.kind == "scopes";
}

/// The service: a line in, what it gives out.
class Live {
 public:
  explicit Live(const LiveOptions& options)
      : _options(options),
        _playback(options.explain ? Forces::Watched : Forces::Unwatched),
        _recording("-", waitForInput,
                   options.clock == systemClock ? MissingTime::Now : MissingTime::Error) {
    if (options.clock == recordingClock) {
      _clockScope.emplace(_clock);
    } else {
      _guard.emplace(Time::duration(std::llround(options.aheadSeconds * 1e9)));
    }
  }

  /// Throws Failure in the end when a line was bad.
  void run() {
    std::string failure;
    try {
      failure = handleLines();
    } catch (const Interrupted&) {
      // A signal, or a reader that has gone away: either is the way to end a service.
    }
    sumUp();
    if (!failure.empty()) throw Failure(failure);
  }

 private:
  /// Returns what was wrong with the lines.
  std::string handleLines() {
    std::uint64_t badLines = 0;
    bool hasMore = true;
    while (hasMore) {
      try {
        hasMore = handleLine();
      } catch (const BadLine& error) {
        if (_options.strict) return error.what();
        fmt::print(stderr, "{}\n", error.what());
        ++badLines;
      }
    }
    return badLines == 0 ? "" : fmt::format("bad lines skipped: {}", badLines);
  }

  bool handleLine() {
    auto event = _recording.next();
    if (!event) return false;
    Time time = event->time;
    if (_clockScope) {
      time = std::max(_clock.now(), time);
      _clock.set(time);
    }
    const std::string place = _recording.lines().place();
    if (_guard) keepFutureOut(*event, place);
    forgetUnseen(*event);
    if (const auto* const observation = std::get_if<Observation>(&event->what)) {
      _farReadings.warnOfOld(*observation, place);
      if (!_guard) _farReadings.warnOfFuture(*observation, place);
    }
    Row row;
    try {
      row = _playback.play(*event);
    } catch (const std::exception& error) {
      throw BadLine(place + error.what());
    }
    inspect(*event, place);
    writeRow(time, row);
    return true;
  }

  /// Leaves out the readings that lie in the future. When the clock was set back, all that is
  /// remembered of anybody lies there, so everybody begins anew.
  void keepFutureOut(Event& event, const std::string& place) {
    ZV::PersonObservation none;
    auto* const observation = std::get_if<Observation>(&event.what);
    const auto report = _guard->clean(observation == nullptr ? none : observation->fields);
    if (report.clockSetBack) {
      fmt::print(stderr,
                 "{}warning: the clock was set back by {:.3f} s; everybody begins anew, and scopes "
                 "that were open are lost\n",
                 place, inSeconds(*report.clockSetBack));
      _playback.removeEverybody();
      _lastSeen.clear();
      _farReadings.forgetEverybody();
      _facts.forgetEverybody();
    }
    for (const auto& field : report.removedFields) {
      ++_leftOut;
      _farReadings.warnOfLeftOut(field, observation->person, place);
    }
  }

  /// Warns of what goes wrong in single lines, where it does so for the first time.
  void inspect(const Event& event, const std::string& place) {
    const std::uint64_t line = _recording.lines().lineNumber();
    _facts.add(event, line);
    if (const auto* const remove = std::get_if<Remove>(&event.what)) _facts.forget(remove->person);
    if (!_facts.goesWrongIn(line)) return;
    for (const Finding& finding : findingsOf(_facts)) {
      if (finding.firstLine == line && isToldByLine(finding)) {
        fmt::print(stderr, "{}warning: {}\n", place, finding.text);
      }
    }
  }

  /// Tells in the end what goes wrong in no single line.
  void sumUp() {
    if (_leftOut > 0) fmt::print(stderr, "readings from the future left out: {}\n", _leftOut);
    auto findings = findingsOf(_facts);
    // Far readings have been told of by line; on the system's clock the times have no unit.
    const auto isTold = [this](const Finding& finding) {
      return isToldByLine(finding) || finding.kind == "future" || finding.kind == "expired" ||
             (_guard && finding.kind == "time_unit");
    };
    findings.erase(std::remove_if(findings.begin(), findings.end(), isTold), findings.end());
    printWarnings("-", findings);
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
      _facts.forget(seen->first);
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
  /// On the system's clock alone.
  std::optional<ZV::ObservationGuard> _guard;
  Playback _playback;
  RecordingReader _recording;
  TextOutput _output{"-"};
  FarReadings _farReadings;
  /// How many readings the guard left out.
  std::uint64_t _leftOut = 0;
  RecordingFacts _facts;
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
Standard error also has warnings: by line, of times and scopes out of order, of readings too old or
left out, and of a clock that was set back, after which everybody begins anew; at the end, of what
goes wrong in no single line, such as a field that never came.

Example:
  my-perception | zorvel live --forget 60 | my-robot)");
  const auto options = std::make_shared<LiveOptions>();
  command
      ->add_option("--clock", options->clock,
                   "system: ages run by the wall clock, and a line without time happens now; "
                   "recording: the lines' times are the clock, as in replay")
      ->check(CLI::IsMember({systemClock, recordingClock}))
      ->capture_default_str();
  auto* const ahead =
      command
          ->add_option("--ahead", options->aheadSeconds,
                       "Leave out readings that are further ahead of the system's clock")
          ->type_name("SECONDS")
          ->check(isBetween(0.0, 1e9))
          ->capture_default_str();
  command->add_flag("--explain", options->explain, "Add the forces of the cycle to each state");
  command->add_flag("--strict", options->strict, "Stop at the first bad line");
  command
      ->add_option("--forget", options->forgetSeconds,
                   "Remove people, with their open scopes, who were not observed for so long")
      ->type_name("SECONDS")
      ->check(isBetween(1e-3, 1e9));
  command->callback([options, ahead] {
    if (!ahead->empty() && options->clock == recordingClock) {
      throw CLI::ValidationError("--ahead", "is for the system's clock");
    }
    catchInterrupts();
    requireDistinct({"-"}, {"-"});
    std::signal(SIGPIPE, SIG_IGN);
    Live(*options).run();
  });
}

}  // namespace zorvel
