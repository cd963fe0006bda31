#ifndef ZV_OBSERVATION_AGE_HPP
#define ZV_OBSERVATION_AGE_HPP

#include <boost/chrono/duration.hpp>
#include <ku/clock.hpp>
#include <limits>

namespace ZV {

/// From `start` to `end`; negative when the end is earlier. A difference beyond 64 bits of
/// nanoseconds (292 years) is clamped.
inline ku::SystemClock::duration timeBetween(ku::SystemClock::time_point start,
                                             ku::SystemClock::time_point end) {
  using Nanoseconds = ku::SystemClock::rep;
  const Nanoseconds first = start.time_since_epoch().count();
  const Nanoseconds last = end.time_since_epoch().count();
  Nanoseconds difference = 0;
  if (__builtin_sub_overflow(last, first, &difference)) {
    difference = last < first ? std::numeric_limits<Nanoseconds>::min()
                              : std::numeric_limits<Nanoseconds>::max();
  }
  return ku::SystemClock::duration(difference);
}

/// The time since `timestamp`, in whole milliseconds, cut towards zero; negative for a timestamp in
/// the future. Reads the clock.
inline boost::chrono::milliseconds ageOf(ku::SystemClock::time_point timestamp) {
  const auto age = timeBetween(timestamp, ku::SystemClock::now());
  return boost::chrono::milliseconds(age.count() / 1'000'000);
}

/// An age in seconds, in single precision as the estimator weighs it.
inline float inSeconds(boost::chrono::milliseconds age) {
  return static_cast<float>(age.count()) * 0.001f;
}

}  // namespace ZV

#endif
