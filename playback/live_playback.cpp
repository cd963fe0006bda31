#include "playback/live_playback.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <ku/clock.hpp>

#include "recording/observation_fields.hpp"
#include "recording/renamed.hpp"
#include "recording/saved_state.hpp"

namespace zorvel {
namespace {

constexpr std::string_view isUsed = "it is used as it is";
constexpr std::string_view isForgotten = "it counts in its cycle at most";
constexpr std::string_view isLeftOut = "such readings are left out";

double secondsSince(Time time) { return inSeconds(between(time, ku::SystemClock::now())); }

/// Whether something goes wrong in single lines, and is reported with them.
bool isToldByLine(const Finding& finding) {
  return finding.kind == "time_backwards" || finding.kind == "time_jump" ||
         finding.kind == "scopes";
}

}  // namespace

void FarReadings::warnOfOld(const Observation& observation) {
  forEachReading(observation.fields, [&](std::size_t index, const auto& reading) {
    const FieldKind& field = fieldKinds.at(index);
    const double age = secondsSince(reading.timestamp);
    if (!field.memory || age * 1000.0 <= static_cast<double>(field.memory->count())) return;
    warnOnce(
        observation.person, field.name,
        fmt::format("{:.3f} s ago, and remembered for {} s", age, field.memory->count() / 1000),
        isForgotten);
  });
}

void FarReadings::warnOfFuture(const Observation& observation) {
  forEachReading(observation.fields, [&](std::size_t index, const auto& reading) {
    const double age = secondsSince(reading.timestamp);
    if (age < 0.0) warnOfFuture(observation.person, fieldKinds.at(index).name, -age, isUsed);
  });
}

void FarReadings::warnOfLeftOut(const ZV::ObservationGuard::RemovedField& field,
                                std::int32_t person) {
  warnOfFuture(person, field.name, inSeconds(field.ahead), isLeftOut);
}

void FarReadings::rename(const Rename& rename) {
  applyRename(rename, _warned, [](auto& kept, auto& moved) { kept.merge(moved); });
}

void FarReadings::warnOfFuture(std::int32_t person, std::string_view field, double seconds,
                               std::string_view consequence) {
  warnOnce(person, field, fmt::format("{:.3f} s in the future", seconds), consequence);
}

void FarReadings::warnOnce(std::int32_t person, std::string_view field, const std::string& time,
                           std::string_view consequence) {
  if (!_warned[person].emplace(field, consequence).second) return;
  _warn(fmt::format("person {}: {} is from {}; {}", person, field, time, consequence));
}

LivePlayback::LivePlayback(const LiveOptions& options, const FarReadings::Warn& warn,
                           EventSink played)
    : _options(options),
      _warn(warn),
      _played(std::move(played)),
      _playback(options.forces),
      _farReadings(warn) {
  if (options.ahead) _guard.emplace(*options.ahead);
}

Row LivePlayback::play(Event event, std::uint64_t line) {
  refuseFuture(event);
  if (_guard) keepFutureOut(event);
  forgetUnseen();
  noteSeen(event);
  if (const auto* const observation = std::get_if<Observation>(&event.what)) {
    _farReadings.warnOfOld(*observation);
    if (!_guard) _farReadings.warnOfFuture(*observation);
  }
  Row row = _playback.play(event);
  _played(event);
  inspect(event, line);
  return row;
}

std::vector<Finding> LivePlayback::findings() const {
  auto findings = findingsOf(_facts);
  // Far readings have been reported with their lines; so have, on the system's clock, times in
  // another unit.
  const auto isTold = [this](const Finding& finding) {
    return isToldByLine(finding) || finding.kind == "future" || finding.kind == "expired" ||
           (_guard && finding.kind == "time_unit");
  };
  findings.erase(std::remove_if(findings.begin(), findings.end(), isTold), findings.end());
  return findings;
}

/// Throws Failure for a state from the future, whose readings would stay until their time has come.
void LivePlayback::refuseFuture(const Event& event) const {
  const auto* const person = restoredPerson(event);
  if (person == nullptr || !_options.ahead) return;
  const Time now = ku::SystemClock::now();
  forEachTime(*person, [&](Time time) {
    const Time::duration ahead = between(now, time);
    if (ahead <= *_options.ahead) return;
    throw Failure(fmt::format("the state of person {} has a time that is {:.3f} s in the future",
                              person->id, inSeconds(ahead)));
  });
}

/// Leaves out the readings that lie in the future. When the clock was set back, all that is
/// remembered of anybody lies there, so everybody begins anew.
void LivePlayback::keepFutureOut(Event& event) {
  ZV::PersonObservation none;
  auto* const observation = std::get_if<Observation>(&event.what);
  const auto report = _guard->clean(observation == nullptr ? none : observation->fields);
  if (report.clockSetBack) {
    _warn(
        fmt::format("the clock was set back by {:.3f} s; everybody begins anew, and scopes that "
                    "were open are lost",
                    inSeconds(*report.clockSetBack)));
    while (!_lastSeen.empty()) forget(_lastSeen.begin()->first);
    _farReadings.forgetEverybody();
    _facts.forgetEverybody();
  }
  for (const auto& field : report.removedFields) {
    ++_leftOut;
    _farReadings.warnOfLeftOut(field, observation->person);
  }
}

void LivePlayback::forgetUnseen() {
  if (!_options.forget) return;
  const Time now = ku::SystemClock::now();
  std::vector<std::int32_t> gone;
  for (const auto& [person, seen] : _lastSeen) {
    if (between(seen, now) > *_options.forget) gone.push_back(person);
  }
  for (const std::int32_t person : gone) forget(person);
}

void LivePlayback::noteSeen(const Event& event) {
  const Time now = ku::SystemClock::now();
  if (const auto* const observation = std::get_if<Observation>(&event.what)) {
    _lastSeen[observation->person] = now;
  } else if (const auto* const remove = std::get_if<Remove>(&event.what)) {
    _lastSeen.erase(remove->person);
  } else if (const auto* const rename = std::get_if<Rename>(&event.what)) {
    applyRename(*rename, _lastSeen, [](Time& kept, Time moved) { kept = std::max(kept, moved); });
    _farReadings.rename(*rename);
  } else if (!std::holds_alternative<StopRecording>(event.what)) {
    if (const auto person = personOf(event)) _lastSeen.emplace(*person, now);
  }
}

void LivePlayback::forget(std::int32_t person) {
  const Event event{ku::SystemClock::now(), Remove{person}};
  _playback.play(event);
  _played(event);
  _lastSeen.erase(person);
  _farReadings.forget(person);
  _facts.forget(person);
}

/// Warns of what goes wrong in single lines, where it does so for the first time.
void LivePlayback::inspect(const Event& event, std::uint64_t line) {
  _facts.add(event, line);
  if (const auto* const remove = std::get_if<Remove>(&event.what)) _facts.forget(remove->person);
  if (const auto* const rename = std::get_if<Rename>(&event.what)) {
    if (rename->person != rename->to) _facts.forget(rename->person);
  }
  if (!_facts.goesWrongIn(line)) return;
  for (const Finding& finding : findingsOf(_facts)) {
    if (finding.firstLine == line && isToldByLine(finding)) _warn(finding.text);
  }
}

}  // namespace zorvel
