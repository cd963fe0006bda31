#ifndef ZV_OBSERVATION_AGE_HPP
#define ZV_OBSERVATION_AGE_HPP

#include <boost/chrono/duration.hpp>
#include <ku/clock.hpp>
#include <limits>

namespace ZV {

/// The time since `timestamp`, in whole milliseconds, cut towards zero; negative for a timestamp in
/// the future. Reads the clock. A difference beyond 64 bits of nanoseconds (292 years) is held
/// there.
inline boost::chrono::milliseconds ageOf(ku::SystemClock::time_point timestamp) {
  using Nanoseconds = ku::SystemClock::rep;
  const Nanoseconds now = ku::SystemClock::now().time_since_epoch().count();
  const Nanoseconds then = timestamp.time_since_epoch().count();
  Nanoseconds age = 0;
  if (__builtin_sub_overflow(now, then, &age)) {
    age = now < then ? std::numeric_limits<Nanoseconds>::min()
                     : std::numeric_limits<Nanoseconds>::max();
  }
  return boost::chrono::milliseconds(age / 1'000'000);
}

/// An age in seconds, in single precision as the estimator weighs it.
inline float inSeconds(boost::chrono::milliseconds age) {
  return static_cast<float>(age.count()) * 0.001f;
}

}  // namespace ZV

#endif
