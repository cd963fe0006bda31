#ifndef ZORVEL_PLAYBACK_CSV_HPP
#define ZORVEL_PLAYBACK_CSV_HPP

#include <fmt/format.h>

#include <string_view>

#include "playback/playback.hpp"

namespace zorvel {

/// The quantity's name, as in the columns of timeline.csv.
std::string_view nameOf(ZV::Quantity quantity);

// The results of a replay as CSV: the header lines, and a line for each row, with their line ends.

extern const std::string_view timelineHeader;
extern const std::string_view scopesHeader;
extern const std::string_view ambianceHeader;
extern const std::string_view forcesHeader;

void appendRow(fmt::memory_buffer& text, Time time, const StateRow& row);
void appendRow(fmt::memory_buffer& text, Time time, const ScopeRow& row);
void appendRow(fmt::memory_buffer& text, Time time, const AmbianceRow& row);
void appendRow(fmt::memory_buffer& text, Time time, std::int32_t person, const ZV::Force& force);

}  // namespace zorvel

#endif
