#ifndef ZORVEL_TESTS_FILL_OBSERVATION_HPP
#define ZORVEL_TESTS_FILL_OBSERVATION_HPP

#include <functional>
#include <string_view>

#include "recording/event.hpp"
#include "recording/observation_fields.hpp"

namespace zorvel {

// Observations with numbers of the caller's choice, for tests, fuzzers and benchmarks.

namespace detail {

template <typename Fill>
class MemberFiller {
 public:
  explicit MemberFiller(Fill& fill) : _fill(fill) {}

  template <typename Number>
  void operator()(const NumberKind& kind, Number& number) {
    _fill(kind, number);
  }

  void emotion(std::string_view /*name*/, const NumberKinds& kinds,
               ZV::ValueConfidence<float>& emotion) {
    visitMembers(*this, kinds, emotion);
  }

  void points(const NumberKinds& kinds, ZV::FacialPoints& points) {
    for (int number = 0; number < 12; ++number) {
      ZV::FacialPoints::Point point;
      (*this)(kinds[0], point.value.first);
      (*this)(kinds[1], point.value.second);
      (*this)(kinds[2], point.confidence);
      points.setFacialPoint(static_cast<ZV::PointDescription>(number), point);
    }
  }

 private:
  Fill& _fill;
};

}  // namespace detail

/// Sets a field to a reading taken at `time`. `fill(kind, number)` sets each of its numbers, a
/// bool, a float or a 32-bit integer.
template <typename Value, typename Fill>
void fillField(const ObservationField<Value>& field, ZV::PersonObservation& fields, Time time,
               Fill fill) {
  auto value = blankValue<Value>();
  detail::MemberFiller<Fill> members(fill);
  visitMembers(members, field.numbers, value);
  (fields.*field.member).emplace(time, value);
}

/// An observation with every field.
template <typename Fill>
ZV::PersonObservation filledObservation(Time time, Fill fill) {
  ZV::PersonObservation fields;
  forEachField([&](std::size_t /*index*/, const auto& field) {
    fillField(field, fields, time, std::ref(fill));
  });
  return fields;
}

}  // namespace zorvel

#endif
