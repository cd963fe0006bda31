#include "recording/recording_annotation.hpp"

#include <algorithm>
#include <tuple>

#include "recording/failure.hpp"
#include "recording/recording_writer.hpp"

namespace zorvel {

RecordingAnnotation::Key RecordingAnnotation::keyOf(const ScopeOfTable& scope) {
  return {scope.person, scope.scope};
}

bool RecordingAnnotation::next(fmt::memory_buffer& text) {
  if (!_recording.next(_line)) {
    finish(text);
    return false;
  }
  text.append(_line.byteOrderMark);
  if (_line.event) follow(*_line.event, text);
  text.append(_line.bytes);
  return true;
}

void RecordingAnnotation::follow(const Event& event, fmt::memory_buffer& text) {
  if (_clock.advance(event.time)) placeScopes();
  for (; _nextEdge < _edges.size(); ++_nextEdge) {
    const auto& [time, isEnd, scope] = _edges[_nextEdge];
    if (time > _clock.now() || (isEnd && time == _clock.now())) break;
    if (isEnd) {
      end(*scope, time, text);
    } else {
      begin(*scope, time, text);
    }
  }
  if (const auto* remove = std::get_if<Remove>(&event.what)) {
    endBefore(remove->person, "removal", text);
  } else if (const auto* rename = std::get_if<Rename>(&event.what)) {
    followRename(*rename, text);
  } else if (const auto* start = std::get_if<StartRecording>(&event.what)) {
    requireClosed({start->person, start->scope});
  } else if (const auto* stop = std::get_if<StopRecording>(&event.what)) {
    requireClosed({stop->person, stop->scope});
  }
  apply(_clock.now(), event, _people);
  if (const auto person = personOf(event)) _everybody.insert(*person);
}

/// Finds out when the scopes begin and end.
void RecordingAnnotation::placeScopes() {
  for (const ScopeOfTable& scope : _scopes) {
    const Time begin = timeOf(scope.begin);
    const Time end = timeOf(scope.end);
    if (begin < _clock.start()) fail(scope, "begin", "is before the start of the recording");
    if (end < begin) fail(scope, "end", "is before the begin");
    _edges.push_back({begin, false, &scope});
    _edges.push_back({end, true, &scope});
  }
  // Of edges at one time, those that begin come first: they stand before the events of that time,
  // the others behind them.
  std::stable_sort(_edges.begin(), _edges.end(), [](const Edge& left, const Edge& right) {
    return std::tie(left.time, left.isEnd) < std::tie(right.time, right.isEnd);
  });
  requireApart();
}

/// Two scopes of one name and person must not overlap.
void RecordingAnnotation::requireApart() const {
  std::map<Key, const ScopeOfTable*> open;
  for (const Edge& edge : _edges) {
    if (edge.isEnd) {
      open.erase(keyOf(*edge.scope));
      continue;
    }
    const auto [other, isFree] = open.try_emplace(keyOf(*edge.scope), edge.scope);
    if (isFree) continue;
    fail(*edge.scope, "",
         fmt::format("overlaps line {}, which has the same person and scope", other->second->line));
  }
}

void RecordingAnnotation::begin(const ScopeOfTable& scope, Time time, fmt::memory_buffer& text) {
  const auto person = _people.find(scope.person);
  if (person != _people.end() && person->second.count(scope.scope) > 0) {
    fail(scope, "begin", "the recording has a scope of that name open then");
  }
  _open.emplace(keyOf(scope), &scope);
  appendEvent(text, {time, StartRecording{scope.person, scope.scope, StartRecording::unlimited}});
}

void RecordingAnnotation::end(const ScopeOfTable& scope, Time time, fmt::memory_buffer& text) {
  if (_open.erase(keyOf(scope)) == 0) return;
  appendEvent(text, {time, StopRecording{scope.person, scope.scope}});
}

void RecordingAnnotation::followRename(const Rename& rename, fmt::memory_buffer& text) {
  const auto person = _people.find(rename.person);
  if (person == _people.end() || rename.person == rename.to) return;
  for (const auto& [name, scope] : person->second) requireClosed({rename.to, name});
  endBefore(rename.person, "renaming", text);
  _everybody.insert(rename.to);
}

/// Ends the scopes that cover nothing after the person has gone; there must be no others.
void RecordingAnnotation::endBefore(std::int32_t person, std::string_view how,
                                    fmt::memory_buffer& text) {
  for (auto next = _open.lower_bound({person, ""});
       next != _open.end() && next->first.first == person;) {
    const ScopeOfTable& scope = *(next++)->second;
    if (timeOf(scope.end) > _clock.now()) {
      fail(scope, "end",
           fmt::format("is after the {} of person {} at {}", how, person, formatNow()));
    }
    end(scope, _clock.now(), text);
  }
}

/// No scope of the table must be open whose name the recording itself opens or closes.
void RecordingAnnotation::requireClosed(const Key& key) const {
  const auto open = _open.find(key);
  if (open == _open.end()) return;
  fail(*open->second, "",
       fmt::format("overlaps a scope of the recording with the same person and name, at {}",
                   formatNow()));
}

void RecordingAnnotation::finish(fmt::memory_buffer& text) {
  for (const ScopeOfTable& scope : _scopes) {
    if (_everybody.count(scope.person) == 0) {
      fail(scope, "person", fmt::format("{} is not in the recording", scope.person));
    }
    if (timeOf(scope.begin) > _clock.now()) {
      fail(scope, "begin",
           fmt::format("is after the end of the recording, which is {} long", formatNow()));
    }
  }
  if (!_open.empty() && !_recording.lines().isWhole()) text.push_back('\n');
  while (!_open.empty()) end(*_open.begin()->second, _clock.now(), text);
}

Time RecordingAnnotation::timeOf(const ScopeOfTable::Moment& moment) const {
  const auto* const since = std::get_if<Time::duration>(&moment);
  return since != nullptr ? _clock.start() + *since : std::get<Time>(moment);
}

std::string RecordingAnnotation::formatNow() const {
  return fmt::format("{:.3f} s", inSeconds(_clock.sinceStart()));
}

void RecordingAnnotation::fail(const ScopeOfTable& scope, std::string_view column,
                               const std::string& message) const {
  throw Failure(
      fmt::format("{}:{}: {}{}", printable(_table), scope.line,
                  column.empty() ? "" : fmt::format("column {}: ", inQuotes(column)), message),
      {_table, scope.line, std::string(column), 0});
}

}  // namespace zorvel
