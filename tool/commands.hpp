#ifndef ZORVEL_TOOL_COMMANDS_HPP
#define ZORVEL_TOOL_COMMANDS_HPP

#include <CLI/CLI.hpp>

namespace zorvel {

/// Describes the whole tool, with all its subcommands.
void addCommands(CLI::App& tool);

/// Takes a number from `lowest` to `highest`; NaN is not one.
CLI::Validator isBetween(double lowest, double highest);

// Each adds one subcommand, which runs when the command line is parsed. It reports by throwing: see
// failure.hpp and interrupt.hpp.

void addExplain(CLI::App& tool);
void addInfo(CLI::App& tool);
void addImport(CLI::App& tool);
void addLive(CLI::App& tool);
void addReplay(CLI::App& tool);
void addReport(CLI::App& tool);
void addSimulate(CLI::App& tool);
void addTypes(CLI::App& tool);

}  // namespace zorvel

#endif
