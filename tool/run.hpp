#ifndef ZORVEL_TOOL_RUN_HPP
#define ZORVEL_TOOL_RUN_HPP

namespace zorvel {

/// Does what the command line asks for. Returns the exit status; throws what a command throws.
int run(int argumentCount, char** arguments);

}  // namespace zorvel

#endif
