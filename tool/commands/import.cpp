#include <fmt/format.h>

#include <memory>
#include <string>

#include "import/importer.hpp"
#include "inspection/format.hpp"
#include "recording/distinct_files.hpp"
#include "recording/text_output.hpp"
#include "recording/time_unit.hpp"
#include "system/command_line.hpp"
#include "system/interrupt.hpp"
#include "system/progress.hpp"

namespace zorvel {
namespace {

constexpr const char* defaultStart = "2000-01-01T00:00:00Z";

struct FileOptions {
  std::string file;
  std::string output = "-";
  bool quiet = false;
  ImportOptions faces;
};

void printField(const ImportedField& field, std::uint64_t observations) {
  if (field.obstacle.empty() && field.observations < observations) {
    fmt::print(stderr, "no {} in {} of {}: cells are empty or not usable\n", field.name,
               observations - field.observations, formatCount(observations, "observation"));
  } else if (!field.obstacle.empty()) {
    // A landmark without columns is still written, at (0, 0).
    fmt::print(stderr, "{} {}: {}\n", field.observations == 0 ? "no" : "zeros in", field.name,
               field.obstacle);
  }
}

/// Says on standard error what was made, what was left out and what looks wrong.
void printFacts(const ImportFacts& facts, Time start) {
  fmt::print(stderr, "{}, {}, {} {}, {}, {:.3f} s\n", formatCount(facts.rows, "row"),
             formatCount(facts.frames, "frame"), facts.people,
             facts.people == 1 ? "person" : "people",
             formatCount(facts.observations, "observation"), inSeconds(facts.length));
  if (facts.rows > facts.observations) {
    fmt::print(stderr, "{} without a face: {}\n",
               formatCount(facts.rows - facts.observations, "row"), facts.noFace);
  }
  if (!facts.cutOffRow.empty()) fmt::print(stderr, "{}\n", facts.cutOffRow);
  for (const ImportedField& field : facts.fields) printField(field, facts.observations);
  if (const auto unit = coarserUnit(start.time_since_epoch().count()); !unit.empty()) {
    fmt::print(stderr, "--start is {:.6g} s after 1970: is it in {}, where nanoseconds belong?\n",
               inSeconds(start.time_since_epoch()), unit);
  }
  for (const std::string& doubt : facts.doubtfulTimes) fmt::print(stderr, "{}\n", doubt);
}

void importFile(const FileOptions& options, const char* source, Importer& importRows) {
  catchInterrupts();
  requireDistinct({options.file}, {options.output});
  CsvReader rows(options.file, waitForInput);
  TextOutput output(options.output, throwIfInterrupted);
  ImportFacts facts;
  {
    Progress progress(!options.quiet && options.output != "-");
    facts = importInto(output, source, importRows, rows, options.faces,
                       [&] { progress.update(rows.lines()); });
  }
  output.commit();
  if (!options.quiet) printFacts(facts, options.faces.start);
}

std::shared_ptr<FileOptions> addOptions(Command command) {
  auto options = std::make_shared<FileOptions>();
  command.add("FILE", options->file, "The CSV file; - reads standard input").required();
  command.addOutputFile(options->output, "The recording to write");
  command
      .add(
          "--start",
          [options](const std::string& text) {
            const auto start = readDate(text);
            if (!start) {
              throw WrongUsage("--start",
                               text + " is neither a time like " + defaultStart +
                                   " nor nanoseconds since 1970, or is not from 1823 to 2116");
            }
            options->faces.start = *start;
          },
          "The time at which the file begins: ISO 8601 in UTC, or nanoseconds since 1970")
      .type("TIME")
      .showDefault(defaultStart);
  command
      .addDuration("--gap", options->faces.gap, true,
                   "A person unseen for longer is removed, and counts as new on return")
      .showDefault("3");
  command.addFlag("--mirrored", options->faces.mirrored,
                  "The film shows a mirror image: yaw and roll change their signs");
  command.addFlag("-q,--quiet", options->quiet,
                  "No report of what was made and left out, no progress, no warnings");
  return options;
}

Option addFramesPerSecond(Command command, FileOptions& options, const std::string& description) {
  return command.addNumber("--fps", options.faces.framesPerSecond, 1e-3, 1e6, description)
      .type("RATE");
}

void addOpenFace(Command importCommand) {
  Command command =
      importCommand.addSubcommand("openface", "Import what OpenFace 2.x writes", R"(Example:
  zorvel import openface webcam.csv --output webcam.jsonl)");
  const auto options = addOptions(command);
  addFramesPerSecond(command, *options,
                     "Frames per second of image sequences, in which every timestamp is 0");
  command
      .addNumber("--full-intensity", options->faces.fullIntensity, 1e-3, 1e6,
                 "The intensity of an action unit that counts as full; other than 3 (\"marked\" "
                 "on the scale from 0 to 5) for files whose units were rescaled")
      .type("VALUE")
      .showDefault();
  command.setAction([options] { importFile(*options, "openface", importOpenFace); });
}

void addPyFeat(Command importCommand) {
  Command command = importCommand.addSubcommand("pyfeat", "Import what py-feat writes", R"(Example:
  zorvel import pyfeat speaker.csv --fps 25 | zorvel replay - --output results)");
  const auto options = addOptions(command);
  addFramesPerSecond(command, *options, "Frames per second of the film").required();
  command.setAction([options] { importFile(*options, "pyfeat", importPyFeat); });
}

}  // namespace

void addImport(Command tool) {
  Command command = tool.addSubcommand(
      "import", "Turn a file of face analysis into a recording, ready to be replayed",
      R"(Each frame gives an observation for each person with a face in it; a person seen before who is
not in it gets a not_seen line and, once away for longer than --gap, a remove line. At its end,
an import reports on standard error what it made, what the file could not give, and which times
look wrong.

Example:
  zorvel import openface webcam.csv --output webcam.jsonl)");
  command.requireSubcommand();
  addOpenFace(command);
  addPyFeat(command);
}

}  // namespace zorvel
