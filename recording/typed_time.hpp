#ifndef ZORVEL_RECORDING_TYPED_TIME_HPP
#define ZORVEL_RECORDING_TYPED_TIME_HPP

#include <optional>
#include <string>
#include <string_view>

#include "recording/event.hpp"

namespace zorvel {

// Times as people type them.

/// Reads seconds, or minutes and seconds, or hours, minutes and seconds, in decimals, to the
/// nearest nanosecond; none for anything else, or for more than a recording can have. A time before
/// second 0 begins with "-".
std::optional<Time::duration> readSeconds(std::string_view text);

/// Reads nanoseconds since 1970, or a date with time in ISO 8601; none when it is neither or out of
/// a recording's range.
std::optional<Time> readDate(const std::string& text);

}  // namespace zorvel

#endif
