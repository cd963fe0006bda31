#include "recording/known_people.hpp"

#include <variant>

namespace zorvel {
namespace {

void applyCycle(std::map<std::string, std::int32_t>& scopes) {
  for (auto scope = scopes.begin(); scope != scopes.end();) {
    std::int32_t& samples = scope->second;
    if (samples == 0) {
      scope = scopes.erase(scope);
      continue;
    }
    if (samples > 0) --samples;
    ++scope;
  }
}

}  // namespace

void apply(const Event& event, KnownPeople& people) {
  if (const auto* start = std::get_if<StartRecording>(&event.what)) {
    people[start->person][start->scope] = start->samples;
  } else if (const auto* stop = std::get_if<StopRecording>(&event.what)) {
    const auto person = people.find(stop->person);
    if (person != people.end()) person->second.erase(stop->scope);
  } else if (const auto* remove = std::get_if<Remove>(&event.what)) {
    people.erase(remove->person);
  } else if (const auto* const saved = restoredPerson(event)) {
    auto& scopes = people[saved->id];
    scopes.clear();
    for (const auto& [name, scope] : saved->scopes) scopes[name] = scope.remainingSamples;
  } else if (const auto person = personOf(event)) {
    applyCycle(people[*person]);
  }
}

}  // namespace zorvel
