#ifndef ZORVEL_TOOL_COMMANDS_HPP
#define ZORVEL_TOOL_COMMANDS_HPP

#include <CLI/CLI.hpp>

namespace zorvel {

/// Describes the whole tool, with all its subcommands.
void addCommands(CLI::App& tool);

}  // namespace zorvel

#endif
