#include "commands.hpp"

#include <fmt/format.h>

#include <zv/version.hpp>

namespace zorvel {

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
  tool.failure_message(CLI::FailureMessage::simple);
  addReplay(tool);
  addReport(tool);
  addExplain(tool);
  addImport(tool);
  addLive(tool);
  addInfo(tool);
  addSimulate(tool);
  addTypes(tool);
}

CLI::Validator isBetween(double lowest, double highest) {
  const auto check = [=](const std::string& text) {
    double number = 0.0;
    if (CLI::detail::lexical_cast(text, number) && number >= lowest && number <= highest) {
      return std::string();
    }
    return fmt::format("{} is not a number from {} to {}", text, lowest, highest);
  };
  return {check, ""};
}

}  // namespace zorvel
