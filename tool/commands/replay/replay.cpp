#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <future>
#include <ku/log.hpp>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "commands/replay/csv_files.hpp"
#include "inspection/findings.hpp"
#include "playback/csv.hpp"
#include "playback/playback.hpp"
#include "playback/summary.hpp"
#include "playback/summary_table.hpp"
#include "recording/distinct_files.hpp"
#include "recording/failure.hpp"
#include "recording/printable.hpp"
#include "recording/recording_reader.hpp"
#include "recording/text_output.hpp"
#include "system/command_line.hpp"
#include "system/interrupt.hpp"
#include "system/output_folder.hpp"
#include "system/progress.hpp"
#include "system/warnings.hpp"

namespace zorvel {
namespace {

struct ReplayOptions {
  std::vector<std::string> recordings;
  std::string output = ".";
  std::string timeline;
  std::string summary;
  /// Whether each recording gets its files of results.
  bool writesFiles = true;
  unsigned int jobs = 1;
  bool each = false;
  bool quiet = false;
  bool forces = false;
};

/// One recording, and what came of it.
struct Job {
  std::string recording;
  std::filesystem::path folder;
  Summary summary;
  SummaryTable table;
  std::vector<Finding> findings;
  std::string failure;
};

/// Replays one recording into its folder. Returns what ended it early, as playAll does.
std::optional<Failure> replayInto(Job& job, const ReplayOptions& options,
                                  const std::function<void(const LineReader&)>& showProgress) {
  const Forces forces = options.forces ? Forces::Watched : Forces::Unwatched;
  RecordingReader recording(job.recording, waitForInput);
  std::optional<CsvFiles> files;
  if (options.writesFiles) files.emplace(job.folder, forces);
  RecordingFacts facts;
  auto failure = playAll(recording, forces, [&](Time time, const Event& event, const Row& row) {
    if (files) files->write(time, row);
    job.summary.add(time, row);
    if (!options.summary.empty()) job.table.add(time, event, row);
    if (!options.quiet) facts.add(event, recording.lines().lineNumber());
    showProgress(recording.lines());
  });
  // When not even the first line can be read, earlier results stay.
  if (failure && recording.lines().lineNumber() == 0) throw Failure(*failure);
  if (files) files->commit();
  job.findings = findingsOf(facts);
  return failure;
}

void replayOne(const ReplayOptions& options) {
  auto outputs = CsvFiles::names(options.output);
  if (!options.quiet) outputs.emplace_back("-");
  requireDistinct(options.recordings, outputs);
  Job job{options.recordings.front(), options.output, {}, {}, {}, {}};
  std::optional<Failure> failure;
  {
    Progress progress(!options.quiet);
    failure =
        replayInto(job, options, [&progress](const LineReader& lines) { progress.update(lines); });
  }
  if (!options.quiet) {
    fmt::print("{}", job.summary.text());
    printWarnings(job.recording, job.findings);
  }
  if (failure) throw Failure(*failure);
}

/// Writes the timeline alone, as a filter would.
void replayTimeline(const ReplayOptions& options) {
  requireDistinct(options.recordings, {options.timeline});
  RecordingReader recording(options.recordings.front(), waitForInput);
  TextOutput output(options.timeline, throwIfInterrupted);
  output.append(timelineHeader);
  RecordingFacts facts;
  const auto failure =
      playAll(recording, Forces::Unwatched, [&](Time time, const Event& event, const Row& row) {
        if (!options.quiet) facts.add(event, recording.lines().lineNumber());
        const auto* state = std::get_if<StateRow>(&row);
        if (state == nullptr) return;
        appendRow(output.text(), time, *state);
        output.flush();
      });
  output.commit();
  if (!options.quiet) printWarnings(options.recordings.front(), findingsOf(facts));
  if (failure) throw Failure(*failure);
}

/// A job for each recording; where files are written, each has a folder of its own under the output
/// folder.
std::vector<Job> makeJobs(const ReplayOptions& options) {
  std::vector<Job> jobs;
  if (!options.writesFiles) {
    for (const auto& recording : options.recordings)
      jobs.push_back({recording, {}, {}, {}, {}, {}});
    return jobs;
  }
  std::set<std::string> taken;
  for (const auto& recording : options.recordings) {
    std::string name = std::filesystem::path(recording).stem().string();
    if (recording == "-" || name.empty() || name == "." || name == "..") name = "recording";
    std::string unique = name;
    for (int number = 2; !taken.insert(unique).second; ++number) {
      unique = fmt::format("{}-{}", name, number);
    }
    jobs.push_back({recording, std::filesystem::path(options.output) / unique, {}, {}, {}, {}});
  }
  return jobs;
}

void printJobs(const std::vector<Job>& jobs) {
  std::size_t width = 9;
  for (const auto& job : jobs) width = std::max(width, printable(job.recording).size());
  fmt::print("{:<{}} {:>7} {:>11} {:>9} {:>11}  {}  {}\n", "recording", width, "people", "cycles",
             "scopes", "seconds", formatMeansHeadings(), "folder");
  const auto printRow = [width](const std::string& name, const Summary::Total& total,
                                const std::string& folder) {
    fmt::print("{:<{}} {:>7} {:>11} {:>9} {:>11.3f}  {}  {}\n", printable(name), width,
               total.persons, total.cycles.count, total.scopes, total.seconds,
               formatMeans(total.cycles), printable(folder));
  };
  Summary::Total all;
  for (const auto& job : jobs) {
    const Summary::Total total = job.summary.total();
    printRow(job.recording, total, job.folder.string() + (job.failure.empty() ? "" : " (failed)"));
    all += total;
  }
  printRow("total", all, "");
}

/// The size of all files together; 0 when one of them is not a regular file.
std::uint64_t sizeOf(const std::vector<std::string>& files) {
  std::uint64_t sum = 0;
  for (const auto& file : files) {
    std::error_code error;
    const std::uint64_t size = std::filesystem::file_size(file, error);
    if (error) return 0;
    sum += size;
  }
  return sum;
}

/// Replays several recordings at once, each on a clock of its own. When one fails, others go on.
void replayAtOnce(std::vector<Job>& jobs, const ReplayOptions& options) {
  std::atomic<std::size_t> next{0};
  std::atomic<std::size_t> finished{0};
  std::atomic<std::uint64_t> bytesRead{0};
  const auto work = [&] {
    for (std::size_t index = next++; index < jobs.size(); index = next++) {
      Job& job = jobs.at(index);
      std::uint64_t read = 0;
      const auto count = [&](const LineReader& lines) {
        bytesRead += lines.bytesRead() - std::exchange(read, lines.bytesRead());
      };
      try {
        if (const auto failure = replayInto(job, options, count)) job.failure = failure->what();
      } catch (const std::exception& error) {
        job.failure = error.what();
      }
      ++finished;
    }
  };
  Progress progress(!options.quiet);
  const std::uint64_t size = sizeOf(options.recordings);
  std::vector<std::future<void>> workers;
  const std::size_t count = std::min<std::size_t>(options.jobs, jobs.size());
  for (std::size_t worker = 0; worker < count; ++worker) {
    workers.push_back(std::async(std::launch::async, work));
  }
  for (auto& worker : workers) {
    while (worker.wait_for(Progress::shownEvery) != std::future_status::ready) {
      progress.update(bytesRead, size,
                      fmt::format("{} of {} recordings", finished.load(), jobs.size()));
    }
    worker.get();
  }
}

void replayMany(const ReplayOptions& options) {
  std::vector<Job> jobs = makeJobs(options);
  std::vector<std::string> outputs;
  std::optional<TextOutput> summary;
  if (!options.summary.empty()) outputs.push_back(options.summary);
  if (options.writesFiles) {
    for (const auto& job : jobs) {
      for (auto& name : CsvFiles::names(job.folder)) outputs.push_back(std::move(name));
    }
  }
  if (!options.quiet) outputs.emplace_back("-");
  requireDistinct(options.recordings, outputs);
  if (!options.summary.empty()) {
    summary.emplace(options.summary, throwIfInterrupted);
    summary->append(summaryHeader);
  }
  // Made before the folders inside it, and so removed after them if all stay empty.
  std::optional<OutputFolder> folder;
  if (options.writesFiles) folder.emplace(options.output);
  replayAtOnce(jobs, options);
  if (summary) {
    for (const auto& job : jobs) {
      const auto rows = job.table.rows();
      if (job.failure.empty() || !rows.empty()) appendSummary(summary->text(), job.recording, rows);
    }
    summary->commit();
  }
  if (!options.quiet) {
    printJobs(jobs);
    for (const auto& job : jobs) printWarnings(job.recording, job.findings);
  }
  std::string failures;
  for (const auto& job : jobs) {
    if (!job.failure.empty()) failures += (failures.empty() ? "" : "\n") + job.failure;
  }
  if (!failures.empty()) throw Failure(failures);
}

void replay(const ReplayOptions& options) {
  catchInterrupts();
  if (options.quiet) ku::log::setLevel(ku::log::Error);
  if (!options.timeline.empty()) {
    replayTimeline(options);
  } else if (options.each || options.recordings.size() > 1 || !options.summary.empty()) {
    replayMany(options);
  } else {
    replayOne(options);
  }
}

}  // namespace

void addReplay(Command tool) {
  Command command =
      tool.addSubcommand("replay", "Replay recordings and write what the estimator makes of them",
                         R"(Writes three files into the output folder:
  timeline.csv  the state of each person after each cycle
  scopes.csv    the label of each recorded scope
  ambiance.csv  the room after each activity measurement
and, with --forces,
  forces.csv    each force that moved a person: quantity, reason, target, strength, before, after
It then prints a summary, and on standard error what looks wrong with the recording; info says more.
After a bad line, the files hold everything up to it.

Several recordings are replayed at once, each into a folder of its own, DIR/NAME; when one fails,
the others go on. With --each, or with --summary and --output, a single recording gets such a
folder too.

Examples:
  zorvel replay meeting.jsonl --output results
  zorvel replay --each *.jsonl --output results
  zorvel replay *.jsonl --summary persons.csv
  zorvel replay - --timeline - < meeting.jsonl > timeline.csv)");
  const auto options = std::make_shared<ReplayOptions>();
  command.addRecordings(options->recordings);
  const Option output = command.add("-o,--output", options->output, "The folder to write into")
                            .type("DIR")
                            .showDefault();
  command
      .add("--timeline", options->timeline,
           "Write the timeline alone into this file; - is standard output")
      .type("FILE")
      .excludes("--output");
  command
      .add("--summary", options->summary,
           "Write a table with a row for each recording and person into this file; without "
           "--output, nothing else")
      .type("FILE")
      .excludes("--timeline");
  command
      .addFlag("--each", options->each,
               "Write into a folder for each recording, even for a single one")
      .excludes("--timeline");
  command.addJobs(options->jobs, "How many recordings to replay at once");
  command
      .addFlag("--forces", options->forces,
               "Write forces.csv too: why each state moved as it did; a large file")
      .excludes("--timeline");
  command.addFlag("-q,--quiet", options->quiet, "No summary, no progress, no warnings");
  command.setAction([options, output] {
    options->writesFiles = options->summary.empty() || output.isGiven();
    if (!options->writesFiles && (options->forces || options->each)) {
      throw WrongUsage("--summary", "writes the table alone unless --output names a folder");
    }
    if (!options->timeline.empty() && options->recordings.size() > 1) {
      throw WrongUsage("--timeline", "takes one recording");
    }
    if (std::count(options->recordings.begin(), options->recordings.end(), "-") > 1) {
      throw WrongUsage("RECORDING", "standard input can be read only once");
    }
    replay(*options);
  });
}

}  // namespace zorvel
