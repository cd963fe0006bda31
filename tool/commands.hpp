#ifndef ZORVEL_TOOL_COMMANDS_HPP
#define ZORVEL_TOOL_COMMANDS_HPP

#include "system/command_line.hpp"

namespace zorvel {

/// Describes the tool, with all its subcommands but help.
void addCommands(Command tool);

}  // namespace zorvel

#endif
