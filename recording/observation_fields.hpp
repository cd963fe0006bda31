#ifndef ZORVEL_RECORDING_OBSERVATION_FIELDS_HPP
#define ZORVEL_RECORDING_OBSERVATION_FIELDS_HPP

#include <array>
#include <boost/chrono/duration.hpp>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <zv/person_observation.hpp>

namespace zorvel {

/// One of the numbers in a reading: its key in a recording, and the range in which it makes sense.
struct NumberKind {
  std::string_view name;
  float lowest = 0.0f;
  float highest = 0.0f;
};

struct FieldKind {
  std::string_view name;
  /// How long readings are remembered; none where they are not.
  std::optional<boost::chrono::milliseconds> memory;
  /// Whether the numbers of a living person differ every time.
  bool varies;
  /// Its position in a written line, from 0.
  std::size_t writtenPlace;
  /// Unused entries, at the end, have no name.
  std::array<NumberKind, 3> numbers;
};

/// A field of an observation, and where its readings are kept.
template <typename Value>
struct ObservationField : FieldKind {
  ZV::PersonObservation::Field<Value> ZV::PersonObservation::*member;
};

namespace detail {

constexpr boost::chrono::milliseconds usualMemory{7000};
constexpr boost::chrono::milliseconds contextMemory{20000};
constexpr float unlimited = std::numeric_limits<float>::infinity();
constexpr NumberKind unit{"value", 0.0f, 1.0f};
constexpr NumberKind anyValue{"value", -unlimited, unlimited};
constexpr NumberKind confidence{"confidence", 0.0f, 1.0f};
constexpr NumberKind yaw{"yaw", -180.0f, 180.0f};
constexpr NumberKind pitch{"pitch", -180.0f, 180.0f};
constexpr NumberKind roll{"roll", -180.0f, 180.0f};

}  // namespace detail

/// The fields of an observation, in the order of their declaration. This is the only list of them.
inline constexpr std::tuple observationFields = [] {
  using namespace detail;
  using ZV::PersonObservation;
  using ZV::ValueConfidence;
  return std::tuple{
      ObservationField<bool>{{"lookingAtRobot", usualMemory, false, 0, {unit}},
                             &PersonObservation::lookingAtRobot},
      ObservationField<float>{{"height", std::nullopt, false, 2, {NumberKind{"value", 0.0f, 3.0f}}},
                              &PersonObservation::height},
      ObservationField<float>{
          {"distance", usualMemory, true, 3, {NumberKind{"value", 0.0f, 10.0f}}},
          &PersonObservation::distance},
      ObservationField<ZV::Gaze>{{"gaze", usualMemory, true, 6, {yaw, pitch}},
                                 &PersonObservation::gaze},
      ObservationField<ZV::Smile>{{"smile", usualMemory, true, 8, {unit, confidence}},
                                  &PersonObservation::smile},
      ObservationField<ZV::Expressions>{{"expressions", usualMemory, true, 11, {unit, confidence}},
                                        &PersonObservation::expressions},
      ObservationField<ZV::HeadPosture>{{"headPosture", usualMemory, true, 7, {yaw, pitch, roll}},
                                        &PersonObservation::headPosture},
      ObservationField<ValueConfidence<bool>>{{"gender", usualMemory, false, 9, {unit, confidence}},
                                              &PersonObservation::gender},
      ObservationField<ValueConfidence<unsigned int>>{
          {"age", usualMemory, false, 10, {NumberKind{"value", 0.0f, 130.0f}, confidence}},
          &PersonObservation::age},
      ObservationField<bool>{{"faceDetected", usualMemory, false, 1, {unit}},
                             &PersonObservation::faceDetected},
      ObservationField<ZV::FacialPoints>{{"facialPoints",
                                          usualMemory,
                                          false,
                                          13,
                                          {NumberKind{"x", -unlimited, unlimited},
                                           NumberKind{"y", -unlimited, unlimited}, confidence}},
                                         &PersonObservation::facialPoints},
      ObservationField<ZV::VoiceEmotion>{
          {"voiceEmotion", std::nullopt, false, 12, {unit, confidence}},
          &PersonObservation::voiceEmotion},
      ObservationField<float>{{"asrEmotion", usualMemory, false, 4, {anyValue}},
                              &PersonObservation::asrEmotion},
      ObservationField<std::int32_t>{{"touchEmotion", usualMemory, false, 5, {anyValue}},
                                     &PersonObservation::touchEmotion},
      ObservationField<ZV::ContextEmotion>{
          {"contextEmotion",
           contextMemory,
           false,
           14,
           {NumberKind{"emotion", -unlimited, unlimited}, NumberKind{"duration", 0.0f, 600.0f}}},
          &PersonObservation::contextEmotion},
  };
}();

inline constexpr std::size_t fieldCount = std::tuple_size_v<decltype(observationFields)>;

static_assert(std::apply(
                  [](const auto&... field) {
                    const ZV::PersonObservation* const none = nullptr;
                    return (sizeof(none->*field.member) + ...);
                  },
                  observationFields) == sizeof(ZV::PersonObservation),
              "the table has every field of an observation");

/// The fields without their types.
inline constexpr std::array<FieldKind, fieldCount> fieldKinds = std::apply(
    [](const auto&... field) { return std::array{static_cast<const FieldKind&>(field)...}; },
    observationFields);

/// Calls `visit(index, field)` for each field.
template <typename Visit>
void forEachField(Visit visit) {
  std::apply(
      [&visit](const auto&... field) {
        std::size_t index = 0;
        (visit(index++, field), ...);
      },
      observationFields);
}

/// Calls `visit(index, reading)` for each field that is set.
template <typename PersonObservation, typename Visit>
void forEachReading(PersonObservation& fields, Visit visit) {
  forEachField([&](std::size_t index, const auto& field) {
    auto& reading = fields.*field.member;
    if (reading) visit(index, *reading);
  });
}

/// The emotions that a face shows; a voice carries the first six.
inline constexpr std::array<
    std::pair<std::string_view, ZV::ValueConfidence<float> ZV::Expressions::*>, 7>
    emotions{{{"calm", &ZV::Expressions::calm},
              {"anger", &ZV::Expressions::anger},
              {"joy", &ZV::Expressions::joy},
              {"sorrow", &ZV::Expressions::sorrow},
              {"laughter", &ZV::Expressions::laughter},
              {"excitement", &ZV::Expressions::excitement},
              {"surprise", &ZV::Expressions::surprise}}};

inline constexpr std::size_t voiceEmotionCount = 6;

/// A value for a reader to fill in.
template <typename Value>
Value blankValue() {
  if constexpr (std::is_default_constructible_v<Value>) {
    return Value();
  } else {
    return Value(0, 0.0f);
  }
}

// What the value of a reading consists of. Each function calls `members(kind, number)` for each
// number in turn, by reference, so that `members` can read a value, write it or fill it in.
// Emotions and facial points go to `members.emotion(name, kinds, emotion)` and
// `members.points(kinds, points)`.

using NumberKinds = std::array<NumberKind, 3>;

template <typename Members, typename Number>
std::enable_if_t<std::is_arithmetic_v<Number>> visitMembers(Members& members,
                                                            const NumberKinds& kinds,
                                                            Number& value) {
  members(kinds[0], value);
}

template <typename Members, typename T>
void visitMembers(Members& members, const NumberKinds& kinds, ZV::ValueConfidence<T>& value) {
  members(kinds[0], value.value);
  members(kinds[1], value.confidence);
}

template <typename Members>
void visitMembers(Members& members, const NumberKinds& kinds, ZV::Gaze& gaze) {
  members(kinds[0], gaze.yaw);
  members(kinds[1], gaze.pitch);
}

template <typename Members>
void visitMembers(Members& members, const NumberKinds& kinds, ZV::HeadPosture& posture) {
  float yaw = posture.yaw();
  float pitch = posture.pitch();
  float roll = posture.roll();
  members(kinds[0], yaw);
  members(kinds[1], pitch);
  members(kinds[2], roll);
  posture.setHeadPosture(yaw, pitch, roll);
}

template <typename Members>
void visitMembers(Members& members, const NumberKinds& kinds, ZV::Smile& smile) {
  auto degree = smile.smile();
  visitMembers(members, kinds, degree);
  smile.setSmile(degree);
}

template <typename Members>
void visitMembers(Members& members, const NumberKinds& kinds, ZV::Expressions& face) {
  for (const auto& [name, emotion] : emotions) members.emotion(name, kinds, face.*emotion);
}

template <typename Members>
void visitMembers(Members& members, const NumberKinds& kinds, ZV::VoiceEmotion& voice) {
  for (std::size_t index = 0; index < voiceEmotionCount; ++index) {
    const auto& [name, emotion] = emotions.at(index);
    members.emotion(name, kinds, static_cast<ZV::Expressions&>(voice).*emotion);
  }
}

template <typename Members>
void visitMembers(Members& members, const NumberKinds& kinds, ZV::FacialPoints& points) {
  members.points(kinds, points);
}

template <typename Members>
void visitMembers(Members& members, const NumberKinds& kinds, ZV::ContextEmotion& context) {
  members(kinds[0], context.emotion);
  members(kinds[1], context.duration);
}

}  // namespace zorvel

#endif
