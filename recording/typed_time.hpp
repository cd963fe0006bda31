#ifndef ZORVEL_RECORDING_TYPED_TIME_HPP
#define ZORVEL_RECORDING_TYPED_TIME_HPP

#include <optional>
#include <string>

#include "recording/event.hpp"

namespace zorvel {

// Times as people type them.

/// Reads a time since the start of a recording: seconds, or minutes and seconds, or hours, minutes
/// and seconds, to the nearest nanosecond; none when it is none of them or too long for a
/// recording.
std::optional<Time::duration> readTimeSinceStart(const std::string& text);

/// Reads nanoseconds since 1970, or a date with time in ISO 8601; none when it is neither or out of
/// a recording's range.
std::optional<Time> readDate(const std::string& text);

}  // namespace zorvel

#endif
