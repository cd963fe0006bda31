#include "playback/explainer.hpp"

#include <fmt/format.h>

#include <iterator>

#include "recording/printable.hpp"
#include "recording/renamed.hpp"
#include "recording/replay_clock.hpp"
#include "recording/seconds.hpp"

namespace zorvel {

void Explainer::add(Time secondZero, Time time, const Event& event, const Row& row) {
  _secondZero = secondZero;
  _end = time;
  const Time::duration since = between(secondZero, time);
  if (_explained.at && since > *_explained.at) return;
  if (const auto* remove = std::get_if<Remove>(&event.what)) {
    _readings.erase(remove->person);
    const auto person = _persons.find(remove->person);
    if (person == _persons.end()) return;
    if (_explained.at) {
      _persons.erase(person);
    } else {
      person->second.isRemoved = true;
    }
  }
  if (const auto* const person = restoredPerson(event)) {
    _readings[person->id] = Readings(time, person->known);
  }
  if (const auto* rename = std::get_if<Rename>(&event.what)) follow(*rename);
  const auto* const state = std::get_if<StateRow>(&row);
  if (state == nullptr) return;
  // Of everybody, as another person may turn out to be the one that is explained.
  _readings[state->person].add(time, event);
  if (_explained.at) {
    _persons.erase(state->person);
  } else if (!isAbout(state->person) || since < _explained.from || since > _explained.to) {
    return;
  }
  ExplainedPerson& explained = _persons[state->person];
  if (explained.cycles++ == 0) explained.first = time;
  explained.last = time;
  if (explained.isRemoved) ++explained.newStarts;
  explained.isRemoved = false;
  explained.why.add(state->forces);
}

void Explainer::follow(const Rename& rename) {
  applyRename(rename, _readings, [](Readings& kept, Readings& moved) { kept.merge(moved); });
  if (_explained.at) {
    // The last cycle of a person may have been under the old id.
    applyRename(rename, _persons, [](ExplainedPerson& kept, ExplainedPerson& moved) {
      if (moved.last > kept.last) kept = std::move(moved);
    });
    return;
  }
  const auto from = _persons.find(rename.person);
  if (from != _persons.end() && rename.person != rename.to) from->second.isRemoved = true;
}

void Explainer::dropOthers() {
  for (auto person = _persons.begin(); person != _persons.end();) {
    person = isAbout(person->first) ? std::next(person) : _persons.erase(person);
  }
}

std::vector<FieldReadings> Explainer::behind(std::int32_t person, std::string_view reason) const {
  return _readings.at(person).behind(reason, _persons.at(person).last);
}

std::string formatSeconds(Time from, Time to) { return formatSeconds(roundUp(between(from, to))); }

std::optional<Failure> explain(RecordingReader& recording, Explainer& explainer,
                               const std::function<void()>& onProgress) {
  const ExplainedTime& explained = explainer.explained();
  ReplayClock events;
  ReplayClock cycles;  // of the persons to explain
  const auto follow = [&](const Event& event) {
    events.advance(event.time);
    if (isCycle(event) && explainer.isAbout(*personOf(event))) {
      cycles.advance(events.now());
    }
    onProgress();
  };
  auto failure = playAll(
      recording, Forces::Watched,
      [&](Time time, const Event& event, const Row& row) {
        explainer.add(recording.secondZero(), time, event, row);
        follow(event);
      },
      explained.at.value_or(Time::duration::max()));
  explainer.dropOthers();
  if (explainer.hasReachedMoment()) failure.reset();
  if (failure) return failure;
  const auto secondsOf = [&](Time time) { return roundUp(between(recording.secondZero(), time)); };
  const auto fail = [&](const std::string& what) {
    const std::string& name = recording.lines().name();
    throw Failure(fmt::format("{}: {}; the recording {}", printable(name), what,
                              formatLength(secondsOf(events.start()), secondsOf(events.now()))),
                  {name, 0, "", 0});
  };
  if (explained.at && secondsOf(events.now()) < roundUp(*explained.at)) {
    std::string what = "that is after the end";
    const Time stamp(*explained.at);  // as other programs give it
    if (stamp >= events.start() && stamp <= events.now()) {
      what += fmt::format(", but read as a time since 1970 it is {} s since second 0",
                          formatSeconds(secondsOf(stamp)));
    }
    fail(what);
  }
  if (!explainer.persons().empty()) return std::nullopt;
  try {
    while (const auto event = recording.next()) follow(*event);
  } catch (const BadLine&) {  // what comes after it is not known
  }
  const std::string who =
      explained.person ? fmt::format("person {} has no", *explained.person) : "nobody has a";
  const std::string when = cycles.hasStarted()
                               ? fmt::format("; the first is at {} s, the last at {} s",
                                             formatSeconds(secondsOf(cycles.start())),
                                             formatSeconds(secondsOf(cycles.now())))
                               : "";
  fail(fmt::format("{} cycle there{}", who, when));
  return std::nullopt;
}

}  // namespace zorvel
