#include <fmt/format.h>

#include <optional>

#include "inspection/info_report.hpp"
#include "inspection/recording_facts.hpp"
#include "recording/distinct_files.hpp"
#include "recording/failure.hpp"
#include "recording/printable.hpp"
#include "recording/recording_reader.hpp"
#include "system/command_line.hpp"
#include "system/interrupt.hpp"
#include "system/progress.hpp"

namespace zorvel {
namespace {

void info(const std::string& name, bool asJson) {
  catchInterrupts();
  requireDistinct({name}, {"-"});
  RecordingReader recording(name, waitForInput);
  RecordingFacts facts;
  std::optional<Failure> failure;
  {
    Progress progress(true);
    try {
      while (const auto event = recording.next()) {
        facts.add(*event, recording.lines().lineNumber());
        progress.update(recording.lines());
      }
    } catch (const Failure& error) {
      failure = error;
    }
  }
  // The lines before a bad one often show why it is bad.
  const InfoSource source{printable(name),
                          recording.source(),
                          recording.origin(),
                          recording.secondZero(),
                          recording.lines().lineNumber(),
                          failure ? failure->what() : ""};
  fmt::print("{}", asJson ? formatInfoJson(source, facts) : formatInfo(source, facts));
  if (failure) throw Failure(*failure);
}

}  // namespace

void addInfo(Command tool) {
  Command command =
      tool.addSubcommand("info", "Show what is in a recording, and what looks wrong with it",
                         R"(A person's cycles are its observation and not_seen lines. In the tables:
  faces     cycles with a face: faceDetected is not false, and there is a head posture, a smile,
            expressions or facial points
  unseen    cycles that are not_seen
  from, to  seconds since second 0, by the replay's clock, which never runs backwards
  Hz        cycles per second, by the median time from one to the next
  gaps      times from one cycle to the next above 3 medians and above 1 s, unless the person was
            removed in between; the longest, and when it began
  cycles    the share of a person's cycles that have the field
  late      the line's time minus the reading's own
  repeated  readings with the time of one that is still remembered; they are dropped
  future    readings with a later time than their line's
  expired   readings that are too old for the memory when they come; what looks wrong says how long
            the memory keeps them
  zero      the share of all values of that number that are 0
Medians are within 0.4 %: they are taken from a histogram, so that memory does not grow with the
recording. A bad line ends the reading; what the lines before it hold is still printed.

Examples:
  zorvel info meeting.jsonl
  my-perception | zorvel info - --json)");
  struct Options {
    std::string recording;
    bool json = false;
  };
  const auto options = std::make_shared<Options>();
  command.addRecording(options->recording);
  command.addFlag("--json", options->json,
                  "The same as a JSON object, times in nanoseconds; each finding has a kind, a "
                  "text and the first line that shows it");
  command.setAction([options] { info(options->recording, options->json); });
}

}  // namespace zorvel
