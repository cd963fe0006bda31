#ifndef ZORVEL_TOOL_SYSTEM_WRITE_ALL_HPP
#define ZORVEL_TOOL_SYSTEM_WRITE_ALL_HPP

#include <string>
#include <string_view>

namespace zorvel {

/// Writes the whole text to the descriptor, which `name` tells in the message of a failure. Throws
/// Failure, or Interrupted when a signal came in or whoever reads has gone away.
void writeAll(int descriptor, const std::string& name, std::string_view text);

}  // namespace zorvel

#endif
