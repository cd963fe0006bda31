#include "zv/person_memory.hpp"

#include <algorithm>
#include <boost/make_shared.hpp>

#include "memory/person_memory_private.hpp"

namespace ZV {

void PersonMemoryPrivate::add(const PersonObservation& observation) {
  forEachChannel([&observation](auto& channel, auto field) {
    if (const auto& reading = observation.*field) channel.record(*reading);
  });
}

void PersonMemoryPrivate::merge(const PersonMemoryPrivate& other) {
  forEachMember([&](auto member, auto) { (this->*member).reserveFor(other.*member); });
  forEachMember([&](auto member, auto) { (this->*member).takeIn(other.*member); });
}

ku::SystemClock::time_point PersonMemoryPrivate::newestReading() const {
  auto newest = ku::SystemClock::time_point::min();
  forEachMember([&](auto member, auto) {
    const auto& entries = (this->*member).entries();
    if (!entries.empty()) newest = std::max(newest, entries.front().timestamp);
  });
  return newest;
}

PersonMemory::PersonMemory() : _memory(boost::make_shared<PersonMemoryPrivate>()) {}

void PersonMemory::add(const PersonObservation& observation) { _memory->add(observation); }

}  // namespace ZV
