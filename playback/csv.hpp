#ifndef ZORVEL_PLAYBACK_CSV_HPP
#define ZORVEL_PLAYBACK_CSV_HPP

#include <fmt/format.h>

#include <string>
#include <string_view>
#include <vector>

#include "playback/columns.hpp"
#include "playback/playback.hpp"
#include "playback/summary_table.hpp"

namespace zorvel {

// The results of a replay as CSV: the header lines, and a line for each row, with their line ends.

extern const std::string timelineHeader;
extern const std::string scopesHeader;
extern const std::string ambianceHeader;
extern const std::string forcesHeader;

void appendRow(fmt::memory_buffer& text, Time time, const StateRow& row);
void appendRow(fmt::memory_buffer& text, Time time, const ScopeRow& row);
void appendRow(fmt::memory_buffer& text, Time time, const AmbianceRow& row);
void appendRow(fmt::memory_buffer& text, Time time, const ForceRow& row);

/// The header of a table of summaries.
extern const std::string summaryHeader;

/// Appends the rows of a recording, whose name comes first in each. A recording without rows gets
/// one with empty cells, so that it is in the table.
void appendSummary(fmt::memory_buffer& text, std::string_view recording,
                   const std::vector<SummaryRow>& rows);

}  // namespace zorvel

#endif
