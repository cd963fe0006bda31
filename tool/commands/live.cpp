#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <ku/clock.hpp>
#include <memory>
#include <optional>

#include "playback/live_playback.hpp"
#include "playback/row_line.hpp"
#include "recording/distinct_files.hpp"
#include "recording/failure.hpp"
#include "recording/recording_reader.hpp"
#include "recording/standard_error.hpp"
#include "recording/text_output.hpp"
#include "system/command_line.hpp"
#include "system/interrupt.hpp"
#include "system/warnings.hpp"

namespace zorvel {
namespace {

constexpr const char* systemClock = "system";
constexpr const char* recordingClock = "recording";

struct CommandOptions {
  std::string clock = systemClock;
  Time::duration ahead = boost::chrono::seconds(1);
  bool strict = false;
  bool explain = false;
  std::optional<Time::duration> forget;
};

LiveOptions playbackOptions(const CommandOptions& options) {
  LiveOptions result;
  if (options.clock == systemClock) result.ahead = options.ahead;
  result.forget = options.forget;
  if (options.explain) result.forces = Forces::Watched;
  return result;
}

/// The service: a line in, what it gives out.
class Live {
 public:
  explicit Live(const CommandOptions& options)
      : _strict(options.strict),
        _options(playbackOptions(options)),
        _recording("-", waitForInput, _options.ahead ? MissingTime::Now : MissingTime::Error) {
    if (!_options.ahead) _clockScope.emplace(_clock);
  }

  /// Throws Failure in the end when a line was bad.
  void run() {
    std::string failure;
    try {
      failure = handleLines();
    } catch (const Interrupted& interrupted) {
      // The way to end a service, unless nobody reads what it gives out.
      if (interrupted.signal == SIGPIPE) failure = systemFailure("standard output", EPIPE).what();
    }
    _errors.sayHeldBack();
    if (_playback.leftOut() > 0) {
      _errors.say(fmt::format("readings from the future left out: {}", _playback.leftOut()));
    }
    for (const std::string& warning : warnings("-", _playback.findings())) _errors.say(warning);
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
        if (_strict) return error.what();
        _errors.say("standard input", error.what());
        ++badLines;
      }
    }
    return badLines == 0 ? "" : fmt::format("bad lines skipped: {}", badLines);
  }

  bool handleLine() {
    const auto event = _recording.next();
    if (!event) return false;
    Time time = event->time;
    if (_clockScope) {
      time = std::max(_clock.now(), time);
      _clock.set(time);
    }
    Row row;
    try {
      row = _playback.play(*event, _recording.lines().lineNumber());
    } catch (const std::exception& error) {
      throw BadLine(_recording.lines().place() + error.what());
    }
    appendRowLine(_output.text(), time, row, _options.forces);
    _output.flush();
    return true;
  }

  void warn(const std::string& text) {
    _errors.say("standard input", fmt::format("{}warning: {}", _recording.lines().place(), text));
  }

  StandardError _errors;
  bool _strict;
  LiveOptions _options;
  ku::SimulatedClock _clock{Time::min()};
  std::optional<ku::ClockScope> _clockScope;
  RecordingReader _recording;
  LivePlayback _playback{_options, [this](const std::string& text) { warn(text); },
                         [](const Event& /*played*/) {}};
  TextOutput _output{"-", throwIfInterrupted};
};

}  // namespace

void addLive(Command tool) {
  Command command = tool.addSubcommand(
      "live", "Read recording lines as they happen and write states at once",
      R"(Reads the lines of a recording from standard input, and writes one JSON object per line to
standard output:
  after each observation and not_seen
    {"time":…,"person":…,"valence":{"value":…,"confidence":…},"mood":…,
     "cycle_mood":{"value":…,"confidence":…},"attention":{…},"ease":{…}}
    with --explain also "forces":[{"quantity":…,"reason":…,"target":…,"strength":…,
     "before":…,"after":…},…], what moved the person in this cycle, in order
  after each stop_recording {"time":…,"person":…,"scope":…,"label":…,"samples":…}
  after each activity {"time":…,"agitation":…,"calm":…}
A value that is not a number is null. A bad line is reported on standard error and skipped; the exit
status is then 1 at the end of the input. SIGINT and SIGTERM end the service with 0. Standard error
also has warnings. Those that name a line are about times and scopes out of order, readings too old
or left out, and a clock that was set back, after which everybody begins anew. Those at the end are
about what no single line shows, such as a field that never came.

Example:
  my-perception | zorvel live --forget 60 | my-robot)");
  const auto options = std::make_shared<CommandOptions>();
  command
      .add("--clock", options->clock,
           "system: ages run by the wall clock, and a line without time happens now; "
           "recording: the lines' times are the clock, as in replay")
      .oneOf({systemClock, recordingClock})
      .showDefault();
  const Option ahead =
      command
          .addDuration("--ahead", options->ahead, true,
                       "Leave out readings that are more than this far ahead of the system's clock")
          .showDefault("1");
  command.addFlag("--explain", options->explain, "Add the forces of the cycle to each state");
  command.addFlag("--strict", options->strict, "Stop at the first bad line");
  command.addDuration("--forget", options->forget, false,
                      "Remove people who were not observed for this long, and their open scopes");
  command.setAction([options, ahead] {
    if (ahead.isGiven() && options->clock == recordingClock) {
      throw WrongUsage("--ahead", "is for the system's clock");
    }
    catchInterrupts();
    requireDistinct({"-"}, {"-"});
    std::signal(SIGPIPE, SIG_IGN);
    Live(*options).run();
  });
}

}  // namespace zorvel
