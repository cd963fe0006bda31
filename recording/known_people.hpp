#ifndef ZORVEL_RECORDING_KNOWN_PEOPLE_HPP
#define ZORVEL_RECORDING_KNOWN_PEOPLE_HPP

#include <cstdint>
#include <map>
#include <string>

#include "recording/event.hpp"

namespace zorvel {

/// The people whom a replay knows at a moment, each with their open scopes: by name, how many more
/// samples a scope takes.
using KnownPeople = std::map<std::int32_t, std::map<std::string, std::int32_t>>;

/// Does to the people what a replay of the event does.
void apply(const Event& event, KnownPeople& people);

}  // namespace zorvel

#endif
