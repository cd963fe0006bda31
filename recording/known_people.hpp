#ifndef ZORVEL_RECORDING_KNOWN_PEOPLE_HPP
#define ZORVEL_RECORDING_KNOWN_PEOPLE_HPP

#include <cstdint>
#include <map>
#include <string>

#include "recording/event.hpp"

namespace zorvel {

/// A scope that is open.
struct KnownScope {
  /// How many more it takes.
  std::int32_t samples;
  Time begin;
};

/// The people whom a replay knows at a moment, each with their open scopes.
using KnownPeople = std::map<std::int32_t, std::map<std::string, KnownScope>>;

/// Does to the people what a replay of the event does at `now`.
void apply(Time now, const Event& event, KnownPeople& people);

}  // namespace zorvel

#endif
