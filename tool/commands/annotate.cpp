#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "import/csv_reader.hpp"
#include "recording/distinct_files.hpp"
#include "recording/failure.hpp"
#include "recording/recording_annotation.hpp"
#include "recording/recording_writer.hpp"
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
};

ScopeOfTable::Moment readMoment(const CsvReader& rows, CsvReader::Column column) {
  std::string text(rows.text(column));
  std::replace(text.begin(), text.end(), ',', '.');
  if (const auto since = readTimeSinceStart(text)) return *since;
  // A whole number would be a date, too, in nanoseconds.
  if (text.find('T') != text.npos) {
    if (const auto date = readDate(text)) return *date;
  }
  rows.fail(column, inQuotes(rows.text(column)) +
                        " is neither seconds, nor like 1:23.5, nor like 2024-05-17T09:30:00Z");
}

/// Whether a recording can hold the name.
bool isReadable(const ScopeOfTable& row) {
  fmt::memory_buffer line;
  appendEvent(line, {Time(), StopRecording{row.person, row.scope}});
  std::string text = fmt::to_string(line);
  try {
    EventReader(MissingTime::Error).read(text);
    return true;
  } catch (const JsonError&) {
    return false;
  }
}

std::vector<ScopeOfTable> readScopes(const std::string& file) {
  CsvReader rows(file, waitForInput);
  const auto person = rows.get("person");
  const auto scope = rows.get("scope");
  const auto begin = rows.get("begin");
  const auto end = rows.get("end");
  std::vector<ScopeOfTable> scopes;
  while (rows.next()) {
    ScopeOfTable row{rows.lines().lineNumber(), rows.requiredInteger32(person),
                     std::string(rows.text(scope)), readMoment(rows, begin), readMoment(rows, end)};
    if (row.scope.empty()) rows.fail(scope, "must have a name");
    if (!isReadable(row)) rows.fail(scope, inQuotes(row.scope) + " is not UTF-8");
    scopes.push_back(std::move(row));
  }
  if (!rows.cutOffRow().empty()) throw Failure(rows.cutOffRow());
  return scopes;
}

void annotateRecording(const AnnotateOptions& options) {
  catchInterrupts();
  requireDistinct({options.recording, options.scopes}, {options.output});
  RecordingReader recording(options.recording, waitForInput);
  TextOutput output(options.output, throwIfInterrupted);
  RecordingAnnotation annotation(recording, options.scopes, readScopes(options.scopes));
  Progress progress(options.output != "-");
  while (annotation.next(output.text())) {
    // Anything else would show what an error takes back.
    if (output.isFile()) output.flush();
    progress.update(recording.lines());
  }
  output.commit();
}

}  // namespace

void addAnnotate(Command tool) {
  Command command = tool.addSubcommand(
      "annotate", "Put the scopes of a table into a recording",
      R"(The table is a CSV file with the columns person, scope, begin and end; further ones are ignored. A
begin or an end is in seconds since the start of the recording, or like 1:23.5, or a time like
2024-05-17T09:30:00Z; both belong to the scope. Every
byte of the recording stays; lines that open and close the scopes come in. If a scope does not fit,
nothing is written.

Example:
  zorvel annotate meeting.jsonl phases.csv | zorvel replay - --output results)");
  const auto options = std::make_shared<AnnotateOptions>();
  command.addRecording(options->recording);
  command.add("SCOPES", options->scopes, "The table; - reads standard input").required();
  command.addOutputFile(options->output, "The recording to write");
  command.setAction([options] {
    if (options->recording == "-" && options->scopes == "-") {
      throw WrongUsage("SCOPES", "standard input can be read only once");
    }
    annotateRecording(*options);
  });
}

}  // namespace zorvel
