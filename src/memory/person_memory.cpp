#include "zv/person_memory.hpp"

#include <boost/make_shared.hpp>

#include "memory/person_memory_private.hpp"

namespace ZV {

void PersonMemoryPrivate::add(const PersonObservation& observation) {
  forEachChannel([&observation](auto& channel, auto field) {
    if (const auto& reading = observation.*field) channel.record(*reading);
  });
}

PersonMemory::PersonMemory() : _memory(boost::make_shared<PersonMemoryPrivate>()) {}

void PersonMemory::add(const PersonObservation& observation) { _memory->add(observation); }

}  // namespace ZV
