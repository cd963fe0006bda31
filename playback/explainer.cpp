#include "playback/explainer.hpp"

#include <fmt/format.h>

#include <boost/chrono/ceil.hpp>

#include "recording/printable.hpp"
#include "recording/renamed.hpp"

namespace zorvel {
namespace {

boost::chrono::milliseconds roundUp(Time::duration duration) {
  return boost::chrono::ceil<boost::chrono::milliseconds>(duration);
}

}  // namespace

void Explainer::add(Time time, const Event& event, const Row& row) {
  if (!_start) _start = time;
  _end = time;
  const Time::duration since = between(*_start, time);
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
  if (const auto* rename = std::get_if<Rename>(&event.what)) follow(*rename);
  const auto* const state = std::get_if<StateRow>(&row);
  if (state == nullptr) return;
  // Of everybody, as another person may turn out to be the one that is explained.
  _readings[state->person].add(time, event);
  if (_explained.person && state->person != *_explained.person) return;
  if (_explained.at) {
    _persons.erase(state->person);
  } else if (since < _explained.from || since > _explained.to) {
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

std::vector<FieldReadings> Explainer::behind(std::int32_t person, std::string_view reason) const {
  return _readings.at(person).behind(reason, _persons.at(person).last);
}

std::string formatSeconds(Time from, Time to) {
  const std::int64_t milliseconds = roundUp(between(from, to)).count();
  return fmt::format("{}.{:03}", milliseconds / 1000, milliseconds % 1000);
}

std::optional<Failure> explain(RecordingReader& recording, Explainer& explainer,
                               const std::function<void()>& onProgress) {
  const ExplainedTime& explained = explainer.explained();
  auto failure = playAll(
      recording, Forces::Watched,
      [&](Time time, const Event& event, const Row& row) {
        explainer.add(time, event, row);
        onProgress();
      },
      explained.at.value_or(Time::duration::max()));
  if (explainer.hasReachedMoment()) failure.reset();
  if (failure) return failure;
  const std::string& name = recording.lines().name();
  const std::string length = formatSeconds(explainer.start(), explainer.end());
  if (explained.at &&
      roundUp(between(explainer.start(), explainer.end())) < roundUp(*explained.at)) {
    throw Failure(fmt::format("{}: that is after the end; the recording is {} s long",
                              printable(name), length),
                  {name, 0, "", 0});
  }
  if (explainer.persons().empty()) {
    const std::string whoHas =
        explained.person ? fmt::format("person {} has no", *explained.person) : "nobody has a";
    throw Failure(fmt::format("{}: {} cycle there; the recording is {} s long", printable(name),
                              whoHas, length),
                  {name, 0, "", 0});
  }
  return std::nullopt;
}

}  // namespace zorvel
