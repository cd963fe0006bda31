#include "view/service.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <utility>

#include "playback/row_line.hpp"
#include "recording/failure.hpp"
#include "recording/json_writer.hpp"
#include "recording/recording_writer.hpp"
#include "recording/state_file.hpp"

namespace zorvel {
namespace {

constexpr std::string_view source = "zorvel view";

constexpr std::chrono::seconds stateInterval{60};
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
      if (const auto answer = _ids.answerRequest(sender, line, _newest); !answer.empty()) {
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
    _ids.requireFree(sender, *event);
    event->time = _clock.now();
    const Row row = _playback->play(*event, _recordLines + 1);
    _ids.claim(sender, *event);
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
  std::string line = eventLine(event);
  ++_recordLines;
  if (_record) {
    try {
      _record->append(line);
    } catch (const Failure& failure) {
      endRecord(failure);
    }
  }
  _lastMinute.add(event.time, std::move(line));
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

void Service::remove(std::int64_t person, Time time) {
  _ids.release(static_cast<std::int32_t>(person));
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

void Service::leave(Sender& sender) {
  _senders.erase(std::remove(_senders.begin(), _senders.end(), &sender), _senders.end());
  if (_sender == &sender) _sender = nullptr;
  _ids.release(sender);
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
    if (now - longestSilence > sender->lastSign) _ids.release(*sender);
  }
  for (Page* const page : _pages) {
    page->wantsStatus = true;
    page->wake();
  }
}

std::vector<std::shared_ptr<const std::string>> Service::lastMinute() const {
  return _lastMinute.recording(header(), _options.errors);
}

}  // namespace zorvel
