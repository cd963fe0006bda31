#include "zv/person.hpp"

#include <ostream>
#include <string>

namespace ZV {

void Person::update(const PersonObservation& observation) {
  personMemory.add(observation);
  _updateOnlineModels(observation);
}

void Person::_updateOnlineModels(const PersonObservation& observation) {
  personState.bodyLanguageState().update(personMemory);
  personState._update(observation, personMemory);
}

void Person::decreaseSinceNotSeen() { personState.decreaseSinceNotSeen(); }

std::ostream& operator<<(std::ostream& stream, const Person& person) {
  return stream << "Person (US#" << std::to_string(person.userSessionID) << ") ";
}

}  // namespace ZV
