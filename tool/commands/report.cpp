#include "report/report.hpp"

#include <cstddef>
#include <ku/log.hpp>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "playback/what_mattered.hpp"
#include "recording/distinct_files.hpp"
#include "recording/failure.hpp"
#include "recording/recording_reader.hpp"
#include "recording/text_output.hpp"
#include "system/command_line.hpp"
#include "system/interrupt.hpp"
#include "system/progress.hpp"
#include "system/warnings.hpp"

namespace zorvel {
namespace {

struct ReportOptions {
  std::vector<std::string> recordings;
  std::string output = "report.html";
  std::optional<std::string> scope;
  bool showsWhatMattered = false;
  unsigned int jobs = 1;
};

void reportOne(const ReportOptions& options) {
  const std::string& name = options.recordings.front();
  RecordingReader recording(name, waitForInput);
  TextOutput page(options.output, throwIfInterrupted);
  std::optional<WhatMattered> mattered;
  if (options.showsWhatMattered) {
    // The library would warn once for each of the replays.
    ku::log::setLevel(ku::log::Error);
    mattered.emplace(std::vector{std::string(everyField)}, options.jobs);
  }
  ReportResult result;
  {
    Progress progress(true);
    // When not even the first line can be read, an earlier report stays. After a bad line, the page
    // shows what the lines before it gave.
    result = writeReport(recording, reportTitle(name), page, mattered ? &*mattered : nullptr,
                         [&] { progress.update(recording.lines()); });
  }
  page.commit();
  printWarnings(name, result.findings);
  if (result.failure) throw Failure(*result.failure);
}

void reportSeveral(const ReportOptions& options) {
  TextOutput page(options.output, throwIfInterrupted);
  std::vector<ReportResult> results;
  {
    Progress progress(true);
    results = writeReport(options.recordings, options.scope, page, waitForInput,
                          [&](const LineReader& lines) { progress.update(lines); });
  }
  page.commit();
  for (std::size_t index = 0; index < results.size(); ++index) {
    printWarnings(options.recordings[index], results[index].findings);
  }
  const std::string failures = failuresOf(results);
  if (!failures.empty()) throw Failure(failures);
}

void report(const ReportOptions& options) {
  catchInterrupts();
  requireDistinct(options.recordings, {options.output});
  if (options.recordings.size() > 1 || options.scope) {
    reportSeveral(options);
  } else {
    reportOne(options);
  }
}

}  // namespace

void addReport(Command tool) {
  Command command = tool.addSubcommand(
      "report", "Replay recordings and show them on one page for a browser",
      R"(The page shows each person's valence, attention, mood, ease and scopes over time, the
room's agitation, a summary and the greatest changes. It is one file that holds every
cycle, needs no network, and zooms: drag, double click, or + - left right 0. After a bad
line it shows everything up to it.

The page of several recordings begins with a table of all and their curves, one below the
other. 0 is each recording's second 0 or, with --align, the start of a scope in it. When one
recording fails, the others are shown.

Examples:
  zorvel report meeting.jsonl --output meeting.html
  zorvel report visit-1.jsonl visit-2.jsonl --align greeting --output visits.html)");
  const auto options = std::make_shared<ReportOptions>();
  command.addRecordings(options->recordings);
  command
      .add("--align", options->scope,
           "Align the curves by the start of the first scope of this name in each")
      .type("SCOPE");
  command.addOutputFile(options->output, "The page to write");
  command
      .addFlag("--mattered", options->showsWhatMattered,
               "Replay the recording once more without each field, and show how much each mattered")
      .excludes("--align");
  command.addJobs(options->jobs, "With --mattered: how many replays run at once");
  command.setAction([options] {
    if (options->showsWhatMattered && options->recordings.size() > 1) {
      throw WrongUsage("--mattered", "takes one recording");
    }
    report(*options);
  });
}

}  // namespace zorvel
