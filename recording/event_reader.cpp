#include "recording/event_reader.hpp"

#include <fmt/format.h>

#include "recording/observation_fields.hpp"
#include "recording/printable.hpp"

namespace zorvel {
namespace {

Time timeOf(JsonValue value) {
  return Time(ku::SystemClock::duration(value.integer(-latestTime.count(), latestTime.count())));
}

void read(JsonValue value, bool& number) { number = value.boolean(); }
void read(JsonValue value, float& number) { number = value.number(); }
void read(JsonValue value, std::int32_t& number) { number = value.integer32(); }
void read(JsonValue value, std::uint32_t& number) { number = value.unsigned32(); }

/// Reads the members of a field's object.
class MemberReader {
 public:
  explicit MemberReader(JsonObject& object) : _object(object) {}

  template <typename Number>
  void operator()(const NumberKind& kind, Number& number) {
    read(_object.get(kind.name), number);
  }

  /// An emotion that is left out is (0, 0).
  void emotion(std::string_view name, const NumberKinds& kinds,
               ZV::ValueConfidence<float>& emotion) {
    const auto found = _object.find(name);
    emotion = {0.0f, 0.0f};
    if (found) readWhole(*found, kinds, emotion);
  }

  void points(const NumberKinds& kinds, ZV::FacialPoints& points) {
    unsigned int seen = 0;
    for (const JsonValue element : _object.get("points").elements()) {
      JsonObject landmark(element);
      const auto number = landmark.get("point").integer(0, 11);
      const unsigned int bit = 1U << number;
      if ((seen & bit) != 0) element.fail(fmt::format("the point {} is given twice", number));
      seen |= bit;
      MemberReader members(landmark);
      ZV::FacialPoints::Point point;
      members(kinds[0], point.value.first);
      members(kinds[1], point.value.second);
      members(kinds[2], point.confidence);
      points.setFacialPoint(static_cast<ZV::PointDescription>(number), point);
      landmark.finish();
    }
  }

 private:
  template <typename Value>
  static void readWhole(JsonValue found, const NumberKinds& kinds, Value& value) {
    JsonObject object(found);
    MemberReader members(object);
    visitMembers(members, kinds, value);
    object.finish();
  }

  JsonObject& _object;
};

/// Reads one field of an observation, if the line has it. A reading without a time of its own has
/// the line's.
template <typename Value>
void readField(JsonObject& line, Time lineTime, const ObservationField<Value>& field,
               ZV::PersonObservation& fields) {
  const auto found = line.find(field.name);
  if (!found) return;
  JsonObject object(*found);
  const auto time = object.find("time");
  auto value = blankValue<Value>();
  MemberReader members(object);
  visitMembers(members, field.numbers, value);
  (fields.*field.member).emplace(time ? timeOf(*time) : lineTime, value);
  object.finish();
}

Observation observation(JsonObject& line, Time time) {
  Observation read{line.get("person").integer32(), {}};
  forEachField(
      [&](std::size_t /*index*/, const auto& field) { readField(line, time, field, read.fields); });
  return read;
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
