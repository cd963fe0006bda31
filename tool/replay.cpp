#include <fmt/format.h>

#include <algorithm>
#include <ku/clock.hpp>
#include <ku/log.hpp>
#include <optional>

#include "commands.hpp"
#include "csv.hpp"
#include "failure.hpp"
#include "interrupt.hpp"
#include "playback.hpp"
#include "progress.hpp"
#include "recording.hpp"
#include "summary.hpp"

namespace zorvel {
namespace {

struct ReplayOptions {
  std::string recording;
  std::string output = ".";
  bool quiet = false;
};

/// Plays all events of the recording on a clock that is set by them and never runs backwards.
void playAll(RecordingReader& recording, CsvFiles& files, Summary& summary, Progress& progress) {
  ku::SimulatedClock clock(Time::min());
  const ku::ClockScope scope(clock);
  Playback playback;
  while (const auto event = recording.next()) {
    const Time time = std::max(clock.now(), event->time);
    clock.set(time);
    Row row;
    try {
      row = playback.play(*event);
    } catch (const std::exception& error) {
      throw Failure(recording.lines().place() + error.what());
    }
    files.write(time, row);
    summary.add(time, row);
    progress.update(recording.lines());
  }
}

void replay(const ReplayOptions& options) {
  catchInterrupts();
  if (options.quiet) ku::log::setLevel(ku::log::Error);
  RecordingReader recording(options.recording);
  CsvFiles files(options.output);
  Summary summary;
  std::optional<Failure> failure;
  {
    Progress progress(!options.quiet);
    try {
      playAll(recording, files, summary, progress);
    } catch (const Failure& error) {
      failure = error;
    }
  }
  // What the lines before a bad one gave is whole, so it is kept.
  files.commit();
  if (!options.quiet) fmt::print("{}", summary.text());
  if (failure) throw Failure(*failure);
}

}  // namespace

void addReplay(CLI::App& tool) {
  auto* const command =
      tool.add_subcommand("replay", "Replay a recording and write what the estimator makes of it");
  command->footer(R"(Writes three files into the output folder:
  timeline.csv  the state of each person after each cycle
  scopes.csv    the label of each recorded scope
  ambiance.csv  the room after each activity measurement
and prints a summary. After a bad line they hold everything up to it.

Example:
  zorvel replay meeting.jsonl --output results)");
  const auto options = std::make_shared<ReplayOptions>();
  command->add_option("RECORDING", options->recording, "The recording; - reads standard input")
      ->required();
  command->add_option("-o,--output", options->output, "The folder to write into")
      ->type_name("DIR")
      ->capture_default_str();
  command->add_flag("-q,--quiet", options->quiet, "No summary, no progress, no warnings");
  command->callback([options] { replay(*options); });
}

}  // namespace zorvel
