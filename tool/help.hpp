#ifndef ZORVEL_TOOL_HELP_HPP
#define ZORVEL_TOOL_HELP_HPP

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace zorvel {

// What the tool says about its own commands.

/// The subcommands of a command, in the order in which they were added.
std::vector<const CLI::App*> subcommands(const CLI::App& command);

/// As it is typed: with the names of the commands that it is in.
std::string fullName(const CLI::App& command);

/// Says that the command does not know the word, and what is nearest to it if anything is near.
std::string describeUnknown(const CLI::App& command, const std::string& word);

/// The subcommand help, which prints what --help prints.
void addHelp(CLI::App& tool);

}  // namespace zorvel

#endif
