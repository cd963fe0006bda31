#ifndef ZV_TIMESTAMPED_HPP
#define ZV_TIMESTAMPED_HPP

#include <ku/clock.hpp>

namespace ZV {

/// A value with the time at which it was observed, in nanoseconds of the middleware's system clock.
///
/// Thread safety: that of a plain value.
template <typename T>
struct Timestamped {
  /// A copy of a value, with the time of its observation.
  Timestamped(ku::SystemClock::time_point timestamp_, const T& value_)
      : timestamp(timestamp_), value(value_) {}

  ku::SystemClock::time_point timestamp;  ///< when it was observed
  T value;                                ///< what was observed
};

/// Whether `left` was observed after `right`. The values take no part in any comparison.
template <typename T>
bool operator>(const Timestamped<T>& left, const Timestamped<T>& right) {
  return left.timestamp > right.timestamp;
}

/// Whether `left` was observed before `right`.
template <typename T>
bool operator<(const Timestamped<T>& left, const Timestamped<T>& right) {
  return left.timestamp < right.timestamp;
}

/// Whether both were observed at the same time.
template <typename T>
bool operator==(const Timestamped<T>& left, const Timestamped<T>& right) {
  return left.timestamp == right.timestamp;
}

/// Whether they were observed at different times.
template <typename T>
bool operator!=(const Timestamped<T>& left, const Timestamped<T>& right) {
  return left.timestamp != right.timestamp;
}

}  // namespace ZV

#endif
