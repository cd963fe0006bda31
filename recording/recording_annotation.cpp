#include "recording/recording_annotation.hpp"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <tuple>

#include "recording/failure.hpp"
#include "recording/recording_writer.hpp"
#include "recording/seconds.hpp"

namespace zorvel {

std::string placeInTier(const std::string& tier, boost::chrono::milliseconds begin) {
  return fmt::format("tier {}, {} s", inQuotes(tier), formatSeconds(begin));
}

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
  // A restored person has the restored scopes alone, so others open after it.
  const bool canOpen = !std::holds_alternative<Restore>(event.what);
  for (; _nextEdge < _edges.size(); ++_nextEdge) {
    const auto& [time, isEnd, scope] = _edges[_nextEdge];
    if (time > _clock.now() || (isEnd && time == _clock.now())) break;
    if (isEnd) {
      end(*scope, time, text);
    } else {
      begin(*scope, time, canOpen, text);
    }
  }
  if (const auto* remove = std::get_if<Remove>(&event.what)) {
    endVisit(remove->person, false, text);
  } else if (const auto* const restored = restoredPerson(event)) {
    endVisit(restored->id, true, text);
  } else if (const auto* rename = std::get_if<Rename>(&event.what)) {
    followRename(*rename, text);
  } else if (isCycle(event)) {
    visit(*personOf(event), text);
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
    if (begin < std::min(_recording.secondZero(), _clock.start())) {
      failOrLeaveOut(scope, "begin", "is before the start of the recording");
      continue;
    }
    if (end < begin) fail(scope, "end", "is before begin");
    _edges.push_back({begin, false, &scope});
    _edges.push_back({end, true, &scope});
  }
  // Of edges at one time, those that begin come first: they go before the events of that time, the
  // others after them.
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
    const ScopeOfTable& first = *other->second;
    fail(*edge.scope, "",
         fmt::format("overlaps {}, which has the same person and scope",
                     first.tier.empty() ? fmt::format("line {}", first.line) : placeOf(first)));
  }
}

/// Its scope opens at once or, when it cannot, with the next cycle of the person.
void RecordingAnnotation::begin(const ScopeOfTable& scope, Time time, bool canOpen,
                                fmt::memory_buffer& text) {
  if (isOpenInRecording(keyOf(scope))) {
    fail(scope, "begin", "the recording has a scope of that name open then");
  }
  Current& current = _current.emplace(keyOf(scope), Current{&scope, false}).first->second;
  const bool isThere = _visitors.count(scope.person) > 0;
  if (!canOpen || (!scope.tier.empty() && !isThere)) return;
  _outcomes[&scope].isFilled = isThere;
  open(current, time, text);
}

void RecordingAnnotation::end(const ScopeOfTable& scope, Time time, fmt::memory_buffer& text) {
  const auto current = _current.find(keyOf(scope));
  if (current == _current.end()) return;
  close(current->second, time, text);
  _current.erase(current);
}

void RecordingAnnotation::open(Current& current, Time time, fmt::memory_buffer& text) {
  const ScopeOfTable& scope = *current.scope;
  current.isOpen = true;
  ++_outcomes[&scope].scopes;
  appendEvent(text, {time, StartRecording{scope.person, scope.scope, StartRecording::unlimited}});
}

void RecordingAnnotation::close(Current& current, Time time, fmt::memory_buffer& text) {
  if (!std::exchange(current.isOpen, false)) return;
  appendEvent(text, {time, StopRecording{current.scope->person, current.scope->scope}});
}

/// To be called for each cycle of the person.
void RecordingAnnotation::visit(std::int32_t person, fmt::memory_buffer& text) {
  _visitors.insert(person);
  for (auto next = _current.lower_bound({person, ""});
       next != _current.end() && next->first.first == person; ++next) {
    auto& [key, current] = *next;
    _outcomes[current.scope].isFilled = true;
    if (current.isOpen) continue;
    if (isOpenInRecording(key)) failOverlapping(*current.scope);
    open(current, _clock.now(), text);
  }
}

/// The visit goes on under the new id, whose scopes go on, too.
void RecordingAnnotation::followRename(const Rename& rename, fmt::memory_buffer& text) {
  if (rename.person == rename.to) return;
  const auto known = _people.find(rename.person);
  if (known != _people.end()) {
    _everybody.insert(rename.to);
    for (const auto& [name, scope] : known->second) requireClosed({rename.to, name});
  }
  const bool isVisit = _visitors.count(rename.person) > 0;
  endVisit(rename.person, false, text);
  if (!isVisit) return;
  _visitors.insert(rename.to);
  for (const auto& [key, current] : _current) {
    if (key.first == rename.to) _outcomes[current.scope].isFilled = true;
  }
}

/// Ends the person's scopes. Those that cover something later begin anew with the next visit; when
/// the person is restored, none may be open.
void RecordingAnnotation::endVisit(std::int32_t person, bool isRestored, fmt::memory_buffer& text) {
  _visitors.erase(person);
  for (auto next = _current.lower_bound({person, ""});
       next != _current.end() && next->first.first == person;) {
    Current& current = next->second;
    const ScopeOfTable& scope = *current.scope;
    const bool isCut = current.isOpen && timeOf(scope.end) > _clock.now();
    if (isCut && isRestored) {
      fail(scope, "end",
           fmt::format("is after person {} is restored at {} s", person,
                       formatSeconds(secondsOf(_clock.now()))));
    }
    if (isCut) _outcomes[&scope].isParted = true;
    close(current, _clock.now(), text);
    next = timeOf(scope.end) > _clock.now() ? std::next(next) : _current.erase(next);
  }
}

/// No scope of the table may be open when the recording itself opens or closes one of that name.
void RecordingAnnotation::requireClosed(const Key& key) const {
  const auto current = _current.find(key);
  if (current != _current.end() && current->second.isOpen) failOverlapping(*current->second.scope);
}

bool RecordingAnnotation::isOpenInRecording(const Key& key) const {
  const auto person = _people.find(key.first);
  return person != _people.end() && person->second.count(key.second) > 0;
}

void RecordingAnnotation::finish(fmt::memory_buffer& text) {
  for (const ScopeOfTable& scope : _scopes) {
    if (_everybody.count(scope.person) == 0) {
      fail(scope, "person", fmt::format("{} is not in the recording", scope.person));
    }
    if (_outcomes[&scope].isLeftOut) continue;
    if (timeOf(scope.begin) > _clock.now()) {
      ++_afterEnd;
      failOrLeaveOut(scope, "begin",
                     fmt::format("is after the end of the recording, which {}",
                                 formatLength(secondsOf(_clock.start()), secondsOf(_clock.now()))));
    } else if (!_outcomes[&scope].isFilled) {
      failOrLeaveOut(scope, "person",
                     fmt::format("{} is not there between begin and end", scope.person));
    }
  }
  bool lacksLineEnd = !_recording.lines().isWhole();
  for (auto& [key, current] : _current) {
    if (current.isOpen && std::exchange(lacksLineEnd, false)) text.push_back('\n');
    close(current, _clock.now(), text);
  }
}

PartedRows RecordingAnnotation::parted() const {
  PartedRows parted;
  for (const ScopeOfTable& scope : _scopes) {
    const auto outcome = _outcomes.find(&scope);
    if (outcome == _outcomes.end() || !outcome->second.isParted) continue;
    if (parted.count++ == 0) parted.firstLine = scope.line;
    parted.scopes += outcome->second.scopes;
  }
  return parted;
}

Time RecordingAnnotation::timeOf(const ScopeOfTable::Moment& moment) const {
  const auto* const since = std::get_if<Time::duration>(&moment);
  return since != nullptr ? after(_recording.secondZero(), *since) : std::get<Time>(moment);
}

boost::chrono::milliseconds RecordingAnnotation::secondsOf(Time time) const {
  const double seconds = inSeconds(between(_recording.secondZero(), time));
  return boost::chrono::milliseconds(std::llround(seconds * 1e3));
}

void RecordingAnnotation::failOverlapping(const ScopeOfTable& scope) const {
  fail(scope, "",
       fmt::format("overlaps a scope of the recording with the same person and name, at {} s",
                   formatSeconds(secondsOf(_clock.now()))));
}

/// Of a rater's scope.
std::string RecordingAnnotation::placeOf(const ScopeOfTable& scope) const {
  return placeInTier(scope.tier, secondsOf(timeOf(scope.begin)));
}

void RecordingAnnotation::fail(const ScopeOfTable& scope, std::string_view column,
                               const std::string& message) const {
  const Place place{_table, scope.line, std::string(column), 0};
  if (scope.tier.empty()) {
    throw Failure(
        fmt::format("{}:{}: {}{}", printable(_table), scope.line,
                    column.empty() ? "" : fmt::format("column {}: ", inQuotes(column)), message),
        place);
  }
  throw Failure(fmt::format("{}: {}: {}{}{}", printable(_table), placeOf(scope), column,
                            column.empty() ? "" : " ", message),
                place);
}

void RecordingAnnotation::failOrLeaveOut(const ScopeOfTable& scope, std::string_view column,
                                         const std::string& message) {
  if (scope.tier.empty()) fail(scope, column, message);
  _outcomes[&scope].isLeftOut = true;
  _leftOut.push_back(fmt::format("{}: {} {}", placeOf(scope), column, message));
}

}  // namespace zorvel
