#include "recording/json_writer.hpp"

#include <charconv>

namespace zorvel {

std::string floatDigits(float value) {
  std::string digits = fmt::format("{}", value);
  // A reader parses the nearest double and narrows it, which rounds twice. For one
  // float, 7.038531e-26, the shortest digits then read back as its neighbour.
  double read = 0.0;
  std::from_chars(digits.data(), digits.data() + digits.size(), read);
  return static_cast<float>(read) == value ? digits : fmt::format("{}", double{value});
}

}  // namespace zorvel
