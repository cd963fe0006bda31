#ifndef ZORVEL_RECORDING_INTERVALS_HPP
#define ZORVEL_RECORDING_INTERVALS_HPP

#include <cstdint>

#include "recording/distribution.hpp"

namespace zorvel {

/// The times from one cycle of a person to the next, in nanoseconds, and which of them are gaps:
/// those longer than three times the median and longer than 1 s.
class Intervals : public Distribution {
 public:
  /// An interval longer than this is a gap.
  std::int64_t gapLimit() const;
  std::uint64_t gaps() const { return countAbove(gapLimit()); }
};

}  // namespace zorvel

#endif
