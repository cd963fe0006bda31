#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <ku/log.hpp>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "inspection/format.hpp"
#include "playback/columns.hpp"
#include "playback/explained_changes.hpp"
#include "playback/explainer.hpp"
#include "playback/explanation_line.hpp"
#include "playback/playback.hpp"
#include "playback/what_mattered.hpp"
#include "recording/distinct_files.hpp"
#include "recording/failure.hpp"
#include "recording/printable.hpp"
#include "recording/recording_reader.hpp"
#include "system/command_line.hpp"
#include "system/interrupt.hpp"
#include "system/progress.hpp"

namespace zorvel {
namespace {

struct ExplainOptions {
  std::string recording;
  ExplainedTime time;
  /// As many of the greatest changes; 0 for an explanation of a time.
  std::size_t greatest = 0;
  /// Fields by name, or all of them; none for an explanation of a time.
  std::vector<std::string> without;
  unsigned int jobs = 1;
  bool json = false;
};

constexpr std::size_t mostReasons = 3;

std::string formatQuantity(std::size_t index) {
  std::string name(nameOf(static_cast<ZV::Quantity>(index)));
  std::replace(name.begin(), name.end(), '_', ' ');
  return name;
}

/// One force, or the sum of the forces of one reason.
std::string formatReason(const ReasonMoves& moves) {
  const auto moved = formatNumber(moves.up - moves.down);
  if (moves.forces > 1) {
    return fmt::format("{} moved it by {} ({} forces)", labelOf(moves.reason), moved, moves.forces);
  }
  return fmt::format("{} pulled it towards {} (strength {}), by {}", labelOf(moves.reason),
                     formatNumber(moves.target), formatNumber(moves.strength), moved);
}

std::string_view formatDirection(const QuantityMoves& moves) {
  if (std::isnan(moves.before) || std::isnan(moves.after)) return "went";
  return moves.after < moves.before ? "fell" : "rose";
}

void printReadings(const std::vector<FieldReadings>& readings) {
  for (const FieldReadings& of : readings) fmt::print("      {}\n", describe(of));
}

void printMoment(std::int32_t person, const Explainer& explainer) {
  const ExplainedPerson& moment = explainer.persons().at(person);
  fmt::print("person {} at {} s\n", person, formatSeconds(explainer.secondZero(), moment.last));
  for (std::size_t index = 0; index < moment.why.quantities().size(); ++index) {
    const QuantityMoves& moves = moment.why.quantities().at(index);
    if (moves.reasons.empty()) continue;
    auto reasons = moves.reasons;
    std::stable_sort(reasons.begin(), reasons.end(),
                     [](const ReasonMoves& left, const ReasonMoves& right) {
                       return std::abs(left.up - left.down) > std::abs(right.up - right.down);
                     });
    const std::string before = formatNumber(moves.before);
    const std::string after = formatNumber(moves.after);
    if (before == after) {
      fmt::print("  {} stayed at {}:\n", formatQuantity(index), after);
    } else {
      fmt::print("  {} {} from {} to {}:\n", formatQuantity(index), formatDirection(moves), before,
                 after);
    }
    for (std::size_t rank = 0; rank < std::min(mostReasons, reasons.size()); ++rank) {
      fmt::print("    {}\n", formatReason(reasons.at(rank)));
      printReadings(explainer.behind(person, reasons.at(rank).reason));
    }
    if (reasons.size() > mostReasons) {
      fmt::print("    and {} more\n", reasons.size() - mostReasons);
    }
  }
}

void printSpan(std::int32_t person, const ExplainedPerson& span, Time secondZero) {
  fmt::print("person {} from {} to {} s, {}", person, formatSeconds(secondZero, span.first),
             formatSeconds(secondZero, span.last), formatCount(span.cycles, "cycle"));
  if (span.newStarts > 0) {
    fmt::print(", removed and new {}", formatCount(span.newStarts, "time"));
  }
  fmt::print("\n");
  for (std::size_t index = 0; index < span.why.quantities().size(); ++index) {
    const QuantityMoves& moves = span.why.quantities().at(index);
    if (moves.reasons.empty()) continue;
    const double up = moves.up();
    const double down = moves.down();
    fmt::print("  {} from {} to {}, up by {} and down by {} in all\n", formatQuantity(index),
               formatNumber(moves.before), formatNumber(moves.after), formatNumber(up),
               formatNumber(down));
    fmt::print("    {:<30} {:>8} {:>8} {:>9}\n", "reason", "up", "down", "forces");
    const auto share = [](double part, double all) {
      return all > 0.0 ? fmt::format("{:.1f} %", 100.0 * part / all) : std::string("-");
    };
    for (const ReasonMoves& reason : moves.reasons) {
      fmt::print("    {:<30} {:>8} {:>8} {:>9}\n", labelOf(reason.reason), share(reason.up, up),
                 share(reason.down, down), reason.forces);
    }
  }
}

/// The greatest changes, each with its main reasons.
void printGreatest(const GreatestChanges& greatest) {
  for (const ExplainedChange& change : greatest.changes) {
    fmt::print("person {}: {} {} from {} to {} between {} and {} s:\n", change.person,
               formatQuantity(static_cast<std::size_t>(change.quantity)),
               change.after < change.before ? "fell" : "rose",
               formatNumber(static_cast<double>(change.before)),
               formatNumber(static_cast<double>(change.after)),
               formatSeconds(greatest.secondZero, change.first),
               formatSeconds(greatest.secondZero, change.last));
    for (std::size_t rank = 0; rank < std::min(mostReasons, change.reasons.size()); ++rank) {
      const ExplainedReason& reason = change.reasons.at(rank);
      fmt::print("    {}\n", formatReason(reason.moves));
      printReadings(reason.readings);
    }
  }
}

void explainGreatestChanges(const ExplainOptions& options) {
  catchInterrupts();
  requireDistinct({options.recording}, {"-"});
  std::optional<RecordingReader> recording;
  GreatestChanges greatest;
  {
    Progress progress(true);
    greatest = explainGreatest(
        [&]() -> RecordingReader& { return recording.emplace(options.recording, waitForInput); },
        options.time.person, options.greatest, [&] { progress.update(recording->lines()); });
  }
  fmt::memory_buffer json;
  for (const ExplainedChange& change : greatest.changes) {
    appendExplanationLine(json, change, greatest.secondZero);
  }
  if (options.json) {
    fmt::print("{}", fmt::to_string(json));
  } else if (greatest.changes.empty() && !greatest.failure) {
    fmt::print("no change of 5 % of a range or more after the first second of anybody\n");
  } else {
    printGreatest(greatest);
  }
  if (greatest.failure) throw Failure(*greatest.failure);
}

/// A table for each person.
void printMattered(const std::vector<Mattered>& rows) {
  std::optional<std::int32_t> person;
  for (const Mattered& row : rows) {
    if (person != row.person) {
      person = row.person;
      fmt::print(
          "person {}, {}; the change of each number without a field, on average and at most, "
          "and the share of cycles with another label\n  {:<14}",
          row.person, formatCount(row.cycles, "cycle"), "without");
      for (const std::string_view name :
           {"valence", "confidence", "attention", "confidence", "ease", "confidence"}) {
        fmt::print(" {:>13}", name);
      }
      fmt::print(" {:>7} {:>9}\n", "mood", "attentive");
    }
    fmt::print("  {:<14}", row.field);
    if (row.changesNothing()) {
      fmt::print(" nothing{}{}\n", row.reason.empty() ? "" : ": ", row.reason);
      continue;
    }
    for (const QuantityChange& change : row.quantities) {
      if (change.greatest == 0.0f) {
        fmt::print(" {:>13}", "-");
        continue;
      }
      fmt::print(
          " {:.3f} {:>7}", change.mean,
          fmt::format("{}{:.3f}", change.greatest < 0.0f ? "−" : "+", std::abs(change.greatest)));
    }
    fmt::print(" {:>5.1f} % {:>7.1f} %\n", 100.0 * row.otherMood, 100.0 * row.otherAttentive);
  }
}

void explainWhatMattered(const ExplainOptions& options) {
  catchInterrupts();
  // The library would warn once for each of the replays.
  ku::log::setLevel(ku::log::Error);
  requireDistinct({options.recording}, {"-"});
  RecordingReader recording(options.recording, waitForInput);
  WhatMattered mattered(options.without, options.jobs);
  std::optional<Failure> failure;
  std::vector<Mattered> rows;
  {
    Progress progress(true);
    failure = playAll(recording, Forces::Unwatched,
                      [&](Time /*time*/, const Event& event, const Row& row) {
                        mattered.add(event, row);
                        progress.update(recording.lines());
                      });
    rows = mattered.rows();
  }
  const auto person = options.time.person;
  rows.erase(std::remove_if(rows.begin(), rows.end(),
                            [&](const Mattered& row) { return person && *person != row.person; }),
             rows.end());
  if (options.json) {
    fmt::memory_buffer json;
    for (const Mattered& row : rows) appendExplanationLine(json, row);
    fmt::print("{}", fmt::to_string(json));
  } else {
    printMattered(rows);
  }
  if (failure) throw Failure(*failure);
  if (rows.empty()) {
    const std::string who = person ? fmt::format("person {} has no", *person) : "nobody has a";
    throw Failure(fmt::format("{}: {} cycle", printable(options.recording), who));
  }
}

void explainRecording(const ExplainOptions& options) {
  catchInterrupts();
  requireDistinct({options.recording}, {"-"});
  RecordingReader recording(options.recording, waitForInput);
  Explainer explainer(options.time);
  std::optional<Failure> failure;
  {
    Progress progress(true);
    failure = explain(recording, explainer, [&] { progress.update(recording.lines()); });
  }
  fmt::memory_buffer json;
  for (const auto& [person, explained] : explainer.persons()) {
    if (options.json) {
      appendExplanationLine(json, person, explainer);
    } else if (options.time.at) {
      printMoment(person, explainer);
    } else {
      printSpan(person, explained, explainer.secondZero());
    }
  }
  fmt::print("{}", fmt::to_string(json));
  if (failure) throw Failure(*failure);
}

void explain(const ExplainOptions& options) {
  if (!options.without.empty()) {
    explainWhatMattered(options);
    return;
  }
  if (options.greatest > 0) {
    if (std::error_code error; std::filesystem::exists(options.recording, error) !=
                                   std::filesystem::is_regular_file(options.recording, error) ||
                               options.recording == "-") {
      throw WrongUsage("--greatest", "reads the recording twice, so it needs a file");
    }
    explainGreatestChanges(options);
    return;
  }
  if (options.time.from > options.time.to) throw WrongUsage("--from", "is after --to");
  explainRecording(options);
}

}  // namespace

void addExplain(Command tool) {
  Command command = tool.addSubcommand(
      "explain", "Explain why the state of a person is what it is: the reasons for its movements",
      R"(A TIME is in seconds since second 0 of the recording, which info shows, or like 1:23.5. For a
moment (--at), it lists what moved each person in the last cycle at or before it, the strongest
reasons first. For a span, or without one for the whole recording, it lists each reason's share
of all movement up and down. With --greatest, it lists the greatest changes, what moved the state
there, and the readings behind that, as --at does. With --without, it replays the recording once
more without each field that is named, one at a time, and lists what changes. With --json, it
writes one object per line for each person, change or field, with every reason. After a bad line,
it explains everything up to it; what comes after a moment is not read.

Examples:
  zorvel explain meeting.jsonl --person 1 --at 12.5
  zorvel explain meeting.jsonl --from 1:00 --to 1:30 --json
  zorvel explain meeting.jsonl --greatest 3
  zorvel explain meeting.jsonl --without all)");
  const auto options = std::make_shared<ExplainOptions>();
  command.addRecording(options->recording);
  command.addPerson(options->time.person, "Only this person");
  command.addTime("--at", options->time.at, "The moment");
  command.addTime("--from", options->time.from, "Where the span begins").excludes("--at");
  command.addTime("--to", options->time.to, "Where it ends, inclusive").excludes("--at");
  command
      .addWholeNumber("--greatest", options->greatest, 1, 1'000,
                      "The N greatest changes of the valence and of the attention within a second")
      .excludes("--at")
      .excludes("--from")
      .excludes("--to");
  std::vector<std::string> fields{std::string(everyField)};
  for (const FieldKind& kind : fieldKinds) fields.emplace_back(kind.name);
  command
      .add("--without", options->without,
           "How much this field mattered; may be given several times; all for a table of all")
      .type("FIELD")
      .repeatable()
      .oneOf(fields)
      .excludes("--at")
      .excludes("--from")
      .excludes("--to")
      .excludes("--greatest");
  command.addJobs(options->jobs, "With --without: how many replays run at once");
  command.addFlag("--json", options->json, "Write JSON");
  command.setAction([options] { explain(*options); });
}

}  // namespace zorvel
