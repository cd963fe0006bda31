#include "recording/recording.hpp"

#include <fmt/format.h>

#include "failure.hpp"

namespace zorvel {
namespace {

using ZV::ValueConfidence;

Time timeOf(JsonValue value) {
  return Time(ku::SystemClock::duration(value.integer(-latestTime.count(), latestTime.count())));
}

ValueConfidence<float> valueConfidence(JsonObject& object) {
  const float value = object.get("value").number();
  return {value, object.get("confidence").number()};
}

/// An emotion or expression by name: (0, 0) when it is not given.
ValueConfidence<float> namedEmotion(JsonObject& object, std::string_view name) {
  const auto found = object.find(name);
  if (!found) return {0.0f, 0.0f};
  JsonObject emotion(*found);
  const auto value = valueConfidence(emotion);
  emotion.finish();
  return value;
}

bool booleanValue(JsonObject& object) { return object.get("value").boolean(); }

float numberValue(JsonObject& object) { return object.get("value").number(); }

ZV::Gaze gaze(JsonObject& object) {
  return {object.get("yaw").number(), object.get("pitch").number()};
}

ZV::HeadPosture headPosture(JsonObject& object) {
  return {object.get("yaw").number(), object.get("pitch").number(), object.get("roll").number()};
}

ZV::Smile smile(JsonObject& object) {
  const auto degree = valueConfidence(object);
  return {degree.value, degree.confidence};
}

ZV::Expressions expressions(JsonObject& object) {
  ZV::Expressions read;
  read.calm = namedEmotion(object, "calm");
  read.anger = namedEmotion(object, "anger");
  read.joy = namedEmotion(object, "joy");
  read.sorrow = namedEmotion(object, "sorrow");
  read.laughter = namedEmotion(object, "laughter");
  read.excitement = namedEmotion(object, "excitement");
  read.surprise = namedEmotion(object, "surprise");
  return read;
}

ZV::VoiceEmotion voiceEmotion(JsonObject& object) {
  return {namedEmotion(object, "calm"),     namedEmotion(object, "anger"),
          namedEmotion(object, "joy"),      namedEmotion(object, "sorrow"),
          namedEmotion(object, "laughter"), namedEmotion(object, "excitement")};
}

ValueConfidence<bool> gender(JsonObject& object) {
  return {object.get("value").boolean(), object.get("confidence").number()};
}

ValueConfidence<unsigned int> age(JsonObject& object) {
  return {object.get("value").unsigned32(), object.get("confidence").number()};
}

ZV::FacialPoints facialPoints(JsonObject& object) {
  ZV::FacialPoints points;
  unsigned int seen = 0;
  for (const JsonValue element : object.get("points").elements()) {
    JsonObject landmark(element);
    const auto number = landmark.get("point").integer(0, 11);
    const unsigned int bit = 1U << number;
    if ((seen & bit) != 0) element.fail(fmt::format("the point {} is given twice", number));
    seen |= bit;
    const float x = landmark.get("x").number();
    const float y = landmark.get("y").number();
    points.setFacialPoint(static_cast<ZV::PointDescription>(number),
                          {{x, y}, landmark.get("confidence").number()});
    landmark.finish();
  }
  return points;
}

ZV::ContextEmotion contextEmotion(JsonObject& object) {
  return {object.get("emotion").integer32(), object.get("duration").number()};
}

/// Reads one field of an observation into its place, if the line has it. Its reading is as old as
/// its own time, or as the line.
template <typename T, typename Read>
void readField(JsonObject& line, std::string_view key, Time lineTime,
               boost::optional<ZV::Timestamped<T>>& field, Read read) {
  const auto found = line.find(key);
  if (!found) return;
  JsonObject object(*found);
  const auto time = object.find("time");
  field.emplace(time ? timeOf(*time) : lineTime, read(object));
  object.finish();
}

Observation observation(JsonObject& line, Time time) {
  Observation read{line.get("person").integer32(), {}};
  auto& fields = read.fields;
  readField(line, "lookingAtRobot", time, fields.lookingAtRobot, booleanValue);
  readField(line, "height", time, fields.height, numberValue);
  readField(line, "distance", time, fields.distance, numberValue);
  readField(line, "gaze", time, fields.gaze, gaze);
  readField(line, "smile", time, fields.smile, smile);
  readField(line, "expressions", time, fields.expressions, expressions);
  readField(line, "headPosture", time, fields.headPosture, headPosture);
  readField(line, "gender", time, fields.gender, gender);
  readField(line, "age", time, fields.age, age);
  readField(line, "faceDetected", time, fields.faceDetected, booleanValue);
  readField(line, "facialPoints", time, fields.facialPoints, facialPoints);
  readField(line, "voiceEmotion", time, fields.voiceEmotion, voiceEmotion);
  readField(line, "asrEmotion", time, fields.asrEmotion, numberValue);
  readField(line, "touchEmotion", time, fields.touchEmotion,
            [](JsonObject& object) { return object.get("value").integer32(); });
  readField(line, "contextEmotion", time, fields.contextEmotion, contextEmotion);
  return read;
}

Event event(JsonObject& line, JsonValue kind, Time time) {
  const std::string_view name = kind.text();
  const auto person = [&line] { return line.get("person").integer32(); };
  const auto scope = [&line] { return std::string(line.get("scope").text()); };
  if (name == "observation") return {time, observation(line, time)};
  if (name == "not_seen") return {time, NotSeen{person()}};
  if (name == "remove") return {time, Remove{person()}};
  if (name == "start_recording") {
    const auto samples = line.find("samples");
    return {time, StartRecording{person(), scope(), samples ? samples->integer32() : -1}};
  }
  if (name == "stop_recording") return {time, StopRecording{person(), scope()}};
  if (name == "movement") return {time, Movement{}};
  if (name == "activity") return {time, Activity{line.get("value").number()}};
  kind.fail(fmt::format("{:?} is not an event", name));
}

}  // namespace

std::optional<Event> RecordingReader::next() {
  while (_lines.next(_text)) {
    if (_text.find_first_not_of(" \t\r") == std::string::npos) continue;
    try {
      if (auto read = readLine()) return read;
    } catch (const JsonError& error) {
      throw BadLine(_lines.place() + error.what());
    }
  }
  return std::nullopt;
}

void RecordingReader::readHeader(JsonObject& line) {
  line.get("version").integer(1, 1);
  if (const auto source = line.find("source")) _source = source->text();
}

/// The event on the present line; none when it is the header.
std::optional<Event> RecordingReader::readLine() {
  const bool isFirst = !_started;
  _started = true;
  JsonObject line(_json.parse(_text));
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
