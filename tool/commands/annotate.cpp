#include <fmt/format.h>

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

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
  ChosenAnnotations chosen;
  std::vector<std::string> subjects;
};

void annotateRecording(const AnnotateOptions& options) {
  catchInterrupts();
  requireDistinct({options.recording, options.scopes}, {options.output});
  RecordingReader recording(options.recording, waitForInput);
  TextOutput output(options.output, throwIfInterrupted);
  ScopesOfFile read = readScopes(options.scopes, options.offset, options.chosen, waitForInput);
  RecordingAnnotation annotation(recording, options.scopes, std::move(read.scopes),
                                 std::move(read.leftOut));
  Progress progress(options.output != "-");
  while (annotation.next(output.text())) {
    // Any other output would show what an error takes back.
    if (output.isFile()) output.flush();
    progress.update(recording.lines());
  }
  output.commit();
  for (const std::string& warning : formatWarnings(annotation)) {
    fmt::print(stderr, "{}: warning: {}\n", printable(options.scopes), warning);
  }
}

/// Reads "guest=3", a subject and the person's number, or "3", a subject whose name is the number.
void addSubject(ChosenAnnotations& chosen, const std::string& text) {
  const std::size_t sign = text.rfind('=');
  const bool isMapped = sign != text.npos;
  const auto person = readPerson(isMapped ? std::string_view(text).substr(sign + 1) : text);
  if (!person) {
    throw WrongUsage("--subject",
                     inQuotes(text) + " is neither like guest=3 nor a person's number");
  }
  chosen.subjects[text.substr(0, sign)] = isMapped ? person : std::nullopt;
}

}  // namespace

void addAnnotate(Command tool) {
  Command command = tool.addSubcommand(
      "annotate", "Put the scopes of a table into a recording",
      R"(The table is a CSV file with the columns person, scope, begin and end; others are ignored.
begin and end are in seconds since second 0 of the recording, or like 1:23.5, or times like
2024-05-17T09:30:00Z; both belong to the scope. Every byte of the recording stays; lines that open
and close the scopes are added. Where the person is removed, or renamed to another id, within a row,
each visit gets a scope of that name. If a scope does not fit, nothing is written.

SCOPES may also be a file of ELAN (.eaf), events that BORIS exports, or the events.tsv of BIDS,
whose seconds are the film's. There, an annotation gives the scope its name, and its subject is the
person. An annotation at a time when its person is not there is left out, and reported with its tier
and time.

Examples:
  zorvel annotate meeting.jsonl phases.csv | zorvel replay - --output results
  zorvel annotate meeting.jsonl phases.csv --offset 12.48 --output scopes.jsonl
  zorvel annotate meeting.jsonl film.eaf --tier smiles --subject guest=1 --output smiles.jsonl)");
  const auto options = std::make_shared<AnnotateOptions>();
  command.addRecording(options->recording);
  command.add("SCOPES", options->scopes, "The table; - reads standard input").required();
  command
      .addTime("--offset", options->offset,
               "The second of the recording at which the table's seconds begin")
      .type("SECONDS")
      .showDefault("0");
  command
      .add("--tier", options->chosen.tiers,
           "Only this tier of ELAN, behaviour of BORIS or trial type of BIDS; may be given several "
           "times")
      .type("NAME")
      .repeatable();
  command
      .add("--subject", options->subjects,
           "Only annotations of this subject, and which person that is, as in guest=3; a subject "
           "whose name is the person's number needs only the name; may be given several times")
      .type("NAME=N")
      .repeatable();
  command.addPerson(options->chosen.person, "The person of annotations without a subject");
  command.addOutputFile(options->output, "The recording to write");
  command.setAction([options] {
    if (options->recording == "-" && options->scopes == "-") {
      throw WrongUsage("SCOPES", "standard input can be read only once");
    }
    for (const std::string& text : options->subjects) addSubject(options->chosen, text);
    annotateRecording(*options);
  });
}

}  // namespace zorvel
