#ifndef ZORVEL_RECORDING_TIME_UNIT_HPP
#define ZORVEL_RECORDING_TIME_UNIT_HPP

#include <cstdint>
#include <string_view>

namespace zorvel {

/// The unit in which a count since 1970 is a date of the years 2001 to 2096, if it is a coarser one
/// than nanoseconds; else empty.
inline std::string_view coarserUnit(std::int64_t count) {
  const auto isDate = [count](std::int64_t unit) {
    return count / unit >= 1'000'000'000 && count / unit < 4'000'000'000;
  };
  if (isDate(1)) return "seconds";
  if (isDate(1'000)) return "milliseconds";
  if (isDate(1'000'000)) return "microseconds";
  return "";
}

}  // namespace zorvel

#endif
