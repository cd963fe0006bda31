#include "recording/seconds.hpp"

#include <fmt/format.h>

#include <cstdlib>

namespace zorvel {

std::string formatSeconds(boost::chrono::milliseconds time) {
  const auto count = std::abs(time.count());
  return fmt::format("{}{}.{:03}", time.count() < 0 ? "-" : "", count / 1000, count % 1000);
}

std::string formatLength(boost::chrono::milliseconds first, boost::chrono::milliseconds last) {
  const std::string length = fmt::format("is {} s long", formatSeconds(last - first));
  if (first.count() == 0) return length;
  return fmt::format("{}, from {} to {} s", length, formatSeconds(first), formatSeconds(last));
}

}  // namespace zorvel
