#ifndef ZORVEL_TOOL_RUN_HPP
#define ZORVEL_TOOL_RUN_HPP

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace zorvel {

/// Does what the command line asks for. Returns the exit status; throws what a command throws.
int run(int argumentCount, char** arguments);

/// The tool as its parser knows it, with all its subcommands.
void describeTool(CLI::App& tool);

/// The subcommands of a command, in the order in which they were added.
std::vector<const CLI::App*> subcommands(const CLI::App& command);

/// As it is typed: with the names of the commands that it is in.
std::string fullName(const CLI::App& command);

}  // namespace zorvel

#endif
