#include "recording/joined_people.hpp"

#include <fmt/format.h>

#include <stdexcept>
#include <utility>

namespace zorvel {
namespace {

[[noreturn]] void fail(std::int32_t person, std::int32_t other, std::uint64_t line) {
  throw std::runtime_error(fmt::format(
      "person {} overlaps person {} in line {}, so they are not one person", person, other, line));
}

}  // namespace

JoinedPeople::JoinedPeople(Ids ids) : _ids(std::move(ids)) {
  for (const auto& [from, to] : _ids) {
    if (_ids.count(to) > 0) {
      throw std::invalid_argument(fmt::format("person {} is renamed, too", to));
    }
    _people[to];
  }
}

std::int32_t JoinedPeople::newId(std::int32_t id) const {
  const auto found = _ids.find(id);
  return found == _ids.end() ? id : found->second;
}

bool JoinedPeople::join(Event& event, std::uint64_t line) {
  return std::visit(
      [&](auto& what) {
        using What = std::decay_t<decltype(what)>;
        if constexpr (std::is_same_v<What, Movement> || std::is_same_v<What, Activity>) {
          return true;
        } else if constexpr (std::is_same_v<What, Rename>) {
          return rename(what, event.time, line);
        } else if constexpr (std::is_same_v<What, Restore>) {
          auto* const person = std::get_if<SavedPerson>(&what.state);
          if (person == nullptr) return true;
          const std::int32_t id = std::exchange(person->id, newId(person->id));
          if (_people.count(person->id) > 0) observe(id, event.time, line);
          return true;
        } else {
          const std::int32_t id = std::exchange(what.person, newId(what.person));
          if (_people.count(what.person) == 0) return true;
          if constexpr (std::is_same_v<What, Observation>) observe(id, event.time, line);
          if constexpr (std::is_same_v<What, NotSeen>) return leave(id, false);
          if constexpr (std::is_same_v<What, Remove>) return leave(id, true);
          if constexpr (std::is_same_v<What, StartRecording>) useScope(id, what.scope, line, true);
          if constexpr (std::is_same_v<What, StopRecording>) useScope(id, what.scope, line, false);
          return true;
        }
      },
      event.what);
}

void JoinedPeople::observe(std::int32_t id, Time time, std::uint64_t line) {
  Person& person = _people.at(newId(id));
  if (person.current && *person.current != id) {
    const auto last = person.seen.find(*person.current);
    const bool isAtOnce = last != person.seen.end() && last->second.time == time;
    if (isAtOnce || person.seen.count(id) > 0) {
      fail(id, *person.current, last == person.seen.end() ? line : last->second.line);
    }
  }
  person.current = id;
  person.seen[id] = {time, line};
}

/// Returns whether the person is gone, rather than there under another id.
bool JoinedPeople::leave(std::int32_t id, bool isRemoved) {
  Person& person = _people.at(newId(id));
  person.seen.erase(id);
  if (!person.current) person.current = id;
  if (person.current != id) return false;
  if (isRemoved) person = {};
  return true;
}

void JoinedPeople::useScope(std::int32_t id, const std::string& scope, std::uint64_t line,
                            bool isStart) {
  auto& scopes = _people.at(newId(id)).scopes;
  const auto [open, isNew] = scopes.try_emplace(scope, id, line);
  const auto [other, otherLine] = open->second;
  if (other != id) fail(id, other, otherLine);
  if (!isStart) scopes.erase(open);
}

bool JoinedPeople::rename(Rename& rename, Time time, std::uint64_t line) {
  if (rename.person == rename.to) return true;
  const Rename old = rename;
  rename = {newId(old.person), newId(old.to)};
  const bool isOne = rename.person == rename.to;
  bool isThere = true;
  if (_people.count(rename.person) > 0) isThere = leave(old.person, !isOne);
  if (_people.count(rename.to) > 0 && isThere) {
    Person& person = _people[rename.to];
    person.current = old.to;
    person.seen[old.to] = {time, line};
  }
  return isThere && !isOne;
}

}  // namespace zorvel
