#include "recording/recording_writer.hpp"

#include <array>
#include <cmath>
#include <utility>

#include "recording/json_writer.hpp"
#include "recording/observation_fields.hpp"

namespace zorvel {
namespace {

/// Whether a reader would fill this number in if it were left out.
bool isPlainZero(float value) { return value == 0.0f && !std::signbit(value); }

/// Writes the members of a field's object.
class MemberWriter {
 public:
  explicit MemberWriter(JsonLineWriter& line) : _line(line) {}

  template <typename Number>
  void operator()(const NumberKind& kind, Number number) {
    _line.member(kind.name, number);
  }

  void emotion(std::string_view name, const NumberKinds& kinds,
               ZV::ValueConfidence<float> emotion) {
    if (isPlainZero(emotion.value) && isPlainZero(emotion.confidence)) return;
    _line.object(name, [&] { visitMembers(*this, kinds, emotion); });
  }

  void points(const NumberKinds& kinds, const ZV::FacialPoints& points) {
    _line.key("points");
    _line.beginList();
    for (int number = 0; number <= 11; ++number) {
      const auto point = points.facialPoint(static_cast<ZV::PointDescription>(number));
      const auto [x, y] = point.value;
      if (isPlainZero(x) && isPlainZero(y) && isPlainZero(point.confidence)) continue;
      _line.begin();
      _line.member("point", number);
      (*this)(kinds[0], x);
      (*this)(kinds[1], y);
      (*this)(kinds[2], point.confidence);
      _line.end();
    }
    _line.endList();
  }

 private:
  JsonLineWriter& _line;
};

template <typename Value>
void writeField(JsonLineWriter& line, Time lineTime, const ObservationField<Value>& field,
                const ZV::PersonObservation& fields) {
  const auto& reading = fields.*field.member;
  if (!reading) return;
  line.object(field.name, [&] {
    MemberWriter members(line);
    Value value = reading->value;
    visitMembers(members, field.numbers, value);
    if (reading->timestamp != lineTime) line.member("time", reading->timestamp);
  });
}

/// The index of the field at each position of a written line.
constexpr std::array<std::size_t, fieldCount> writtenOrder = [] {
  std::array<std::size_t, fieldCount> order{};
  std::array<bool, fieldCount> isTaken{};
  for (std::size_t index = 0; index < fieldCount; ++index) {
    const std::size_t place = fieldKinds.at(index).writtenPlace;
    if (isTaken.at(place)) throw "two fields share a position";  // fails to compile
    isTaken.at(place) = true;
    order.at(place) = index;
  }
  return order;
}();

template <std::size_t... places>
void writeFields(JsonLineWriter& line, Time time, const ZV::PersonObservation& fields,
                 std::index_sequence<places...> /*all*/) {
  (writeField(line, time, std::get<writtenOrder.at(places)>(observationFields), fields), ...);
}

void begin(JsonLineWriter& line, std::string_view event, std::int32_t person) {
  line.member("event", event);
  line.member("person", person);
}

void write(JsonLineWriter& line, Time time, const Observation& observation) {
  begin(line, Observation::name, observation.person);
  writeFields(line, time, observation.fields, std::make_index_sequence<fieldCount>());
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

}  // namespace zorvel
