#include "playback/explained_changes.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <map>

#include "playback/person_cycles.hpp"
#include "recording/printable.hpp"
#include "recording/renamed.hpp"

namespace zorvel {
namespace {

struct Person {
  PersonCycles cycles;
  std::array<std::vector<float>, movedQuantities.size()> values;
};

/// A change, by rows of its person.
struct Found {
  std::int32_t person;
  Change rows;
  ExplainedChange explained;
  QuantityMoves moves;
  std::map<std::string_view, std::vector<FieldReadings>> readings;

  float size() const { return std::abs(explained.after - explained.before); }
};

std::vector<Found> find(const std::map<std::int32_t, Person>& persons, std::size_t most) {
  std::vector<Found> all;
  for (std::size_t index = 0; index < movedQuantities.size(); ++index) {
    const auto& [quantity, range] = movedQuantities.at(index);
    std::vector<Found> found;
    for (const auto& [id, person] : persons) {
      const auto& values = person.values.at(index);
      const auto time = [&times = person.cycles.times()](std::size_t row) {
        return Time(Time::duration(times[row]));
      };
      for (const Change& change : person.cycles.changes(values, range, most)) {
        found.push_back({id,
                         change,
                         {id,
                          quantity,
                          time(change.first),
                          time(change.last),
                          values[change.first],
                          values[change.last],
                          {}},
                         {},
                         {}});
      }
    }
    std::stable_sort(found.begin(), found.end(), [](const Found& left, const Found& right) {
      return left.size() > right.size();
    });
    if (found.size() > most) found.resize(most);
    all.insert(all.end(), found.begin(), found.end());
  }
  return all;
}

ExplainedChange finished(Found& found) {
  ExplainedChange change = found.explained;
  for (const ReasonMoves& moves : found.moves.reasons) {
    change.reasons.push_back({moves, found.readings[moves.reason]});
  }
  const double sign = change.after > change.before ? 1.0 : -1.0;
  const auto pull = [sign](const ExplainedReason& reason) {
    return sign * (reason.moves.up - reason.moves.down);
  };
  std::stable_sort(change.reasons.begin(), change.reasons.end(),
                   [&](const ExplainedReason& left, const ExplainedReason& right) {
                     return pull(left) > pull(right);
                   });
  return change;
}

using OnProgress = std::function<void()>;

/// Reads the cycles of the person, or of everybody, and counts the events.
std::optional<Failure> readCycles(RecordingReader& recording, std::optional<std::int32_t> person,
                                  std::map<std::int32_t, Person>& persons, std::uint64_t& events,
                                  const OnProgress& onProgress) {
  return playAll(recording, Forces::Unwatched, [&](Time time, const Event& event, const Row& row) {
    ++events;
    followPeople(event, persons);
    const auto* state = std::get_if<StateRow>(&row);
    if (state != nullptr && (!person || *person == state->person)) {
      Person& of = persons[state->person];
      of.cycles.add(time, state->isSeen);
      of.values[0].push_back(state->valence.value);
      of.values[1].push_back(state->attention.value);
    }
    onProgress();
  });
}

/// Adds to the changes what moved the state there, and the readings behind that. Returns how many
/// events there were.
std::uint64_t addReasons(RecordingReader& recording, std::vector<Found>& changes,
                         const OnProgress& onProgress) {
  std::uint64_t events = 0;
  std::map<std::int32_t, Readings> readings;
  std::map<std::int32_t, std::size_t> rows;
  playAll(recording, Forces::Watched, [&](Time time, const Event& event, const Row& row) {
    ++events;
    if (const auto* remove = std::get_if<Remove>(&event.what)) readings.erase(remove->person);
    if (const auto* const restored = restoredPerson(event)) {
      readings[restored->id] = Readings(time, restored->known);
    }
    if (const auto* rename = std::get_if<Rename>(&event.what)) {
      applyRename(*rename, readings, [](Readings& kept, Readings& moved) { kept.merge(moved); });
    }
    const auto* state = std::get_if<StateRow>(&row);
    if (state != nullptr) {
      Readings& of = readings[state->person];
      of.add(time, event);
      const std::size_t number = rows[state->person]++;
      for (Found& found : changes) {
        if (found.person != state->person || number <= found.rows.first ||
            number > found.rows.last) {
          continue;
        }
        for (const ZV::Force& force : state->forces) {
          if (force.quantity == found.explained.quantity) found.moves.add(force);
          if (number == found.rows.steepest) {
            found.readings[force.reason] = of.behind(force.reason, time);
          }
        }
      }
    }
    onProgress();
  });
  return events;
}

}  // namespace

GreatestChanges explainGreatest(const std::function<RecordingReader&()>& open,
                                std::optional<std::int32_t> person, std::size_t most,
                                const OnProgress& onProgress) {
  GreatestChanges greatest;
  std::map<std::int32_t, Person> persons;
  std::uint64_t events = 0;
  RecordingReader& first = open();
  greatest.failure = readCycles(first, person, persons, events, onProgress);
  greatest.secondZero = first.secondZero();
  const std::string& name = first.lines().name();
  if (persons.empty() && !greatest.failure) {
    const std::string whoHas = person ? fmt::format("person {} has no", *person) : "nobody has a";
    throw Failure(fmt::format("{}: {} cycle", printable(name), whoHas), {name, 0, "", 0});
  }
  std::vector<Found> all = find(persons, most);
  const std::string place = printable(name);
  if (addReasons(open(), all, onProgress) != events) {
    throw Failure(place + ": gives other events when it is read again");
  }
  for (Found& found : all) greatest.changes.push_back(finished(found));
  return greatest;
}

}  // namespace zorvel
