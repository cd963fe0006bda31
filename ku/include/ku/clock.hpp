#ifndef KU_CLOCK_HPP
#define KU_CLOCK_HPP

#include <atomic>
#include <boost/chrono/duration.hpp>
#include <boost/chrono/time_point.hpp>

#include "ku/export.hpp"

namespace ku {

/// The clock that all timestamps and ages are taken from: signed 64-bit nanoseconds since the
/// epoch, 1970-01-01T00:00:00Z. It meets the requirements of a boost::chrono clock.
///
/// Thread safety: `now()` may be called from any thread.
class KU_API SystemClock {
 public:
  using duration = boost::chrono::nanoseconds;                ///< a difference of times
  using rep = duration::rep;                                  ///< counts nanoseconds
  using period = duration::period;                            ///< a nanosecond
  using time_point = boost::chrono::time_point<SystemClock>;  ///< nanoseconds since the epoch
  /// The wall clock may be set back.
  static constexpr bool is_steady = false;

  /// The wall clock's time, or that of the clock that a ClockScope put in its place for the calling
  /// thread. Throws what that clock throws; the wall clock throws nothing.
  static time_point now();

  /// The wall clock's time, whatever clock the calling thread has in its place. Throws nothing.
  static time_point wallClock() noexcept;
};

/// A clock that can stand in for the wall clock. A test derives its own, to count readings or to
/// make one throw.
///
/// Thread safety: `now()` is called by every thread that has the clock in place, perhaps at once.
class KU_API Clock {
 public:
  Clock() = default;
  Clock(const Clock&) = delete;
  Clock& operator=(const Clock&) = delete;
  virtual ~Clock();

  /// The time that `SystemClock::now()` gives while this clock is in place. May throw.
  virtual SystemClock::time_point now() = 0;
};

/// A clock that stands still where it was set, or runs with the wall clock plus an offset.
///
/// Thread safety: every operation may be called from any thread. A reading that overlaps a change
/// gives the time before or after it.
class KU_API SimulatedClock : public Clock {
 public:
  /// Stands still at `time`.
  explicit SimulatedClock(SystemClock::time_point time = SystemClock::time_point());

  /// Makes the clock stand still at `time`, which may lie before its present time.
  void set(SystemClock::time_point time) noexcept;
  /// Moves the clock by `step`, which may be negative: the time it stands at, or the offset it runs
  /// with.
  void advance(SystemClock::duration step) noexcept;
  /// Lets the clock run: from now on its time is the wall clock's plus `offset`. The sum must fit
  /// into a time point.
  void run(SystemClock::duration offset) noexcept;

  SystemClock::time_point now() override;

 private:
  std::atomic<SystemClock::rep> _time;
  std::atomic<SystemClock::rep> _offset;
  std::atomic<bool> _runs;
};

/// Puts a clock in place of the wall clock for the calling thread, until the scope ends; then the
/// one that was there before is back. The same clock may be in place in several threads, and
/// different threads may have different clocks.
///
/// The clock must outlive the scope. A scope must end in the thread that began it, and nested
/// scopes must end in reverse order, as local variables do.
///
/// Thread safety: a scope belongs to the thread that began it.
class KU_API ClockScope {
 public:
  /// From here on `SystemClock::now()` of this thread reads `clock`.
  explicit ClockScope(Clock& clock) noexcept;
  ClockScope(const ClockScope&) = delete;
  ClockScope& operator=(const ClockScope&) = delete;
  /// Brings back the clock that was there before.
  ~ClockScope();

 private:
  Clock* _previous;
};

}  // namespace ku

#endif
