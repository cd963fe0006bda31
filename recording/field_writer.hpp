#ifndef ZORVEL_RECORDING_FIELD_WRITER_HPP
#define ZORVEL_RECORDING_FIELD_WRITER_HPP

#include <array>
#include <cmath>
#include <string_view>
#include <type_traits>

#include "recording/json_writer.hpp"
#include "recording/observation_fields.hpp"

namespace zorvel {

inline void writeFloat(JsonLineWriter& line, float number, Floats floats) {
  if (floats == Floats::Any && !std::isfinite(number)) {
    line.value(std::isnan(number) ? "nan" : number > 0.0f ? "inf" : "-inf");
  } else {
    line.value(number);
  }
}

/// Whether a reader would fill this number in if it were left out.
inline bool isPlainZero(float value) { return value == 0.0f && !std::signbit(value); }

/// Writes the members of a field's object.
class MemberWriter {
 public:
  MemberWriter(JsonLineWriter& line, Floats floats) : _line(line), _floats(floats) {}

  template <typename Number>
  void operator()(const NumberKind& kind, Number number) {
    _line.key(kind.name);
    if constexpr (std::is_same_v<Number, float>) {
      writeFloat(_line, number, _floats);
    } else {
      _line.value(number);
    }
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
  Floats _floats;
};

template <typename Value>
void writeField(JsonLineWriter& line, Time lineTime, const ObservationField<Value>& field,
                const ZV::PersonObservation& fields, Floats floats) {
  const auto& reading = fields.*field.member;
  if (!reading) return;
  line.object(field.name, [&] {
    MemberWriter members(line, floats);
    Value value = reading->value;
    visitMembers(members, field.numbers, value);
    if (reading->timestamp != lineTime) line.member("time", reading->timestamp);
  });
}

/// The index of the field at each position of a written line.
inline constexpr std::array<std::size_t, fieldCount> writtenOrder = [] {
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
void writeFieldsAt(JsonLineWriter& line, Time time, const ZV::PersonObservation& fields,
                   Floats floats, std::index_sequence<places...> /*all*/) {
  (writeField(line, time, std::get<writtenOrder.at(places)>(observationFields), fields, floats),
   ...);
}

/// Writes the fields of an observation. A field's time is written only where it differs from the
/// line's.
inline void writeFields(JsonLineWriter& line, Time time, const ZV::PersonObservation& fields,
                        Floats floats) {
  writeFieldsAt(line, time, fields, floats, std::make_index_sequence<fieldCount>());
}

}  // namespace zorvel

#endif
