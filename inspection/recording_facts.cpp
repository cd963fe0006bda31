#include "inspection/recording_facts.hpp"

#include <algorithm>
#include <boost/functional/hash.hpp>
#include <numeric>
#include <string_view>

namespace zorvel {
namespace {

using Milliseconds = boost::chrono::milliseconds;

/// Passes the numbers of a reading on, with their index into FieldKind::numbers.
template <typename Visit>
class NumberVisitor {
 public:
  NumberVisitor(const NumberKinds& kinds, Visit visit) : _kinds(kinds), _visit(visit) {}

  template <typename Number>
  void operator()(const NumberKind& kind, Number number) {
    _visit(static_cast<std::size_t>(&kind - _kinds.data()), static_cast<float>(number));
  }

  void emotion(std::string_view /*name*/, const NumberKinds& kinds,
               ZV::ValueConfidence<float> emotion) {
    visitMembers(*this, kinds, emotion);
  }

  void points(const NumberKinds& kinds, const ZV::FacialPoints& points) {
    for (int number = 0; number < 12; ++number) {
      const auto point = points.facialPoint(static_cast<ZV::PointDescription>(number));
      (*this)(kinds[0], point.value.first);
      (*this)(kinds[1], point.value.second);
      (*this)(kinds[2], point.confidence);
    }
  }

 private:
  const NumberKinds& _kinds;
  Visit _visit;
};

template <typename Value, typename Visit>
void forEachNumber(const NumberKinds& kinds, Value value, Visit visit) {
  NumberVisitor<Visit> visitor(kinds, visit);
  visitMembers(visitor, kinds, value);
}

/// Compared in whole milliseconds, as the memory does.
bool isOlder(Time time, Time now, Milliseconds limit) {
  return boost::chrono::duration_cast<Milliseconds>(between(time, now)) > limit;
}

bool hasFace(const ZV::PersonObservation& fields) {
  if (fields.faceDetected && !fields.faceDetected->value) return false;
  return fields.headPosture || fields.smile || fields.expressions || fields.facialPoints;
}

}  // namespace

void Occurrences::add(const Occurrences& other) {
  if (other.count == 0) return;
  firstLine = count == 0 ? other.firstLine : std::min(firstLine, other.firstLine);
  count += other.count;
}

bool RecordingFacts::goesWrongIn(std::uint64_t line) const {
  const auto lines = {backwards.firstLine,        longestStepLine,
                      scopes.restarted.firstLine, scopes.unknown.firstLine,
                      scopes.exhausted.firstLine, scopes.removed.firstLine};
  return std::find(lines.begin(), lines.end(), line) != lines.end();
}

void RecordingFacts::forgetEverybody() {
  persons.clear();
  highestTime = Time::min();
}

std::uint64_t RecordingFacts::events() const {
  return std::accumulate(eventCounts.begin(), eventCounts.end(), std::uint64_t{0});
}

std::uint64_t RecordingFacts::cycles() const {
  std::uint64_t count = 0;
  for (std::size_t event = 0; event < eventNames.size(); ++event) {
    const std::string_view name = eventNames.at(event);
    if (name == Observation::name || name == NotSeen::name) count += eventCounts.at(event);
  }
  return count;
}

void RecordingFacts::add(const Event& event, std::uint64_t line) {
  ++eventCounts.at(event.what.index());
  if (event.time < highestTime) {
    backwards.add(line);
    farthestBack = std::max<std::int64_t>(farthestBack, between(event.time, highestTime).count());
  } else if (highestTime != Time::min() && between(highestTime, event.time).count() > longestStep) {
    longestStep = between(highestTime, event.time).count();
    longestStepLine = line;
  }
  lowestTime = std::min(lowestTime, event.time);
  // This is also the replay's clock, which never runs backwards.
  highestTime = std::max(highestTime, event.time);
  std::visit([&](const auto& what) { add(what, Line{event.time, line}); }, event.what);
}

PersonFacts& RecordingFacts::addCycle(std::int32_t id, Line line) {
  PersonFacts& person = persons[id];
  const Time now = highestTime;
  if (person.cycles() == 0) person.first = now;
  if (!person.present && person.cycles() > 0) ++person.newStarts;
  if (person.present) {
    const std::int64_t interval = between(person.last, now).count();
    if (interval > person.intervals.highest()) person.longestIntervalBegin = person.last;
    person.intervals.add(interval);
  }
  person.present = true;
  person.last = now;
  for (auto scope = person.openScopes.begin(); scope != person.openScopes.end();) {
    std::int32_t& remaining = scope->second.remainingSamples;
    if (remaining == 0) {
      scopes.exhausted.add(line.number);
      scope = person.openScopes.erase(scope);
    } else {
      if (remaining > 0) --remaining;
      ++scope;
    }
  }
  return person;
}

void RecordingFacts::add(const Observation& observation, Line line) {
  PersonFacts& person = addCycle(observation.person, line);
  ++person.observations;
  if (hasFace(observation.fields)) ++person.faces;
  forEachReading(observation.fields, [&](std::size_t field, const auto& reading) {
    addReading(person.fields[field], field, reading, line);
  });
}

void RecordingFacts::add(const NotSeen& notSeen, Line line) {
  ++addCycle(notSeen.person, line).notSeen;
}

template <typename T>
void RecordingFacts::addReading(FieldFacts& facts, std::size_t field,
                                const ZV::Timestamped<T>& reading, Line line) {
  std::size_t hash = 0;
  const NumberKinds& kinds = fieldKinds.at(field).numbers;
  forEachNumber(kinds, reading.value, [&](std::size_t index, float number) {
    const NumberKind& kind = kinds.at(index);
    NumberFacts& seen = numbers.at(field).at(index);
    seen.lowest = seen.count == 0 ? number : std::min(seen.lowest, number);
    seen.highest = seen.count == 0 ? number : std::max(seen.highest, number);
    if (number == 0.0f) ++seen.zeros;
    if (number < kind.lowest || number > kind.highest) seen.outOfRange.add(line.number);
    ++seen.count;
    boost::hash_combine(hash, number);
  });
  if (facts.readings > 0 && hash != facts.last) ++facts.changes;
  facts.last = hash;
  ++facts.readings;

  const Time time = reading.timestamp;
  facts.lateness.add(between(time, line.time).count());
  if (time > line.time) facts.future.add(line.number);

  const auto memory = fieldKinds.at(field).memory;
  if (!memory) return;
  const Time now = highestTime;
  auto& remembered = facts.remembered;
  while (!remembered.empty() && isOlder(remembered.begin()->first, now, *memory)) {
    remembered.erase(remembered.begin());
  }
  if (isOlder(time, now, *memory)) {
    facts.expired.add(line.number);
    return;
  }
  const auto [kept, isNew] = remembered.emplace(time, hash);
  if (isNew) return;
  facts.repeated.add(line.number);
  if (kept->second != hash) facts.contradicting.add(line.number);
}

void RecordingFacts::add(const Remove& remove, Line line) {
  const auto found = persons.find(remove.person);
  if (found == persons.end()) return;
  PersonFacts& person = found->second;
  ++person.removals;
  person.present = false;
  for (auto& [field, facts] : person.fields) facts.remembered.clear();
  if (!person.openScopes.empty()) scopes.removed.add({person.openScopes.size(), line.number});
  person.openScopes.clear();
}

void RecordingFacts::add(const Restore& restore, Line line) {
  const auto* const saved = std::get_if<SavedPerson>(&restore.state);
  if (saved == nullptr) return;
  auto& open = persons[saved->id].openScopes;
  open.clear();
  for (const auto& [name, scope] : saved->scopes) {
    open.emplace(name, OpenScope{scope.remainingSamples, line.number});
  }
}

void RecordingFacts::add(const Rename& rename, Line /*line*/) {
  const auto found = persons.find(rename.person);
  if (found == persons.end() || rename.person == rename.to) return;
  PersonFacts& from = found->second;
  if (!from.present && from.openScopes.empty()) return;
  PersonFacts& to = persons[rename.to];
  to.openScopes.merge(from.openScopes);
  from.openScopes.clear();
  for (auto& [field, facts] : from.fields) {
    to.fields[field].remembered.merge(facts.remembered);
    facts.remembered.clear();
  }
  if (from.present) to.last = to.present ? std::max(to.last, from.last) : from.last;
  to.present = to.present || from.present;
  from.present = false;
}

void RecordingFacts::add(const StartRecording& start, Line line) {
  ++scopes.opened;
  const OpenScope scope{start.samples, line.number};
  const auto [found, isNew] = persons[start.person].openScopes.emplace(start.scope, scope);
  if (isNew) return;
  scopes.restarted.add(line.number);
  found->second = scope;
}

void RecordingFacts::add(const StopRecording& stop, Line line) {
  ++scopes.closed;
  const auto found = persons.find(stop.person);
  if (found == persons.end() || found->second.openScopes.erase(stop.scope) == 0) {
    scopes.unknown.add(line.number);
  }
}

}  // namespace zorvel
