#include <fmt/format.h>

#include <memory>
#include <string>

#include "import/scope_table.hpp"
#include "inspection/format.hpp"
#include "recording/distinct_files.hpp"
#include "recording/printable.hpp"
#include "recording/recording_annotation.hpp"
#include "recording/text_output.hpp"
#include "system/command_line.hpp"
#include "system/interrupt.hpp"
#include "system/progress.hpp"

namespace zorvel {
namespace {

struct AnnotateOptions {
  std::string recording;
  std::string scopes;
  std::string output = "-";
  /// When the table's clock began, since second 0 of the recording.
  Time::duration offset{};
};

void annotateRecording(const AnnotateOptions& options) {
  catchInterrupts();
  requireDistinct({options.recording, options.scopes}, {options.output});
  RecordingReader recording(options.recording, waitForInput);
  TextOutput output(options.output, throwIfInterrupted);
  RecordingAnnotation annotation(recording, options.scopes,
                                 readScopes(options.scopes, options.offset, waitForInput));
  Progress progress(options.output != "-");
  while (annotation.next(output.text())) {
    // Anything else would show what an error takes back.
    if (output.isFile()) output.flush();
    progress.update(recording.lines());
  }
  output.commit();
  const std::string parted = formatParted(annotation.parted());
  if (parted.empty()) return;
  fmt::print(stderr, "{}: warning: {}\n", printable(options.scopes), parted);
}

}  // namespace

void addAnnotate(Command tool) {
  Command command = tool.addSubcommand(
      "annotate", "Put the scopes of a table into a recording",
      R"(The table is a CSV file with the columns person, scope, begin and end; further ones are ignored. A
begin or an end is in seconds since second 0 of the recording, or like 1:23.5, or a time like
2024-05-17T09:30:00Z; both belong to the scope. Every
byte of the recording stays; lines that open and close the scopes come in. Where the person is removed,
or renamed to another id, within a row, each visit gets a scope of that name. If a scope does not fit,
nothing is written.

Examples:
  zorvel annotate meeting.jsonl phases.csv | zorvel replay - --output results
  zorvel annotate meeting.jsonl phases.csv --offset 12.48 --output scopes.jsonl)");
  const auto options = std::make_shared<AnnotateOptions>();
  command.addRecording(options->recording);
  command.add("SCOPES", options->scopes, "The table; - reads standard input").required();
  command
      .addTime("--offset", options->offset,
               "When the clock of the table's seconds began, since second 0 of the recording")
      .type("SECONDS")
      .showDefault("0");
  command.addOutputFile(options->output, "The recording to write");
  command.setAction([options] {
    if (options->recording == "-" && options->scopes == "-") {
      throw WrongUsage("SCOPES", "standard input can be read only once");
    }
    annotateRecording(*options);
  });
}

}  // namespace zorvel
