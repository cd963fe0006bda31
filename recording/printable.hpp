#ifndef ZORVEL_RECORDING_PRINTABLE_HPP
#define ZORVEL_RECORDING_PRINTABLE_HPP

#include <cstddef>
#include <string>
#include <string_view>

namespace zorvel {

/// The text as it may be shown on a terminal or be in JSON, whoever chose it: control characters
/// and bytes that are not UTF-8 become escapes, so "\x1b" stands for the escape character.
std::string printable(std::string_view text);

/// What a message quotes is cut after this many bytes.
constexpr std::size_t longestQuote = 80;

/// The same in quotes, for a message; cut when it is longer than that.
std::string inQuotes(std::string_view text);

}  // namespace zorvel

#endif
