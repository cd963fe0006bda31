#ifndef ZORVEL_TOOL_SYSTEM_WARNINGS_HPP
#define ZORVEL_TOOL_SYSTEM_WARNINGS_HPP

#include <string>
#include <vector>

#include "inspection/findings.hpp"

namespace zorvel {

/// The findings that are warnings, one per line: the first few, and how many more there are.
std::vector<std::string> warnings(const std::string& recording,
                                  const std::vector<Finding>& findings);

/// Prints them on standard error.
void printWarnings(const std::string& recording, const std::vector<Finding>& findings);

}  // namespace zorvel

#endif
