#include "recording/json_writer.hpp"

#include <charconv>

namespace zorvel::detail {

FloatDigits::FloatDigits(float value) : _digits{} {
  char* end = fmt::format_to(_digits.data(), "{}", value);
  // A reader parses the nearest double and narrows it, which rounds twice. For one
  // float, 7.038531e-26, the shortest digits then read back as its neighbour.
  double read = 0.0;
  std::from_chars(_digits.data(), end, read);
  if (static_cast<float>(read) != value) end = fmt::format_to(_digits.data(), "{}", double{value});
  _size = static_cast<std::size_t>(end - _digits.data());
}

}  // namespace zorvel::detail
