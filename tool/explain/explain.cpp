#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "commands.hpp"
#include "explain/explanation.hpp"
#include "failure.hpp"
#include "interrupt.hpp"
#include "progress.hpp"
#include "recording/json_writer.hpp"
#include "recording/recording.hpp"
#include "replay/csv.hpp"
#include "replay/playback.hpp"

namespace zorvel {
namespace {

struct ExplainOptions {
  std::string recording;
  std::optional<std::int32_t> person;
  // Since the start of the recording.
  std::optional<Time::duration> at;
  Time::duration from{0};
  Time::duration to = Time::duration::max();
  bool json = false;
};

/// What is explained of a person, and when it was.
struct Explained {
  Explanation why;
  std::uint64_t cycles = 0;
  Time first;
  Time last;
  bool isRemoved = false;
  /// How often the person came anew after a removal, with a state of 0.
  std::uint64_t newStarts = 0;
};

using ExplainedPersons = std::map<std::int32_t, Explained>;

/// Reads seconds, or minutes and seconds, or hours, minutes and seconds, to the nearest nanosecond;
/// none when it is none of them or too long for a recording.
std::optional<Time::duration> readTime(const std::string& text) {
  double seconds = 0.0;
  const char* position = text.data();
  const char* const end = position + text.size();
  for (int part = 0; part < 3; ++part) {
    double number = 0.0;
    const auto read = std::from_chars(position, end, number, std::chars_format::fixed);
    if (read.ec != std::errc() || !std::isfinite(number) || number < 0.0) return std::nullopt;
    if (part > 0 && number >= 60.0) return std::nullopt;
    if (read.ptr != end && number != std::floor(number)) return std::nullopt;
    seconds = seconds * 60.0 + number;
    if (read.ptr == end) {
      if (seconds > 1e9) return std::nullopt;
      return Time::duration(std::llround(seconds * 1e9));
    }
    if (*read.ptr != ':') return std::nullopt;
    position = read.ptr + 1;
  }
  return std::nullopt;
}

/// Numbers in words have the sign that a text has, and no zero below it.
std::string told(double number) {
  if (std::isnan(number)) return "not a number";
  const std::string digits = fmt::format("{:.4g}", std::round(std::abs(number) * 1e4) / 1e4);
  return number < 0.0 && digits != "0" ? "−" + digits : digits;
}

std::string toldQuantity(std::size_t index) {
  std::string name(nameOf(static_cast<ZV::Quantity>(index)));
  std::replace(name.begin(), name.end(), '_', ' ');
  return name;
}

/// One force, or what the forces of one reason came to.
std::string toldReason(const ReasonMoves& moves) {
  const auto moved = told(moves.up - moves.down);
  if (moves.forces > 1) {
    return fmt::format("{} moved it by {} ({} forces)", moves.reason, moved, moves.forces);
  }
  return fmt::format("{} pulled it towards {} (strength {}), by {}", moves.reason,
                     told(moves.target), told(moves.strength), moved);
}

/// Rounded up, so that a time that is asked for as it was told finds the same cycle.
std::string toldSeconds(Time from, Time to) {
  constexpr std::int64_t millisecond = 1'000'000;
  const std::int64_t nanoseconds = between(from, to).count();
  const std::int64_t milliseconds =
      nanoseconds / millisecond + (nanoseconds % millisecond > 0 ? 1 : 0);
  return fmt::format("{}.{:03}", milliseconds / 1000, milliseconds % 1000);
}

std::string_view toldDirection(const QuantityMoves& moves) {
  if (std::isnan(moves.before) || std::isnan(moves.after)) return "went";
  return moves.after < moves.before ? "fell" : "rose";
}

void printMoment(std::int32_t person, const Explained& moment, Time start) {
  constexpr std::size_t mostReasons = 3;
  fmt::print("person {} at {} s\n", person, toldSeconds(start, moment.last));
  for (std::size_t index = 0; index < moment.why.quantities().size(); ++index) {
    const QuantityMoves& moves = moment.why.quantities().at(index);
    if (moves.reasons.empty()) continue;
    auto reasons = moves.reasons;
    std::stable_sort(reasons.begin(), reasons.end(),
                     [](const ReasonMoves& left, const ReasonMoves& right) {
                       return std::abs(left.up - left.down) > std::abs(right.up - right.down);
                     });
    const std::string before = told(moves.before);
    const std::string after = told(moves.after);
    if (before == after) {
      fmt::print("  {} stayed at {}:\n", toldQuantity(index), after);
    } else {
      fmt::print("  {} {} from {} to {}:\n", toldQuantity(index), toldDirection(moves), before,
                 after);
    }
    for (std::size_t rank = 0; rank < std::min(mostReasons, reasons.size()); ++rank) {
      fmt::print("    {}\n", toldReason(reasons.at(rank)));
    }
    if (reasons.size() > mostReasons) {
      fmt::print("    and {} more\n", reasons.size() - mostReasons);
    }
  }
}

void printSpan(std::int32_t person, const Explained& span, Time start) {
  fmt::print("person {} from {} to {} s, {} cycles", person, toldSeconds(start, span.first),
             toldSeconds(start, span.last), span.cycles);
  if (span.newStarts > 0) fmt::print(", removed and new {} times", span.newStarts);
  fmt::print("\n");
  for (std::size_t index = 0; index < span.why.quantities().size(); ++index) {
    const QuantityMoves& moves = span.why.quantities().at(index);
    if (moves.reasons.empty()) continue;
    const double up = moves.up();
    const double down = moves.down();
    fmt::print("  {} from {} to {}, up by {} and down by {} in all\n", toldQuantity(index),
               told(moves.before), told(moves.after), told(up), told(down));
    fmt::print("    {:<24} {:>8} {:>8} {:>9}\n", "reason", "up", "down", "forces");
    const auto share = [](double part, double all) {
      return all > 0.0 ? fmt::format("{:.1f} %", 100.0 * part / all) : std::string("-");
    };
    for (const ReasonMoves& reason : moves.reasons) {
      fmt::print("    {:<24} {:>8} {:>8} {:>9}\n", reason.reason, share(reason.up, up),
                 share(reason.down, down), reason.forces);
    }
  }
}

void printJson(std::int32_t person, const Explained& explained, bool isMoment) {
  fmt::memory_buffer text;
  JsonLineWriter json(text);
  const auto member = [&json](std::string_view name, double value) {
    json.member(name, static_cast<float>(value));
  };
  json.member("person", std::int64_t{person});
  if (isMoment) {
    json.member("time", explained.last);
  } else {
    json.member("from", explained.first);
    json.member("to", explained.last);
    json.member("cycles", static_cast<std::int64_t>(explained.cycles));
    json.member("new_starts", static_cast<std::int64_t>(explained.newStarts));
  }
  for (std::size_t index = 0; index < explained.why.quantities().size(); ++index) {
    const QuantityMoves& moves = explained.why.quantities().at(index);
    if (moves.reasons.empty()) continue;
    json.key(nameOf(static_cast<ZV::Quantity>(index)));
    json.begin();
    json.member("before", moves.before);
    json.member("after", moves.after);
    member("up", moves.up());
    member("down", moves.down());
    json.key("reasons");
    json.beginList();
    for (const ReasonMoves& reason : moves.reasons) {
      json.begin();
      json.member("reason", reason.reason);
      json.member("forces", static_cast<std::int64_t>(reason.forces));
      member("up", reason.up);
      member("down", reason.down);
      if (isMoment && reason.forces == 1) {
        json.member("target", reason.target);
        json.member("strength", reason.strength);
      }
      json.end();
    }
    json.endList();
    json.end();
  }
  json.finish();
  fmt::print("{}", fmt::to_string(text));
}

/// What the events up to `at` leave: the last cycle of each person who is there; or all cycles from
/// `from` to `to`.
class Explainer {
 public:
  explicit Explainer(const ExplainOptions& options) : _options(options) {}

  void add(Time time, const Event& event, const Row& row) {
    if (!_start) _start = time;
    _end = time;
    const Time::duration since = between(*_start, time);
    if (_options.at && since > *_options.at) return;
    if (const auto* remove = std::get_if<Remove>(&event.what)) {
      const auto person = _persons.find(remove->person);
      if (person == _persons.end()) return;
      if (_options.at) {
        _persons.erase(person);
      } else {
        person->second.isRemoved = true;
      }
    }
    const auto* const state = std::get_if<StateRow>(&row);
    if (state == nullptr || (_options.person && state->person != *_options.person)) return;
    if (_options.at) {
      _persons.erase(state->person);
    } else if (since < _options.from || since > _options.to) {
      return;
    }
    Explained& explained = _persons[state->person];
    if (explained.cycles++ == 0) explained.first = time;
    explained.last = time;
    if (explained.isRemoved) ++explained.newStarts;
    explained.isRemoved = false;
    explained.why.add(state->forces);
  }

  const ExplainedPersons& persons() const { return _persons; }
  Time start() const { return _start.value_or(Time()); }
  Time end() const { return _end; }

 private:
  const ExplainOptions& _options;
  ExplainedPersons _persons;
  std::optional<Time> _start;
  Time _end;
};

void explain(const ExplainOptions& options) {
  catchInterrupts();
  RecordingReader recording(options.recording);
  Explainer explainer(options);
  std::optional<Failure> failure;
  {
    Progress progress(true);
    failure = playAll(recording, progress, Forces::Watched,
                      [&explainer](Time time, const Event& event, const Row& row) {
                        explainer.add(time, event, row);
                      });
  }
  for (const auto& [person, explained] : explainer.persons()) {
    if (options.json) {
      printJson(person, explained, options.at.has_value());
    } else if (options.at) {
      printMoment(person, explained, explainer.start());
    } else {
      printSpan(person, explained, explainer.start());
    }
  }
  if (failure) throw Failure(*failure);
  if (explainer.persons().empty()) {
    const std::string whoHas =
        options.person ? fmt::format("person {} has no", *options.person) : "nobody has a";
    throw Failure(fmt::format("{}: {} cycle there; the recording is {} s long", options.recording,
                              whoHas, toldSeconds(explainer.start(), explainer.end())));
  }
}

template <typename Duration>
CLI::Option* addTime(CLI::App& command, const std::string& name, Duration& time,
                     const std::string& description) {
  return command
      .add_option_function<std::string>(
          name,
          [name, &time](const std::string& text) {
            const auto read = readTime(text);
            if (!read) {
              throw CLI::ValidationError(name, text + " is neither seconds nor like 1:23.5");
            }
            time = *read;
          },
          description)
      ->type_name("TIME");
}

}  // namespace

void addExplain(CLI::App& tool) {
  auto* const command = tool.add_subcommand(
      "explain", "Tell why the state of a person is what it is: the reasons of its movements");
  command->footer(
      R"(A TIME is in seconds since the start of the recording, or like 1:23.5. For a moment (--at) it tells
what moved each person in the last cycle until then, the strongest reasons first; for a span, or
without one for the whole recording, each reason's share of all movement up and down. With --json,
one object a line for each person, with every reason. After a bad line it tells everything up to it.

Examples:
  zorvel explain meeting.jsonl --person 1 --at 12.5
  zorvel explain meeting.jsonl --from 1:00 --to 1:30 --json)");
  const auto options = std::make_shared<ExplainOptions>();
  command->add_option("RECORDING", options->recording, "The recording; - reads standard input")
      ->required();
  command->add_option("--person", options->person, "This person alone")
      ->check(isBetween(std::numeric_limits<std::int32_t>::min(),
                        std::numeric_limits<std::int32_t>::max()))
      ->type_name("N");
  auto* const at = addTime(*command, "--at", options->at, "The moment");
  addTime(*command, "--from", options->from, "Where the span begins")->excludes(at);
  addTime(*command, "--to", options->to, "Where it ends, itself included")->excludes(at);
  command->add_flag("--json", options->json, "Write JSON");
  command->callback([options] {
    if (options->from > options->to) {
      throw CLI::ValidationError("--from", "is after --to");
    }
    explain(*options);
  });
}

}  // namespace zorvel
