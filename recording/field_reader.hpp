#ifndef ZORVEL_RECORDING_FIELD_READER_HPP
#define ZORVEL_RECORDING_FIELD_READER_HPP

#include <fmt/format.h>

#include <string_view>
#include <type_traits>

#include "recording/event.hpp"
#include "recording/json_line.hpp"
#include "recording/observation_fields.hpp"

namespace zorvel {

inline Time timeOf(JsonValue value) {
  return Time(ku::SystemClock::duration(value.integer(-latestTime.count(), latestTime.count())));
}

inline float readFloat(JsonValue value, Floats floats) {
  if (floats == Floats::Finite || !value.isText()) return value.number();
  for (const auto& [text, number] : nonFiniteFloats) {
    if (value.text() == text) return number;
  }
  value.fail("must be a number, or one of the texts nan, inf and -inf");
}

/// Reads the members of a field's object.
class MemberReader {
 public:
  MemberReader(JsonObject& object, Floats floats) : _object(object), _floats(floats) {}

  template <typename Number>
  void operator()(const NumberKind& kind, Number& number) {
    const JsonValue value = _object.get(kind.name);
    if constexpr (std::is_same_v<Number, bool>) {
      number = value.boolean();
    } else if constexpr (std::is_same_v<Number, float>) {
      number = readFloat(value, _floats);
    } else if constexpr (std::is_signed_v<Number>) {
      number = value.integer32();
    } else {
      number = value.unsigned32();
    }
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
      MemberReader members(landmark, _floats);
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
  void readWhole(JsonValue found, const NumberKinds& kinds, Value& value) {
    JsonObject object(found);
    MemberReader members(object, _floats);
    visitMembers(members, kinds, value);
    object.finish();
  }

  JsonObject& _object;
  Floats _floats;
};

/// Reads one field of an observation, if the line has it. A reading without a time of its own has
/// the line's.
template <typename Value>
void readField(JsonObject& line, Time lineTime, const ObservationField<Value>& field,
               ZV::PersonObservation& fields, Floats floats) {
  const auto found = line.find(field.name);
  if (!found) return;
  JsonObject object(*found);
  const auto time = object.find("time");
  auto value = blankValue<Value>();
  MemberReader members(object, floats);
  visitMembers(members, field.numbers, value);
  (fields.*field.member).emplace(time ? timeOf(*time) : lineTime, value);
  object.finish();
}

/// Reads the fields of an observation.
inline ZV::PersonObservation readFields(JsonObject& line, Time time, Floats floats) {
  ZV::PersonObservation fields;
  forEachField([&](std::size_t /*index*/, const auto& field) {
    readField(line, time, field, fields, floats);
  });
  return fields;
}

}  // namespace zorvel

#endif
