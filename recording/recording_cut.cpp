#include "recording/recording_cut.hpp"

#include <string>
#include <variant>

#include "recording/failure.hpp"
#include "recording/observation_fields.hpp"
#include "recording/recording_writer.hpp"
#include "recording/seconds.hpp"

namespace zorvel {
namespace {

/// Whom the event is about; for a renaming, also the new id.
std::pair<std::optional<std::int32_t>, std::optional<std::int32_t>> idsOf(const Event& event) {
  const auto* const rename = std::get_if<Rename>(&event.what);
  return {personOf(event), rename == nullptr ? std::nullopt : std::optional(rename->to)};
}

}  // namespace

bool RecordingCut::next(fmt::memory_buffer& text) {
  if (_recording.next(_line)) {
    text.append(_line.byteOrderMark);
    if (!_line.event && !_clock.hasStarted()) {
      _head += _line.bytes;
      return true;
    }
    if (!_line.event || follow(*_line.event, text)) {
      if (_isKept) text.append(_line.bytes);
      return true;
    }
  }
  if (!_hasEvents) failWithoutEvents();
  return false;
}

/// Returns whether the event is not yet after the span.
bool RecordingCut::follow(Event& event, fmt::memory_buffer& text) {
  const bool isFirst = _clock.advance(event.time);
  if (now() > _span.to) {
    close(text);
    return false;
  }
  if (!_hasBegun && (!_span.from || now() >= *_span.from - _span.leadIn)) open(text);
  _isKept = false;
  const bool stays = join(event);
  if (stays && !_hasBegun && _keeper.play) _keeper.play(event);
  if (stays && isWanted(event)) {
    apply(_clock.now(), event, _people);
    _isKept = _hasBegun && !isOneOfMany(event);
    _hasEvents = _hasEvents || (_isKept && (!_span.from || now() >= *_span.from));
  }
  if (isFirst) writeHead(text);
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
  _line.bytes = eventLine(event);
  if (!lines.isWhole()) _line.bytes.pop_back();
  return true;
}

/// Writes what comes before the first event. Where that event is second 0 and is not kept, the
/// header says so.
void RecordingCut::writeHead(fmt::memory_buffer& text) {
  if (!_isKept && !_recording.origin()) {
    const std::size_t end = _head.rfind('}');
    if (end == std::string::npos) {
      appendHeader(text, std::nullopt, _recording.secondZero());
    } else {
      const auto origin = _recording.secondZero().time_since_epoch().count();
      _head.insert(end, fmt::format(",\"origin\":{}", origin));
    }
  }
  text.append(_head);
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
  // Rounded down also before second 0.
  const bool isPart = now() < Time::duration(0) && now() % *_span.every != Time::duration(0);
  const Time::rep interval = now() / *_span.every - (isPart ? 1 : 0);
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
  if (!_span.from) return;
  const Time begin = after(_recording.secondZero(), *_span.from - _span.leadIn);
  if (!_keeper.save) {
    openScopes(text, begin);
  } else if (begin > _clock.start()) {
    for (Restore& restore : _keeper.save()) {
      const Event event{begin, std::move(restore)};
      if (isWanted(event)) appendEvent(text, event);
    }
  }
}

void RecordingCut::openScopes(fmt::memory_buffer& text, Time begin) {
  for (auto person = _people.begin(); person != _people.end();) {
    for (const auto& [name, scope] : person->second) {
      appendEvent(text, {begin, StartRecording{person->first, name, scope.samples}});
    }
    // The cut does not know anybody else yet.
    person = person->second.empty() ? _people.erase(person) : std::next(person);
  }
}

void RecordingCut::close(fmt::memory_buffer& text) const {
  const Time end = after(_recording.secondZero(), _span.to);
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
  const std::string what = _span.from && *_span.from > now() ? "that is after the end"
                           : _span.person
                               ? fmt::format("person {} has no event there", *_span.person)
                               : "there is no event there";
  const auto first = between(_recording.secondZero(), _clock.start());
  // Rounded down, so that a span that begins there has an event.
  throw Failure(fmt::format("{}: {}; the recording {}", printable(name), what,
                            formatLength(roundDown(first), roundDown(now()))),
                {name, 0, "", 0});
}

}  // namespace zorvel
