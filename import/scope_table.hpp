#ifndef ZORVEL_IMPORT_SCOPE_TABLE_HPP
#define ZORVEL_IMPORT_SCOPE_TABLE_HPP

#include <string>
#include <vector>

#include "recording/line_reader.hpp"
#include "recording/recording_annotation.hpp"

namespace zorvel {

/// Reads the scopes of a table, a CSV file with the columns `person`, `scope`, `begin` and `end`.
/// Its seconds count from `offset` after second 0. Throws Failure, with file, line and column, and
/// what `waitForInput` throws.
std::vector<ScopeOfTable> readScopes(const std::string& file, Time::duration offset,
                                     const WaitForInput& waitForInput);

}  // namespace zorvel

#endif
