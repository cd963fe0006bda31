#include "recording/event_reader.hpp"

#include <fmt/format.h>

#include "recording/field_reader.hpp"
#include "recording/printable.hpp"
#include "recording/saved_state.hpp"

namespace zorvel {
namespace {

Observation observation(JsonObject& line, Time time) {
  const std::int32_t person = line.get("person").integer32();
  return {person, readFields(line, time, Floats::Finite)};
}

Event event(JsonObject& line, JsonValue kind, Time time) {
  const std::string_view name = kind.text();
  const auto person = [&line] { return line.get("person").integer32(); };
  const auto scope = [&line] { return std::string(line.get("scope").text()); };
  if (name == Observation::name) return {time, observation(line, time)};
  if (name == NotSeen::name) return {time, NotSeen{person()}};
  if (name == Remove::name) return {time, Remove{person()}};
  if (name == Rename::name) return {time, Rename{person(), line.get("to").integer32()}};
  if (name == StartRecording::name) {
    const auto samples = line.find("samples");
    return {time, StartRecording{person(), scope(),
                                 samples ? samples->integer32() : StartRecording::unlimited}};
  }
  if (name == StopRecording::name) return {time, StopRecording{person(), scope()}};
  if (name == Restore::name) {
    const auto found = line.find("person");
    return {time,
            readState(line.get("state"), found ? std::optional(found->integer32()) : std::nullopt)};
  }
  if (name == Movement::name) return {time, Movement{}};
  if (name == Activity::name) return {time, Activity{line.get("value").number()}};
  kind.fail(fmt::format("{} is not an event", inQuotes(name)));
}

}  // namespace

void EventReader::readHeader(JsonObject& line) {
  line.get("version").integer(1, 1);
  if (const auto source = line.find("source")) _source = source->text();
  if (const auto origin = line.find("origin")) _origin = timeOf(*origin);
}

std::optional<Event> EventReader::read(std::string& text) {
  if (text.find_first_not_of(" \t\r") == std::string::npos) return std::nullopt;
  const bool isFirst = !_started;
  _started = true;
  JsonObject line(_json.parse(text));
  const JsonValue kind = line.get("event");
  std::optional<Event> read;
  if (kind.text() == "header") {
    if (!isFirst) kind.fail("a header must be the first line");
    readHeader(line);
  } else {
    const std::optional<JsonValue> time =
        _missingTime == MissingTime::Now ? line.find("time") : std::optional(line.get("time"));
    read = event(line, kind, time ? timeOf(*time) : ku::SystemClock::now());
  }
  line.finish();
  return read;
}

}  // namespace zorvel
