#include "zv/social_graph.hpp"

#include <boost/thread/lock_types.hpp>

namespace ZV {
namespace {

using Lock = boost::unique_lock<boost::mutex>;

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
