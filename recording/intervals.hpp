#ifndef ZORVEL_RECORDING_INTERVALS_HPP
#define ZORVEL_RECORDING_INTERVALS_HPP

#include <algorithm>
#include <cstdint>
#include <limits>

#include "recording/distribution.hpp"

namespace zorvel {

/// The times from one cycle of a person to the next, in nanoseconds, and which of them are gaps:
/// those longer than three times the median and longer than 1 s.
class Intervals : public Distribution {
 public:
  /// An interval longer than this is a gap.
  std::int64_t gapLimit() const {
    constexpr std::int64_t longest = std::numeric_limits<std::int64_t>::max() / gapMedians;
    return std::max(gapMedians * std::min(median(), longest), shortestGap);
  }
  std::uint64_t gaps() const { return countAbove(gapLimit()); }

 private:
  static constexpr std::int64_t gapMedians = 3;
  static constexpr std::int64_t shortestGap = 1'000'000'000;
};

}  // namespace zorvel

#endif
