#include "commands.hpp"

#include <fmt/format.h>

#include <memory>
#include <string>
#include <vector>
#include <zv/version.hpp>

#include "system/command_line.hpp"

namespace zorvel {

// The subcommands, in the order in which they are listed. Each adds itself, is defined in
// commands/, and runs when the command line is parsed. It reports by throwing: see failure.hpp and
// interrupt.hpp.
void addReplay(CLI::App& tool);
void addReport(CLI::App& tool);
void addExplain(CLI::App& tool);
void addImport(CLI::App& tool);
void addLive(CLI::App& tool);
void addView(CLI::App& tool);
void addSend(CLI::App& tool);
void addInfo(CLI::App& tool);
void addSimulate(CLI::App& tool);
void addCut(CLI::App& tool);
void addAnnotate(CLI::App& tool);
void addTypes(CLI::App& tool);

namespace {

void addHelp(CLI::App& tool) {
  auto* const command = tool.add_subcommand("help", "Print what --help prints for a subcommand");
  command->footer(R"(Example:
  zorvel help import openface)");
  const auto words = std::make_shared<std::vector<std::string>>();
  command->add_option("SUBCOMMAND", *words, "The subcommand; none for the tool itself");
  command->callback([&tool, words] {
    const CLI::App* named = &tool;
    for (const auto& word : *words) {
      const CLI::App* const next = findSubcommand(*named, word);
      if (next == nullptr) throw CLI::ValidationError(describeUnknown(*named, word));
      named = next;
    }
    fmt::print("{}", named->get_formatter()->make_help(named, fullName(*named),
                                                       CLI::AppFormatMode::Normal));
  });
}

}  // namespace

void addCommands(CLI::App& tool) {
  tool.name("zorvel");
  tool.description("Estimates the emotional state of the persons a robot perceives");
  tool.footer(
      R"(A recording is a text file with one JSON object a line. --help after a subcommand tells its options.

Exit status:
  0  done
  1  the data or the system failed
  2  wrong usage

Example:
  zorvel simulate | zorvel replay - --output results)");
  tool.set_version_flag("--version", "zorvel " ZV_VERSION, "Print the version and exit");
  tool.require_subcommand(1);
  addReplay(tool);
  addReport(tool);
  addExplain(tool);
  addImport(tool);
  addLive(tool);
  addView(tool);
  addSend(tool);
  addInfo(tool);
  addSimulate(tool);
  addCut(tool);
  addAnnotate(tool);
  addTypes(tool);
  addHelp(tool);
}

}  // namespace zorvel
