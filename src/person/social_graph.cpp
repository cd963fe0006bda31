#include "zv/social_graph.hpp"

#include <algorithm>
#include <boost/thread/lock_types.hpp>

#include "memory/person_memory_private.hpp"
#include "state/person_state_private.hpp"

namespace ZV {
namespace {

using Lock = boost::unique_lock<boost::mutex>;

/// When the newest known reading of the person was taken.
ku::SystemClock::time_point newestReading(const Person& person) {
  return std::max(person.personState._record()._newestReading(),
                  person.personMemory._record().newestReading());
}

void mergePersons(const Person& from, const Person& to) {
  const bool isFromLater = newestReading(from) > newestReading(to);
  to.personMemory._record().merge(from.personMemory._record());
  // Throws nothing, so it comes last.
  PersonStatePrivate& state = to.personState._record();
  if (isFromLater) state._goOnFrom(from.personState._record());
  state._useLaterReadings(from.personState._record());
}

}  // namespace

void SocialGraph::add(std::int32_t id) {
  const Lock lock(_mutex);
  _persons.emplace(id, Person(id));
}

void SocialGraph::remove(std::int32_t id) {
  const Lock lock(_mutex);
  _persons.erase(id);
}

void SocialGraph::restore(std::int32_t id, const SavedPerson& saved) {
  const Person person(id, saved);
  const Lock lock(_mutex);
  _persons.insert_or_assign(id, person);
}

void SocialGraph::rename(std::int32_t from, std::int32_t to) {
  const Lock lock(_mutex);
  const auto renamed = _persons.find(from);
  if (renamed == _persons.end() || from == to) return;
  const auto known = _persons.find(to);
  Person person = renamed->second;
  if (known != _persons.end()) mergePersons(person, known->second);
  _persons.erase(renamed);
  // Into the room that became free, so that no allocation can fail.
  person.setUserSessionID(to);
  _persons.emplace(to, person);  // unless it is there
}

void SocialGraph::merge(std::int32_t from, std::int32_t to) {
  const Lock lock(_mutex);
  const auto merged = _persons.find(from);
  const auto known = _persons.find(to);
  if (merged == _persons.end() || known == _persons.end() || from == to) return;
  mergePersons(merged->second, known->second);
  _persons.erase(merged);
}

boost::optional<Person> SocialGraph::find(std::int32_t id) const {
  const Lock lock(_mutex);
  const auto found = _persons.find(id);
  if (found == _persons.end()) return boost::none;
  return found->second;
}

std::vector<Person> SocialGraph::persons() const {
  const Lock lock(_mutex);
  std::vector<Person> all;
  all.reserve(_persons.size());
  for (const auto& entry : _persons) all.push_back(entry.second);
  return all;
}

// By value: a callback may replace or destroy the very function that it was passed as.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
void SocialGraph::update(std::int32_t id, boost::function<void(Person&)> callback) {
  const Lock lock(_mutex);
  auto found = _persons.find(id);
  if (found == _persons.end()) found = _persons.emplace(id, Person(id)).first;
  if (callback) callback(found->second);
}

// NOLINTNEXTLINE(performance-unnecessary-value-param)
void SocialGraph::read(std::int32_t id, boost::function<void(const Person&)> callback) const {
  const Lock lock(_mutex);
  const auto found = _persons.find(id);
  if (found != _persons.end()) callback(found->second);
}

}  // namespace ZV
