#include "recording/known_people.hpp"

#include <algorithm>
#include <variant>

#include "recording/renamed.hpp"

namespace zorvel {
namespace {

using Scopes = std::map<std::string, KnownScope>;

void applyCycle(Scopes& scopes) {
  for (auto scope = scopes.begin(); scope != scopes.end();) {
    std::int32_t& samples = scope->second.samples;
    if (samples == 0) {
      scope = scopes.erase(scope);
      continue;
    }
    if (samples > 0) --samples;
    ++scope;
  }
}

/// Scopes of one name become one, which takes as many more samples as the one kept.
void merge(Scopes& kept, Scopes& moved) {
  kept.merge(moved);
  for (const auto& [name, scope] : moved) {
    Time& begin = kept.at(name).begin;
    begin = std::min(begin, scope.begin);
  }
}

}  // namespace

void apply(Time now, const Event& event, KnownPeople& people) {
  if (const auto* start = std::get_if<StartRecording>(&event.what)) {
    people[start->person][start->scope] = {start->samples, now};
  } else if (const auto* stop = std::get_if<StopRecording>(&event.what)) {
    const auto person = people.find(stop->person);
    if (person != people.end()) person->second.erase(stop->scope);
  } else if (const auto* remove = std::get_if<Remove>(&event.what)) {
    people.erase(remove->person);
  } else if (const auto* rename = std::get_if<Rename>(&event.what)) {
    applyRename(*rename, people, merge);
  } else if (const auto* const saved = restoredPerson(event)) {
    Scopes& scopes = people[saved->id];
    scopes.clear();
    for (const auto& [name, scope] : saved->scopes) {
      // When it was opened is not known.
      const Time begin = scope.samples.empty() ? now : scope.samples.front().time;
      scopes[name] = {scope.remainingSamples, begin};
    }
  } else if (const auto person = personOf(event)) {
    applyCycle(people[*person]);
  }
}

}  // namespace zorvel
