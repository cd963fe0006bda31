#include "recording/recording_cut.hpp"

#include <algorithm>
#include <boost/chrono/floor.hpp>
#include <string>
#include <variant>

#include "recording/failure.hpp"
#include "recording/observation_fields.hpp"
#include "recording/recording_writer.hpp"

namespace zorvel {
namespace {

/// Whom the event is about, and of a renaming also the new id.
std::pair<std::optional<std::int32_t>, std::optional<std::int32_t>> idsOf(const Event& event) {
  const auto* const rename = std::get_if<Rename>(&event.what);
  return {personOf(event), rename == nullptr ? std::nullopt : std::optional(rename->to)};
}

}  // namespace

bool RecordingCut::next(fmt::memory_buffer& text) {
  if (_recording.next(_line)) {
    text.append(_line.byteOrderMark);
    if (!_line.event || follow(*_line.event, text)) {
      if (_isKept) text.append(_line.bytes);
      return true;
    }
  }
  if (!_hasEvents) failWithoutEvents();
  return false;
}

/// Returns whether the event is not yet behind the span.
bool RecordingCut::follow(Event& event, fmt::memory_buffer& text) {
  _clock.advance(event.time);
  const Time::duration since = _clock.sinceStart();
  if (since > _span.to) {
    close(text);
    return false;
  }
  if (!_hasBegun && since >= _span.from - _span.leadIn) open(text);
  _isKept = false;
  if (!join(event) || !isWanted(event)) return true;
  apply(_clock.now(), event, _people);
  _isKept = _hasBegun && !isOneOfMany(event);
  _hasEvents = _hasEvents || (_isKept && since >= _span.from);
  return true;
}

/// Gives the line its new ids. Returns whether it stays.
bool RecordingCut::join(Event& event) {
  const LineReader& lines = _recording.lines();
  const auto old = idsOf(event);
  try {
    if (!_joined.join(event, lines.lineNumber())) return false;
  } catch (const std::runtime_error& error) {
    throw Failure(lines.place() + error.what(), {lines.name(), lines.lineNumber(), "person", 0});
  }
  if (idsOf(event) == old) return true;
  fmt::memory_buffer line;
  appendEvent(line, event);
  _line.bytes = fmt::to_string(line);
  if (!lines.isWhole()) _line.bytes.pop_back();
  return true;
}

bool RecordingCut::isWanted(const Event& event) const {
  const auto [person, to] = idsOf(event);
  return !_span.person || person == _span.person || to == _span.person;
}

/// Whether the event is left out as its interval already has one of its kind.
bool RecordingCut::isOneOfMany(const Event& event) {
  const auto* const observation = std::get_if<Observation>(&event.what);
  if (!_span.every || (observation == nullptr && !std::holds_alternative<NotSeen>(event.what))) {
    return false;
  }
  const Time::rep interval = _clock.sinceStart() / *_span.every;
  const auto [last, isNew] =
      _intervals.try_emplace({*personOf(event), observation != nullptr}, interval);
  if (std::exchange(last->second, interval) != interval || isNew) return false;
  if (observation == nullptr) return true;
  bool isMoment = false;
  forEachReading(observation->fields, [&isMoment](std::size_t index, const auto& /*reading*/) {
    isMoment |= fieldKinds.at(index).isMoment();
  });
  return !isMoment;
}

void RecordingCut::open(fmt::memory_buffer& text) {
  _hasBegun = true;
  const Time begin = _clock.start() + (_span.from - _span.leadIn);
  for (auto person = _people.begin(); person != _people.end();) {
    for (const auto& [name, scope] : person->second) {
      appendEvent(text, {begin, StartRecording{person->first, name, scope.samples}});
    }
    // The cut does not know anybody else yet.
    person = person->second.empty() ? _people.erase(person) : std::next(person);
  }
}

void RecordingCut::close(fmt::memory_buffer& text) const {
  const Time end = _clock.start() + _span.to;
  for (const auto& [person, scopes] : _people) {
    for (const auto& [name, scope] : scopes) {
      appendEvent(text, {end, StopRecording{person, name}});
    }
    appendEvent(text, {end, Remove{person}});
  }
}

void RecordingCut::failWithoutEvents() {
  while (const auto event = _recording.next()) _clock.advance(event->time);
  const std::string& name = _recording.lines().name();
  const std::string what = _span.from > _clock.sinceStart() ? "that is after the end"
                           : _span.person
                               ? fmt::format("person {} has no event there", *_span.person)
                               : "there is no event there";
  // Rounded down, so that a span that begins there has an event.
  const auto length =
      boost::chrono::floor<boost::chrono::milliseconds>(_clock.sinceStart()).count();
  throw Failure(fmt::format("{}: {}; the recording is {}.{:03} s long", printable(name), what,
                            length / 1000, length % 1000),
                {name, 0, "", 0});
}

}  // namespace zorvel
