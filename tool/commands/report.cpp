#include "report/report.hpp"

#include <filesystem>
#include <memory>
#include <string>

#include "recording/failure.hpp"
#include "recording/printable.hpp"
#include "recording/recording_reader.hpp"
#include "recording/text_output.hpp"
#include "system/command_line.hpp"
#include "system/distinct_files.hpp"
#include "system/interrupt.hpp"
#include "system/progress.hpp"
#include "system/warnings.hpp"

namespace zorvel {
namespace {

void report(const std::string& name, const std::string& output) {
  catchInterrupts();
  requireDistinct({name}, {output});
  RecordingReader recording(name, waitForInput);
  TextOutput page(output, throwIfInterrupted);
  ReportResult result;
  {
    Progress progress(true);
    const std::string title =
        name == "-" ? "standard input" : printable(std::filesystem::path(name).filename().string());
    // When not even the first line can be read, an earlier report stays. After a bad line, the page
    // shows what the lines before it gave.
    result = writeReport(recording, title, page, [&] { progress.update(recording.lines()); });
  }
  page.commit();
  printWarnings(name, result.findings);
  if (result.failure) throw Failure(*result.failure);
}

}  // namespace

void addReport(CLI::App& tool) {
  auto* const command =
      tool.add_subcommand("report", "Show a recording, replayed, on one page for a browser");
  command->footer(
      R"(The page shows each person's valence, attention, mood, ease and scopes over time, the
room's agitation, a summary and the greatest changes. It is one file that holds every
cycle, needs no network, and zooms: drag, double click, or + - left right 0. After a bad
line it shows everything up to it.

Example:
  zorvel report meeting.jsonl --output meeting.html)");
  const auto recording = std::make_shared<std::string>();
  const auto output = std::make_shared<std::string>("report.html");
  addRecording(*command, *recording);
  addOutputFile(*command, *output, "The page to write");
  command->callback([recording, output] { report(*recording, *output); });
}

}  // namespace zorvel
