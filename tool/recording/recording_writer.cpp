#include "recording/recording_writer.hpp"

#include <cmath>

#include "recording/json_writer.hpp"

namespace zorvel {
namespace {

void write(JsonLineWriter& line, bool value) { line.member("value", value); }
void write(JsonLineWriter& line, float value) { line.member("value", value); }
void write(JsonLineWriter& line, std::int32_t value) { line.member("value", std::int64_t{value}); }

void write(JsonLineWriter& line, const ZV::ValueConfidence<float>& value) {
  line.member("value", value.value);
  line.member("confidence", value.confidence);
}

void write(JsonLineWriter& line, const ZV::ValueConfidence<bool>& value) {
  line.member("value", value.value);
  line.member("confidence", value.confidence);
}

void write(JsonLineWriter& line, const ZV::ValueConfidence<unsigned int>& value) {
  line.member("value", std::int64_t{value.value});
  line.member("confidence", value.confidence);
}

void write(JsonLineWriter& line, const ZV::Smile& smile) { write(line, smile.smile()); }

void write(JsonLineWriter& line, const ZV::Gaze& gaze) {
  line.member("yaw", gaze.yaw);
  line.member("pitch", gaze.pitch);
}

void write(JsonLineWriter& line, const ZV::HeadPosture& posture) {
  line.member("yaw", posture.yaw());
  line.member("pitch", posture.pitch());
  line.member("roll", posture.roll());
}

/// Whether it is what a reader takes for a number left out.
bool isPlainZero(float value) { return value == 0.0f && !std::signbit(value); }

void writeEmotion(JsonLineWriter& line, std::string_view name,
                  const ZV::ValueConfidence<float>& emotion) {
  if (isPlainZero(emotion.value) && isPlainZero(emotion.confidence)) return;
  line.key(name);
  line.begin();
  write(line, emotion);
  line.end();
}

void write(JsonLineWriter& line, const ZV::Expressions& expressions) {
  writeEmotion(line, "calm", expressions.calm);
  writeEmotion(line, "anger", expressions.anger);
  writeEmotion(line, "joy", expressions.joy);
  writeEmotion(line, "sorrow", expressions.sorrow);
  writeEmotion(line, "laughter", expressions.laughter);
  writeEmotion(line, "excitement", expressions.excitement);
  writeEmotion(line, "surprise", expressions.surprise);
}

void write(JsonLineWriter& line, const ZV::FacialPoints& points) {
  line.key("points");
  line.beginList();
  for (int number = 0; number <= 11; ++number) {
    const auto point = points.facialPoint(static_cast<ZV::PointDescription>(number));
    const auto [x, y] = point.value;
    if (isPlainZero(x) && isPlainZero(y) && isPlainZero(point.confidence)) continue;
    line.begin();
    line.member("point", std::int64_t{number});
    line.member("x", x);
    line.member("y", y);
    line.member("confidence", point.confidence);
    line.end();
  }
  line.endList();
}

void write(JsonLineWriter& line, const ZV::ContextEmotion& context) {
  line.member("emotion", std::int64_t{context.emotion});
  line.member("duration", context.duration);
}

template <typename T>
void writeField(JsonLineWriter& line, std::string_view name, Time lineTime,
                const ZV::PersonObservation::Field<T>& field) {
  if (!field) return;
  line.key(name);
  line.begin();
  write(line, field->value);
  if (field->timestamp != lineTime) line.member("time", field->timestamp);
  line.end();
}

void begin(JsonLineWriter& line, std::string_view event, std::int32_t person) {
  line.member("event", event);
  line.member("person", std::int64_t{person});
}

void write(JsonLineWriter& line, Time time, const Observation& observation) {
  begin(line, "observation", observation.person);
  const auto& fields = observation.fields;
  writeField(line, "lookingAtRobot", time, fields.lookingAtRobot);
  writeField(line, "faceDetected", time, fields.faceDetected);
  writeField(line, "height", time, fields.height);
  writeField(line, "distance", time, fields.distance);
  writeField(line, "asrEmotion", time, fields.asrEmotion);
  writeField(line, "touchEmotion", time, fields.touchEmotion);
  writeField(line, "gaze", time, fields.gaze);
  writeField(line, "headPosture", time, fields.headPosture);
  writeField(line, "smile", time, fields.smile);
  writeField(line, "gender", time, fields.gender);
  writeField(line, "age", time, fields.age);
  writeField(line, "expressions", time, fields.expressions);
  // A voice has no surprise, and the other emotions are written alike.
  writeField(line, "voiceEmotion", time, fields.voiceEmotion);
  writeField(line, "facialPoints", time, fields.facialPoints);
  writeField(line, "contextEmotion", time, fields.contextEmotion);
}

void write(JsonLineWriter& line, Time /*time*/, const NotSeen& notSeen) {
  begin(line, "not_seen", notSeen.person);
}

void write(JsonLineWriter& line, Time /*time*/, const Remove& remove) {
  begin(line, "remove", remove.person);
}

void write(JsonLineWriter& line, Time /*time*/, const StartRecording& start) {
  begin(line, "start_recording", start.person);
  line.member("scope", start.scope);
  if (start.samples != -1) line.member("samples", std::int64_t{start.samples});
}

void write(JsonLineWriter& line, Time /*time*/, const StopRecording& stop) {
  begin(line, "stop_recording", stop.person);
  line.member("scope", stop.scope);
}

void write(JsonLineWriter& line, Time /*time*/, const Movement& /*movement*/) {
  line.member("event", std::string_view("movement"));
}

void write(JsonLineWriter& line, Time /*time*/, const Activity& activity) {
  line.member("event", std::string_view("activity"));
  line.member("value", activity.value);
}

}  // namespace

void appendHeader(fmt::memory_buffer& text, std::string_view source) {
  JsonLineWriter line(text);
  line.member("event", std::string_view("header"));
  line.member("version", std::int64_t{1});
  line.member("source", source);
  line.finish();
}

void appendEvent(fmt::memory_buffer& text, const Event& event) {
  JsonLineWriter line(text);
  line.member("time", event.time);
  std::visit([&](const auto& what) { write(line, event.time, what); }, event.what);
  line.finish();
}

}  // namespace zorvel
