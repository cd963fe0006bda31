#ifndef ZORVEL_RECORDING_REPLAY_CLOCK_HPP
#define ZORVEL_RECORDING_REPLAY_CLOCK_HPP

#include <algorithm>

#include "recording/event.hpp"

namespace zorvel {

/// The clock that a replay's events set, and that never runs backwards.
class ReplayClock {
 public:
  /// To be called with the time of each event. Returns whether it is the first.
  bool advance(Time time) {
    const bool isFirst = !_hasStarted;
    if (isFirst) _start = time;
    _now = isFirst ? time : std::max(_now, time);
    _hasStarted = true;
    return isFirst;
  }

  bool hasStarted() const { return _hasStarted; }
  Time start() const { return _start; }
  Time now() const { return _now; }

 private:
  bool _hasStarted = false;
  Time _start;
  Time _now;
};

}  // namespace zorvel

#endif
