#ifndef ZV_PERSON_HPP
#define ZV_PERSON_HPP

#include <cstdint>
#include <iosfwd>

#include "zv/export.hpp"
#include "zv/person_memory.hpp"
#include "zv/person_observation.hpp"
#include "zv/person_state.hpp"
#include "zv/saved_person.hpp"

namespace ZV {

/// One tracked person: the host's identifier, the emotional state and the short-term memory.
///
/// Copies and assignments share state and memory: an update through one copy is seen through all.
/// Move assignment exchanges the records. No person is ever empty.
///
/// Thread safety: none of its own. Copies share records, so the owner serialises all work on one
/// person, as SocialGraph does.
class ZV_API Person {
 public:
  /// Identifier 0, a new state and a new memory. Like the other constructors, it throws
  /// std::bad_alloc, and boost::thread_resource_error when the system has no lock left.
  Person() = default;
  /// This identifier, a new state and a new memory.
  explicit Person(std::int32_t id) : userSessionID(id) {}
  /// This identifier, and a new state and memory that go on from the saved ones. Throws
  /// std::invalid_argument when a number is beyond its range, or when the readings of a field are
  /// not ordered from the youngest to the oldest, or belong to a field that is not remembered.
  /// Reads no clock: what has grown too old is forgotten with the next update.
  Person(std::int32_t id, const SavedPerson& saved);

  /// Everything that is known now of the person but the identifier. Forgets nothing and reads no
  /// clock. Throws std::bad_alloc.
  SavedPerson save() const;

  /// One perception cycle: files the observation into the memory, updates the body language, then
  /// the emotional state. Throws what these throw (see PersonState::_update); the steps before an
  /// exception stay done.
  void update(const PersonObservation& observation);
  /// The same without filing the observation.
  void _updateOnlineModels(const PersonObservation& observation);
  /// One cycle in which the person was not perceived.
  void decreaseSinceNotSeen();

  /// Changes the identifier. A SocialGraph still keeps the person under the old one; see
  /// SocialGraph::rename.
  void setUserSessionID(std::int32_t id) { userSessionID = id; }
  /// PersonState::setFrequencyGaze of this person's state.
  void setFrequencyGaze(float frequency) { personState.setFrequencyGaze(frequency); }
  /// PersonState::setFrequencyFace of this person's state.
  void setFrequencyFace(float frequency) { personState.setFrequencyFace(frequency); }

  /// The host's identifier of the person.
  std::int32_t userSessionID = 0;
  /// The emotional state, estimated from the observations.
  PersonState personState;
  /// The recent observations.
  PersonMemory personMemory;
};

/// Writes "Person (US#" with the identifier; no line end.
ZV_API std::ostream& operator<<(std::ostream& stream, const Person& person);

}  // namespace ZV

#endif
