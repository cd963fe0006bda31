#include "recording/recording_writer.hpp"

#include <string>

#include "recording/failure.hpp"
#include "recording/field_writer.hpp"
#include "recording/json_writer.hpp"
#include "recording/line_reader.hpp"
#include "recording/saved_state.hpp"

namespace zorvel {
namespace {

void begin(JsonLineWriter& line, std::string_view event, std::int32_t person) {
  line.member("event", event);
  line.member("person", person);
}

void write(JsonLineWriter& line, Time time, const Observation& observation) {
  begin(line, Observation::name, observation.person);
  writeFields(line, time, observation.fields, Floats::Finite);
}

void write(JsonLineWriter& line, Time /*time*/, const NotSeen& notSeen) {
  begin(line, NotSeen::name, notSeen.person);
}

void write(JsonLineWriter& line, Time /*time*/, const Remove& remove) {
  begin(line, Remove::name, remove.person);
}

void write(JsonLineWriter& line, Time /*time*/, const Rename& rename) {
  begin(line, Rename::name, rename.person);
  line.member("to", rename.to);
}

void write(JsonLineWriter& line, Time /*time*/, const StartRecording& start) {
  begin(line, StartRecording::name, start.person);
  line.member("scope", start.scope);
  if (start.samples != StartRecording::unlimited) line.member("samples", start.samples);
}

void write(JsonLineWriter& line, Time /*time*/, const StopRecording& stop) {
  begin(line, StopRecording::name, stop.person);
  line.member("scope", stop.scope);
}

void write(JsonLineWriter& line, Time /*time*/, const Restore& restore) {
  line.member("event", Restore::name);
  const auto* const person = std::get_if<SavedPerson>(&restore.state);
  if (person != nullptr) line.member("person", person->id);
  const std::string state = stateText(restore);
  if (state.size() > LineReader::longestLine / 100 * 99) {
    throw Failure(
        fmt::format("person {}: the state is longer than a line may be, because of open scopes",
                    person == nullptr ? 0 : person->id));
  }
  line.json("state", state);
}

void write(JsonLineWriter& line, Time /*time*/, const Movement& /*movement*/) {
  line.member("event", Movement::name);
}

void write(JsonLineWriter& line, Time /*time*/, const Activity& activity) {
  line.member("event", Activity::name);
  line.member("value", activity.value);
}

}  // namespace

void appendHeader(fmt::memory_buffer& text, std::optional<std::string_view> source,
                  std::optional<Time> origin) {
  JsonLineWriter line(text);
  line.member("event", "header");
  line.member("version", 1);
  if (source) line.member("source", *source);
  if (origin) line.member("origin", *origin);
  line.finish();
}

void appendEvent(fmt::memory_buffer& text, const Event& event) {
  JsonLineWriter line(text);
  line.member("time", event.time);
  std::visit([&](const auto& what) { write(line, event.time, what); }, event.what);
  line.finish();
}

std::string eventLine(const Event& event) {
  fmt::memory_buffer text;
  appendEvent(text, event);
  return fmt::to_string(text);
}

}  // namespace zorvel
