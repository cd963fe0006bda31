#include <fmt/format.h>

#include <memory>
#include <vector>

#include "export/elan.hpp"
#include "recording/distinct_files.hpp"
#include "recording/printable.hpp"
#include "system/command_line.hpp"
#include "system/interrupt.hpp"
#include "system/progress.hpp"

namespace zorvel {
namespace {

struct ExportOptions {
  std::string recording;
  ElanFiles files;
};

void exportRecording(const ExportOptions& options) {
  catchInterrupts();
  std::vector<std::string> outputs{options.files.document};
  if (!options.files.series.empty()) outputs.push_back(options.files.series);
  requireDistinct({options.recording}, outputs);
  RecordingReader recording(options.recording, waitForInput);
  ElanOutcome outcome;
  {
    Progress progress(options.files.document != "-");
    outcome = exportToElan(
        recording, options.files, [&] { progress.update(recording.lines()); }, throwIfInterrupted);
  }
  if (!outcome.leftOut.empty()) {
    fmt::print(stderr, "{}: warning: {}\n", printable(options.recording), outcome.leftOut);
  }
  if (outcome.failure) throw Failure(*outcome.failure);
}

void addElan(Command exportCommand) {
  Command command = exportCommand.addSubcommand(
      "elan", "Write scopes, moods and visits as tiers of ELAN",
      R"(The document (.eaf) has tiers for each person: the scopes, where they were closed; the
mood, where the valence is known; and the visits. ELAN counts milliseconds from the film's second 0;
a start is rounded down and an end is rounded up, so that annotate restores the scopes over the same
cycles.

Example:
  zorvel export elan meeting.jsonl --film meeting.mp4 --output meeting.eaf)");
  const auto options = std::make_shared<ExportOptions>();
  command.addRecording(options->recording);
  command.add("--film", options->files.film, "The film that the document names").type("FILE");
  command
      .add("--series", options->files.series,
           "Write a CSV file for the viewer of time series: each cycle of one person")
      .type("FILE");
  command.addPerson(options->files.person, "Only this person");
  command.addOutputFile(options->files.document, "The document to write");
  command.setAction([options] { exportRecording(*options); });
}

}  // namespace

void addExport(Command tool) {
  Command command =
      tool.addSubcommand("export", "Turn a recording into a file for another program", R"(Example:
  zorvel export elan meeting.jsonl --film meeting.mp4 --output meeting.eaf)");
  command.requireSubcommand();
  addElan(command);
}

}  // namespace zorvel
