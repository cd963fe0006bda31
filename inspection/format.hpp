#ifndef ZORVEL_INSPECTION_FORMAT_HPP
#define ZORVEL_INSPECTION_FORMAT_HPP

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "recording/recording_annotation.hpp"

namespace zorvel {

/// A count with its noun, such as "1 line" or "12 lines".
std::string formatCount(std::uint64_t count, std::string_view noun);
/// Four digits, with a typographic minus sign and without a negative zero.
std::string formatNumber(double number);
/// A length of time with a unit that suits it, such as "33.3 ms".
std::string formatDuration(std::int64_t nanoseconds);
/// A share such as "98.7 %".
std::string formatShare(std::uint64_t part, std::uint64_t whole);

/// What became of scopes that are not where their file says, at the end of an annotation, a
/// sentence each: the first few of those that are left out, and how many more there are.
std::vector<std::string> formatWarnings(const RecordingAnnotation& annotation);

}  // namespace zorvel

#endif
