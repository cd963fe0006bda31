#include "view/service.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <limits>
#include <utility>

#include "playback/row_line.hpp"
#include "recording/failure.hpp"
#include "recording/json_writer.hpp"
#include "recording/recording_writer.hpp"
#include "recording/state_file.hpp"
#include "view/token.hpp"

namespace zorvel {
namespace {

constexpr std::string_view source = "zorvel view";

constexpr Time::duration keptTime = boost::chrono::seconds(60);
constexpr std::chrono::seconds stateInterval{60};
constexpr std::size_t keptBytes = std::size_t{64} << 20;

// The first id for people of pages, beyond those that a perception is likely to use.
constexpr std::int32_t firstGranted = 1'000'000;
constexpr std::int32_t mostGranted = 1'000;
// A sender without a sign of life for longer loses its ids; it gets a ping every second.
constexpr std::chrono::seconds longestSilence{3};

std::string rowLine(Time time, const Row& row, Forces forces) {
  fmt::memory_buffer text;
  appendRowLine(text, time, row, forces);
  return fmt::to_string(text);
}

std::string header() {
  fmt::memory_buffer text;
  appendHeader(text, source);
  return fmt::to_string(text);
}

std::string eventLine(const Event& event) {
  fmt::memory_buffer text;
  appendEvent(text, event);
  return fmt::to_string(text);
}

/// FILE, then FILE-2 and so on, with the number before the extension.
std::string numbered(const std::string& file, int number) {
  if (number == 1) return file;
  const std::filesystem::path path(file);
  return path.parent_path() /
         fmt::format("{}-{}{}", path.stem().string(), number, path.extension().string());
}

}  // namespace

Service::Service(Options options) : _options(std::move(options)) { beginAnew(); }

/// Starts again with nobody, and with a new record if there was one.
void Service::beginAnew() {
  while (!_newest.people.empty()) remove(_newest.people.begin()->first, _clock.now());
  _newest.room.clear();
  _recordLines = 0;
  _lastMinute.clear();
  _lastMinuteBytes = 0;
  _beforeLastMinute.reset();
  _playback.emplace(
      _options.live, [this](const std::string& text) { say("warning: " + text); },
      [this](const Event& event) { played(event); });
  if (_record) beginRecord();
}

void Service::record(const std::string& file) {
  _firstRecordName = file;
  beginRecord();
}

void Service::beginRecord() {
  _recordName = numbered(_firstRecordName, ++_records);
  _record.emplace(_recordName, header());
}

void Service::keepState(const std::string& file, const std::vector<Restore>& states) {
  _stateName = file;
  _stateSaved = std::chrono::steady_clock::now();
  setClock();
  const ku::ClockScope scope(_clock);
  for (const Restore& restore : states) {
    try {
      _playback->play({_clock.now(), restore}, _recordLines + 1);
    } catch (const Failure& failure) {
      say(fmt::format("warning: {}: {}; it is not restored", printable(file), failure.what()));
    }
  }
}

void Service::saveState() {
  if (_stateName.empty()) return;
  _stateSaved = std::chrono::steady_clock::now();
  std::string failure;
  try {
    writeStateFile(_stateName, source, _clock.now(), _playback->save());
  } catch (const Failure& error) {
    failure = error.what();
  }
  if (!failure.empty() && failure != _stateFailure) _options.errors.say(failure);
  _stateFailure = failure;
}

void Service::setClock() {
  const Time now = ku::SystemClock::wallClock();
  const Time::duration back = between(now, _clock.now());
  if (back > *_options.live.ahead) {
    say(fmt::format(
        "warning: the clock was set back by {:.3f} s; everybody begins anew, and scopes "
        "that were open are lost",
        inSeconds(back)));
    try {
      beginAnew();
    } catch (const Failure& failure) {
      endRecord(failure);
    }
    _clock.set(now);
  }
  _clock.set(std::max(now, _clock.now()));
}

void Service::endRecord(const Failure& failure) {
  _record.reset();
  _recordFailure = failure.what();
  _options.errors.say(_recordFailure + "; the recording ends there");
}

void Service::endOutput(const Failure& failure) {
  _outputFailure = failure.what();
  _options.errors.say(_outputFailure + "; nothing more is written there");
}

/// Names the line that is being handled, if there is one.
void Service::say(const std::string& text) {
  if (_sender == nullptr) {
    _options.errors.say(text);
  } else {
    _options.errors.say(_sender->name,
                        fmt::format("{}:{}: {}", _sender->name, _sender->lines, text));
  }
}

bool Service::receive(Sender& sender, std::string line) {
  ++sender.lines;
  _sender = &sender;
  try {
    ++sender.unreadableLines;
    if (line.find("\"request\"") != std::string::npos) {
      if (const auto answer = answerRequest(sender, line); !answer.empty()) {
        sender.unreadableLines = 0;
        sender.answers.add(answer);
        return true;
      }
    }
    setClock();
    const ku::ClockScope scope(_clock);
    auto event = sender.events.read(line);
    sender.unreadableLines = 0;
    if (!event) return true;
    requireOwn(sender, *event);
    event->time = _clock.now();
    const Row row = _playback->play(*event, _recordLines + 1);
    ++_events;
    publish(event->time, row);
    return true;
  } catch (const std::exception& error) {
    refuse(sender, error.what());
    return false;
  }
}

/// Keeps what was played, and reports people who are removed.
void Service::played(const Event& event) {
  auto line = std::make_shared<const std::string>(eventLine(event));
  ++_recordLines;
  if (_record) {
    try {
      _record->append(*line);
    } catch (const Failure& failure) {
      endRecord(failure);
    }
  }
  _lastMinuteBytes += line->size();
  _lastMinute.emplace_back(event.time, std::move(line));
  while (between(_lastMinute.front().first, event.time) > keptTime ||
         _lastMinuteBytes > keptBytes) {
    dropFromLastMinute();
  }
  if (const auto* const restore = std::get_if<Restore>(&event.what)) show(event.time, *restore);
  const auto person = personOf(event);
  if (!person) return;
  if (const auto* const rename = std::get_if<Rename>(&event.what)) {
    if (rename->person == rename->to) return;
    if (_newest.people.count(*person) > 0) _newest.people.try_emplace(rename->to);
    remove(*person, event.time);
  } else if (std::holds_alternative<Remove>(event.what)) {
    remove(*person, event.time);
  } else if (!std::holds_alternative<StopRecording>(event.what)) {
    _newest.people.try_emplace(*person);
  }
}

/// Moves the oldest line to what was before the last minute.
void Service::dropFromLastMinute() {
  std::string line = *_lastMinute.front().second;
  _lastMinuteBytes -= line.size();
  _lastMinute.pop_front();
  if (!_beforeLastMinute) _beforeLastMinute.emplace(Forces::Unwatched);
  if (const auto event = EventReader(MissingTime::Error).read(line)) {
    _beforeLastMinute->play(*event);
  }
}

void Service::remove(std::int64_t person, Time time) {
  _owners.erase(static_cast<std::int32_t>(person));
  if (_newest.people.erase(person) == 0) return;
  const auto line = jsonLine([&](JsonLineWriter& json) {
    json.member("time", time);
    json.member("person", person);
    json.member("removed", true);
  });
  for (Page* const page : _pages) page->add(person, line);
}

void Service::publish(Time time, const Row& row) {
  if (std::holds_alternative<std::monostate>(row)) return;
  const std::string line = rowLine(time, row, Forces::Unwatched);
  _options.output(line);
  show(time, row, line);
}

/// Sends the row to pages, and keeps it for those to come; `line` is its text.
void Service::show(Time time, const Row& row, const std::string& line) {
  Topic topic;
  if (const auto* const state = std::get_if<StateRow>(&row)) {
    topic = state->person;
    _newest.people[state->person] = line;
  } else if (std::holds_alternative<AmbianceRow>(row)) {
    topic = roomTopic;
    _newest.room = line;
  }
  std::string lineWithForces;
  for (Page* const page : _pages) {
    if (page->wantsForces && lineWithForces.empty()) {
      lineWithForces = rowLine(time, row, Forces::Watched);
    }
    page->add(topic, page->wantsForces ? lineWithForces : line);
  }
}

/// Shows the restored state at once, so that nobody sees a jump.
void Service::show(Time time, const Restore& restore) {
  Row row;
  if (const auto* const person = std::get_if<SavedPerson>(&restore.state)) {
    row = stateRow(ZV::Person(person->id, person->known));
  } else {
    const auto& room = std::get<ZV::AmbianceState::Saved>(restore.state);
    if (room.agitation == 0.0f && room.calm == 0.0f) return;  // never measured
    row = AmbianceRow{room.agitation, room.calm};
  }
  show(time, row, rowLine(time, row, Forces::Unwatched));
}
void Service::requireOwn(const Sender& sender, const Event& event) {
  if (const auto person = personOf(event)) requireOwn(sender, *person);
  if (const auto* rename = std::get_if<Rename>(&event.what)) requireOwn(sender, rename->to);
}

/// An id belongs to the sender that uses it first, until that sender or the person leaves.
void Service::requireOwn(const Sender& sender, std::int32_t person) {
  const auto range = std::find_if(_ranges.begin(), _ranges.end(), [&](const Range& each) {
    return person >= each.first && person - each.first < each.count;
  });
  const Sender* const owner =
      range != _ranges.end() ? range->owner : _owners.try_emplace(person, &sender).first->second;
  if (owner != &sender) {
    throw Failure(fmt::format("person {} belongs to {}", person, owner->name));
  }
}

void Service::leave(Sender& sender) {
  _senders.erase(std::remove(_senders.begin(), _senders.end(), &sender), _senders.end());
  if (_sender == &sender) _sender = nullptr;
  disown(sender);
}

void Service::disown(const Sender& sender) {
  for (auto owned = _owners.begin(); owned != _owners.end();) {
    owned = owned->second == &sender ? _owners.erase(owned) : std::next(owned);
  }
  dropRanges(sender);
}

void Service::dropRanges(const Sender& sender) {
  const auto isOwn = [&sender](const Range& range) { return range.owner == &sender; };
  _ranges.erase(std::remove_if(_ranges.begin(), _ranges.end(), isOwn), _ranges.end());
}

/// Whether none of its ids belongs to anybody.
bool Service::isFree(const Range& range) const {
  const auto owned = _owners.lower_bound(range.first);
  if (owned != _owners.end() && owned->first - range.first < range.count) return false;
  return std::none_of(_ranges.begin(), _ranges.end(), [&range](const Range& other) {
    return range.first < other.first + other.count && other.first < range.first + range.count;
  });
}

/// Gives the sender ids of its own: the ones it had before, if they are free now or if the key
/// shows that they are its own.
std::string Service::grantPeople(const Sender& sender, std::int32_t count,
                                 std::optional<std::int32_t> before, std::string_view key) {
  const auto known = std::find_if(_ranges.begin(), _ranges.end(), [&](const Range& range) {
    return range.first == before && range.count == count && range.key == key;
  });
  if (known != _ranges.end()) disown(*known->owner);
  dropRanges(sender);
  Range range{before.value_or(firstGranted), count, &sender, newToken()};
  if (!before || !isFree(range)) {
    const auto isTaken = [&] {
      const auto present = _newest.people.lower_bound(range.first);
      return !isFree(range) ||
             (present != _newest.people.end() && present->first - range.first < range.count);
    };
    for (range.first = firstGranted; isTaken();) range.first += count;
  }
  _ranges.push_back(range);
  return jsonLine([&](JsonLineWriter& json) {
    json.object("people", [&] {
      json.member("first", range.first);
      json.member("count", range.count);
      json.member("key", range.key);
    });
  });
}

/// The answer; empty when the line is not a request.
std::string Service::answerRequest(const Sender& sender, std::string line) {
  JsonLine json;
  JsonObject object(json.parse(line));
  const auto request = object.find("request");
  if (!request) return "";
  if (request->text() != "people") request->fail("must be people");
  const auto count = object.get("count").integer(1, mostGranted);
  const auto first = object.find("first");
  std::optional<std::int32_t> before;
  if (first) {
    before = static_cast<std::int32_t>(
        first->integer(firstGranted, std::numeric_limits<std::int32_t>::max() - mostGranted));
  }
  const auto key = object.find("key");
  const std::string_view keyText = key ? key->text() : "";
  object.finish();
  return grantPeople(sender, static_cast<std::int32_t>(count), before, keyText);
}

void Service::refuse(Sender& sender, const std::string& error) {
  ++_badLines;
  ++sender.badLines;
  say(error);
  const auto badLine = jsonLine([&](JsonLineWriter& json) {
    json.object("bad_line", [&] {
      json.member("source", sender.name);
      json.member("line", sender.lines);
      json.member("error", error);
    });
  });
  for (Page* const page : _pages) page->addError(badLine);
  sender.answers.add(jsonLine([&](JsonLineWriter& json) {
    json.member("error", error);
    json.member("line", sender.lines);
  }));
}

void Service::receive(Page& page, std::string line) {
  try {
    JsonLine json;
    JsonObject object(json.parse(line));
    const bool wantsForces = object.get("forces").boolean();
    object.finish();
    page.wantsForces = wantsForces;
  } catch (const JsonError& error) {
    ++page.badLines;
    page.addError(jsonLine([&error](JsonLineWriter& json) { json.member("error", error.what()); }));
  }
}

void Service::leave(const Page& page) {
  _pages.erase(std::remove(_pages.begin(), _pages.end(), &page), _pages.end());
}

std::string Service::take(Page& page) const {
  return page.take(_newest, [this] { return statusLine(); });
}

void Service::tick() {
  _sender = nullptr;
  _options.errors.sayHeldBack();
  setClock();
  {
    const ku::ClockScope scope(_clock);
    _playback->forgetUnseen();
  }
  if (_record) {
    try {
      _record->requireName();
    } catch (const Failure& failure) {
      endRecord(failure);
    }
  }
  const auto now = std::chrono::steady_clock::now();
  if (now - _stateSaved >= stateInterval) saveState();
  for (const Sender* const sender : _senders) {
    if (now - longestSilence > sender->lastSign) disown(*sender);
  }
  for (Page* const page : _pages) {
    page->wantsStatus = true;
    page->wake();
  }
}

std::vector<std::shared_ptr<const std::string>> Service::lastMinute() const {
  std::vector<std::shared_ptr<const std::string>> lines;
  lines.reserve(_lastMinute.size() + 1);
  lines.push_back(std::make_shared<const std::string>(header()));
  if (_beforeLastMinute) {
    for (Restore& restore : _beforeLastMinute->save()) {
      try {
        const Event event{_lastMinute.front().first, std::move(restore)};
        lines.push_back(std::make_shared<const std::string>(eventLine(event)));
      } catch (const Failure& failure) {
        _options.errors.say(failure.what());  // the lines begin without that state
      }
    }
  }
  for (const auto& [time, line] : _lastMinute) lines.push_back(line);
  return lines;
}

}  // namespace zorvel
