#include <CLI/CLI.hpp>
#include <optional>

#include "inspection/findings.hpp"
#include "playback/playback.hpp"
#include "recording/failure.hpp"
#include "recording/printable.hpp"
#include "recording/recording_reader.hpp"
#include "report/report_data.hpp"
#include "report/report_page.hpp"
#include "system/command_line.hpp"
#include "system/distinct_files.hpp"
#include "system/interrupt.hpp"
#include "system/progress.hpp"
#include "system/text_output.hpp"
#include "system/warnings.hpp"

namespace zorvel {
namespace {

void report(const std::string& name, const std::string& output) {
  catchInterrupts();
  requireDistinct({name}, {output});
  RecordingReader recording(name, waitForInput);
  TextOutput page(output);
  ReportData data;
  RecordingFacts facts;
  std::optional<Failure> failure;
  {
    Progress progress(true);
    failure =
        playAll(recording, Forces::Watched, [&](Time time, const Event& event, const Row& row) {
          data.add(time, event, row);
          facts.add(event, recording.lines().lineNumber());
          progress.update(recording.lines());
        });
  }
  // When not even the first line can be read, an earlier report stays.
  if (failure && recording.lines().lineNumber() == 0) throw Failure(*failure);
  // After a bad line, the page shows what the lines before it gave.
  const std::string title =
      name == "-" ? "standard input" : printable(std::filesystem::path(name).filename().string());
  const auto findings = findingsOf(facts);
  std::vector<std::string> warnings;
  for (const Finding& finding : findings) {
    if (finding.isWarning) warnings.push_back(finding.text);
  }
  const std::string_view frame = reportPage();
  const std::size_t hole = frame.find(reportPageHole);
  page.append(frame.substr(0, hole));
  page.append(data.json(title, recording.source(), failure ? failure->what() : "", warnings));
  page.append(frame.substr(hole + reportPageHole.size()));
  page.flush();
  page.commit();
  printWarnings(name, findings);
  if (failure) throw Failure(*failure);
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
