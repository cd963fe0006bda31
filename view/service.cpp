#include "view/service.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <limits>
#include <utility>
#include <zv/version.hpp>

#include "playback/row_line.hpp"
#include "recording/failure.hpp"
#include "recording/json_writer.hpp"
#include "recording/recording_writer.hpp"

namespace zorvel {
namespace {

constexpr std::string_view source = "zorvel view";

// Persons have topics of their own, their ids.
constexpr std::int64_t roomTopic = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t statusTopic = roomTopic + 1;

constexpr Time::duration keptTime = boost::chrono::seconds(60);
constexpr std::size_t keptBytes = std::size_t{64} << 20;

// Where pages get their people from, beyond the ids that a perception is likely to use.
constexpr std::int32_t firstGranted = 1'000'000;
constexpr std::int32_t mostGranted = 1'000;

/// Writes a JSON object on a line.
template <typename Write>
std::string jsonLine(Write write) {
  fmt::memory_buffer text;
  JsonLineWriter line(text);
  write(line);
  line.finish();
  return fmt::to_string(text);
}

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

/// FILE, then FILE-2 and so on, before the extension.
std::string numbered(const std::string& file, int number) {
  if (number == 1) return file;
  const std::filesystem::path path(file);
  return path.parent_path() /
         fmt::format("{}-{}{}", path.stem().string(), number, path.extension().string());
}

}  // namespace

Service::Service(Options options) : _options(std::move(options)) { beginAnew(); }

/// Everybody's state begins anew, and so does the record.
void Service::beginAnew() {
  std::vector<std::int32_t> gone;
  for (const auto& [person, line] : _newest) gone.push_back(person);
  for (const std::int32_t person : gone) remove(person, _clock.now());
  _newestRoom.clear();
  _recordLines = 0;
  _lastMinute.clear();
  _lastMinuteBytes = 0;
  _playback.emplace(
      _options.live, [this](const std::string& text) { say("warning: " + text); },
      [this](const Event& event) { played(event); });
  if (_record) beginRecord();
}

void Service::record(const std::string& file) {
  _recordName = file;
  beginRecord();
}

void Service::beginRecord() { _record.emplace(numbered(_recordName, ++_records), header()); }

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

/// About the line that is being handled, if there is one.
void Service::say(const std::string& text) {
  if (_sender == nullptr) {
    _options.errors.say(text);
  } else {
    _options.errors.say(_sender->name,
                        fmt::format("{}:{}: {}", _sender->name, _sender->line, text));
  }
}

std::string Service::receive(Sender& sender, std::string line) {
  ++sender.line;
  _sender = &sender;
  try {
    ++sender.badLines;
    if (line.find("\"request\"") != std::string::npos) {
      if (auto answer = answerRequest(sender, line); !answer.empty()) {
        sender.badLines = 0;
        return answer;
      }
    }
    setClock();
    const ku::ClockScope scope(_clock);
    auto event = sender.events.read(line);
    sender.badLines = 0;
    if (!event) return "";
    requireOwn(sender, *event);
    event->time = _clock.now();
    const Row row = _playback->play(*event, _recordLines + 1);
    ++_events;
    publish(event->time, row);
    return "";
  } catch (const std::exception& error) {
    return refuse(sender, error.what());
  }
}

/// Keeps what was played, and tells of who is removed.
void Service::played(const Event& event) {
  fmt::memory_buffer text;
  appendEvent(text, event);
  std::string line = fmt::to_string(text);
  ++_recordLines;
  if (_record) {
    try {
      _record->append(line);
    } catch (const Failure& failure) {
      endRecord(failure);
    }
  }
  _lastMinuteBytes += line.size();
  _lastMinute.emplace_back(event.time, std::move(line));
  while (between(_lastMinute.front().first, event.time) > keptTime ||
         _lastMinuteBytes > keptBytes) {
    _lastMinuteBytes -= _lastMinute.front().second.size();
    _lastMinute.pop_front();
  }
  const auto person = personOf(event);
  if (!person) return;
  if (std::holds_alternative<Remove>(event.what)) {
    remove(*person, event.time);
  } else if (!std::holds_alternative<StopRecording>(event.what)) {
    _newest.try_emplace(*person);
  }
}

void Service::remove(std::int32_t person, Time time) {
  _owners.erase(person);
  if (_newest.erase(person) == 0) return;
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
  Topic topic;
  if (const auto* const state = std::get_if<StateRow>(&row)) {
    topic = state->person;
    _newest[state->person] = line;
  } else if (std::holds_alternative<AmbianceRow>(row)) {
    topic = roomTopic;
    _newestRoom = line;
  }
  std::string lineWithForces;
  for (Page* const page : _pages) {
    if (page->wantsForces && lineWithForces.empty()) {
      lineWithForces = rowLine(time, row, Forces::Watched);
    }
    page->add(topic, page->wantsForces ? lineWithForces : line);
  }
}

/// Whoever uses an id first owns it until they leave.
void Service::requireOwn(const Sender& sender, const Event& event) {
  const auto person = personOf(event);
  if (!person) return;
  const auto range = std::find_if(_ranges.begin(), _ranges.end(), [&](const Range& each) {
    return *person >= each.first && *person - each.first < each.count;
  });
  const Sender* const owner =
      range != _ranges.end() ? range->owner : _owners.try_emplace(*person, &sender).first->second;
  if (owner != &sender) {
    throw Failure(fmt::format("person {} belongs to {}", *person, owner->name));
  }
}

void Service::leave(const Sender& sender) {
  if (_sender == &sender) _sender = nullptr;
  for (auto owned = _owners.begin(); owned != _owners.end();) {
    owned = owned->second == &sender ? _owners.erase(owned) : std::next(owned);
  }
  dropRanges(sender);
}

void Service::dropRanges(const Sender& sender) {
  const auto isOwn = [&sender](const Range& range) { return range.owner == &sender; };
  _ranges.erase(std::remove_if(_ranges.begin(), _ranges.end(), isOwn), _ranges.end());
}

/// Whether no one else owns any of its ids.
bool Service::isFree(const Range& range) const {
  const auto owned = _owners.lower_bound(range.first);
  if (owned != _owners.end() && owned->first - range.first < range.count) return false;
  return std::none_of(_ranges.begin(), _ranges.end(), [&range](const Range& other) {
    return range.first < other.first + other.count && other.first < range.first + range.count;
  });
}

/// Gives the sender ids of its own: the ones it had before, if it tells and nobody has them now.
std::string Service::grantPeople(const Sender& sender, std::optional<std::int32_t> before,
                                 std::int32_t count) {
  dropRanges(sender);
  Range range{before.value_or(firstGranted), count, &sender};
  if (!before || !isFree(range)) {
    const auto isTaken = [&] {
      const auto present = _newest.lower_bound(range.first);
      return !isFree(range) ||
             (present != _newest.end() && present->first - range.first < range.count);
    };
    for (range.first = firstGranted; isTaken();) range.first += count;
  }
  _ranges.push_back(range);
  return jsonLine([&](JsonLineWriter& json) {
    json.object("people", [&] {
      json.member("first", range.first);
      json.member("count", range.count);
    });
  });
}

/// Empty when the line is no request.
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
  object.finish();
  return grantPeople(sender, before, static_cast<std::int32_t>(count));
}

std::string Service::refuse(const Sender& sender, const std::string& error) {
  ++_badLines;
  say(error);
  const auto told = jsonLine([&](JsonLineWriter& json) {
    json.object("bad_line", [&] {
      json.member("source", sender.name);
      json.member("line", sender.line);
      json.member("error", error);
    });
  });
  for (Page* const page : _pages) page->add(std::nullopt, told);
  return jsonLine([&](JsonLineWriter& json) {
    json.member("error", error);
    json.member("line", sender.line);
  });
}

void Page::add(Topic topic, std::string_view line) {
  queue.add(topic, line);
  wake();
}

std::string Page::take() {
  std::string lines = queue.take();
  const std::uint64_t missed = queue.takeDropped();
  if (missed == 0) return lines;
  return jsonLine([missed](JsonLineWriter& json) { json.member("missed", missed); }) + lines;
}

void Service::connect(Page& page) {
  _pages.insert(&page);
  page.queue.add(std::nullopt, jsonLine([](JsonLineWriter& json) { writeReasons(json); }));
  page.queue.add(statusTopic, statusLine());
  for (const auto& [person, line] : _newest) {
    if (!line.empty()) page.queue.add(person, line);
  }
  if (!_newestRoom.empty()) page.queue.add(roomTopic, _newestRoom);
  page.wake();
}

std::string Service::receive(Page& page, std::string line) {
  try {
    JsonLine json;
    JsonObject object(json.parse(line));
    const bool wantsForces = object.get("forces").boolean();
    object.finish();
    page.wantsForces = wantsForces;
    return "";
  } catch (const JsonError& error) {
    return jsonLine([&error](JsonLineWriter& json) { json.member("error", error.what()); });
  }
}

void Service::tick() {
  _sender = nullptr;
  _options.errors.sayHeldBack();
  setClock();
  {
    const ku::ClockScope scope(_clock);
    _playback->forgetUnseen();
  }
  const std::string line = statusLine();
  for (Page* const page : _pages) page->add(statusTopic, line);
}

void Service::writeStatus(JsonLineWriter& json) const {
  const std::chrono::duration<double> uptime = std::chrono::steady_clock::now() - _startedSteadily;
  json.member("status", "ok");
  json.member("version", ZV_VERSION);
  json.member("started", _started);
  json.member("time", ku::SystemClock::wallClock());
  json.member("uptime", uptime.count());
  json.member("people", _newest.size());
  json.member("events", _events);
  json.member("bad_lines", _badLines);
  json.member("lost_messages", _options.errors.lost());
  json.member("pages", _pages.size());
  json.key("recording");
  if (_record) {
    json.value(printable(numbered(_recordName, _records)));
  } else {
    json.null();
  }
}

std::string Service::statusLine() const {
  return jsonLine(
      [this](JsonLineWriter& json) { json.object("status", [&] { writeStatus(json); }); });
}

std::string Service::status() const {
  return jsonLine([this](JsonLineWriter& json) { writeStatus(json); });
}

std::string Service::lastMinute() const {
  std::string recording = header();
  recording.reserve(recording.size() + _lastMinuteBytes);
  for (const auto& [time, line] : _lastMinute) recording += line;
  return recording;
}

}  // namespace zorvel
