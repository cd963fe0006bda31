#ifndef ZORVEL_RECORDING_SECONDS_HPP
#define ZORVEL_RECORDING_SECONDS_HPP

#include <boost/chrono/duration.hpp>
#include <string>

#include "recording/event.hpp"

namespace zorvel {

/// Whole milliseconds. Unlike those of Boost, they take every duration.
boost::chrono::milliseconds roundDown(Time::duration duration);
boost::chrono::milliseconds roundUp(Time::duration duration);

/// With three decimals.
std::string formatSeconds(boost::chrono::milliseconds time);

/// "is 12.500 s long", with ", from 60.000 to 72.500 s" where a recording's first event is not at
/// its second 0.
std::string formatLength(boost::chrono::milliseconds first, boost::chrono::milliseconds last);

}  // namespace zorvel

#endif
