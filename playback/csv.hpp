#ifndef ZORVEL_PLAYBACK_CSV_HPP
#define ZORVEL_PLAYBACK_CSV_HPP

#include <fmt/format.h>

#include <string>

#include "playback/columns.hpp"
#include "playback/playback.hpp"

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

}  // namespace zorvel

#endif
