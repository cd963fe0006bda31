#include <charconv>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "playback/playback.hpp"
#include "recording/distinct_files.hpp"
#include "recording/recording_cut.hpp"
#include "recording/text_output.hpp"
#include "system/command_line.hpp"
#include "system/interrupt.hpp"
#include "system/progress.hpp"

namespace zorvel {
namespace {

struct CutOptions {
  std::string recording;
  std::string output = "-";
  CutSpan span;
  bool keepsState = false;
  std::vector<std::string> renames;
};

constexpr const char* renameOption = "--rename";

/// Reads OLD=NEW.
std::pair<std::int32_t, std::int32_t> readRename(const std::string& text) {
  const char* const end = text.data() + text.size();
  std::int32_t old = 0;
  std::int32_t renamed = 0;
  const auto middle = std::from_chars(text.data(), end, old);
  if (middle.ec == std::errc() && middle.ptr != end && *middle.ptr == '=') {
    const auto last = std::from_chars(middle.ptr + 1, end, renamed);
    if (last.ec == std::errc() && last.ptr == end) return {old, renamed};
  }
  throw WrongUsage(renameOption, inQuotes(text) + " is not like 3=1");
}

JoinedPeople readRenames(const std::vector<std::string>& texts) {
  JoinedPeople::Ids ids;
  for (const std::string& text : texts) {
    if (!ids.insert(readRename(text)).second) {
      throw WrongUsage(renameOption, inQuotes(text) + " renames a person a second time");
    }
  }
  try {
    return JoinedPeople(ids);
  } catch (const std::invalid_argument& error) {
    throw WrongUsage(renameOption, error.what());
  }
}

void cutRecording(const CutOptions& options) {
  catchInterrupts();
  requireDistinct({options.recording}, {options.output});
  RecordingReader recording(options.recording, waitForInput);
  TextOutput output(options.output, throwIfInterrupted);
  ClockedPlayback playback(Forces::Unwatched);
  RecordingCut cut(recording, options.span,
                   options.keepsState ? keeperOf(playback) : StateKeeper());
  Progress progress(options.output != "-");
  bool isWhole = false;
  while (!isWhole) {
    isWhole = !cut.next(output.text());
    output.flush();
    progress.update(recording.lines());
  }
  output.commit();
}

}  // namespace

void addCut(Command tool) {
  Command command = tool.addSubcommand(
      "cut", "Cut a span out of a recording, as a recording of its own",
      R"(A TIME is in seconds since second 0 of the recording, which info shows, or like 1:23.5;
both ends belong to the span. The lines that are kept stay as they are, to the byte, unless --rename
changes them. A scope that reaches over an edge is opened or closed there, and at the end people are
removed. Seconds count as in the whole recording: where second 0 is the first event and that is not
kept, the header gets an origin.

At the beginning of the cut, people are new. So in its first seconds their states are not those of
the whole: what was perceived before, up to 7 s ago (20 s for an emotion of the situation), is
missing, and states begin at 0 and move smoothly. --lead-in keeps some of what comes before.
--keep-state begins the cut with everybody's state instead, as lines of its own, so that its states
are those of the whole.

--rename is for a tracker that gave one person two ids: every line about OLD becomes one about NEW,
and --person means NEW. A not_seen or a remove under one id is left out while the person is observed
under the other. If both are observed at the same time, they are not one person, which is an error.

--every also keeps each observation with a touch, with speech or with an emotion of the situation. A
state moves with each cycle, so fewer cycles give another state.

Examples:
  zorvel cut meeting.jsonl --from 1:00 --to 1:30 --lead-in 20 --output argument.jsonl
  zorvel cut meeting.jsonl --rename 3=1 --rename 7=1 --output joined.jsonl
  zorvel cut meeting.jsonl --person 2 --every 0.2 | zorvel report - --output small.html)");
  const auto options = std::make_shared<CutOptions>();
  CutSpan& span = options->span;
  command.addRecording(options->recording);
  command.addTime("--from", span.from,
                  "Where the span begins; by default, at the start of the recording");
  command.addTime("--to", span.to, "Where it ends; by default, at the end of the recording");
  command.addPerson(span.person, "Only the lines about this person");
  command.addDuration(
      "--every", span.every, false,
      "Keep one observation and one not_seen of each person in each interval of this length");
  command
      .addDuration("--lead-in", span.leadIn, true, "How much to keep of what comes before --from")
      .showDefault("0");
  command.addFlag("--keep-state", options->keepsState,
                  "Begin with the states that everybody and the room have then");
  command
      .add(renameOption, options->renames,
           "OLD and NEW are ids of one person, who is NEW; may be given several times")
      .type("OLD=NEW")
      .repeatable();
  command.addOutputFile(options->output, "The recording to write");
  command.setAction([options] {
    if (options->span.from && *options->span.from > options->span.to) {
      throw WrongUsage("--from", "is after --to");
    }
    options->span.people = readRenames(options->renames);
    cutRecording(*options);
  });
}

}  // namespace zorvel
