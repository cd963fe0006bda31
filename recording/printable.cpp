#include "recording/printable.hpp"

#include <fmt/format.h>

namespace zorvel {
namespace {

bool continuesCharacter(char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U; }

}  // namespace

std::string printable(std::string_view text) {
  std::string result;
  while (true) {
    // As fmt escapes, except that quotes and backslashes stay as they are: file names have them.
    const std::size_t length = text.find_first_of("\"\\");
    const std::string escaped = fmt::format("{:?}", text.substr(0, length));
    result.append(escaped, 1, escaped.size() - 2);
    if (length == std::string_view::npos) return result;
    result += text[length];
    text.remove_prefix(length + 1);
  }
}

std::string inQuotes(std::string_view text) {
  if (text.size() <= longestQuote) return fmt::format("{:?}", text);
  std::size_t length = longestQuote;
  while (length > 0 && continuesCharacter(text[length])) --length;
  return fmt::format("{:?}…", text.substr(0, length));
}

}  // namespace zorvel
