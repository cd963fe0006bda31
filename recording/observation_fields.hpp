#ifndef ZORVEL_RECORDING_OBSERVATION_FIELDS_HPP
#define ZORVEL_RECORDING_OBSERVATION_FIELDS_HPP

#include <array>
#include <boost/chrono/duration.hpp>
#include <cstddef>
#include <limits>
#include <optional>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <zv/force.hpp>
#include <zv/person_memory.hpp>
#include <zv/person_observation.hpp>

namespace zorvel {

/// Which floats a text may have.
enum class Floats {
  Finite,
  Any,  ///< those that are not finite are written as texts
};

inline constexpr std::array<std::pair<std::string_view, float>, 3> nonFiniteFloats{
    {{"nan", std::numeric_limits<float>::quiet_NaN()},
     {"inf", std::numeric_limits<float>::infinity()},
     {"-inf", -std::numeric_limits<float>::infinity()}}};

/// One of the numbers in a reading: its key in a recording, and the range in which it makes sense.
struct NumberKind {
  std::string_view name;
  float lowest = 0.0f;
  float highest = 0.0f;
};

using NumberKinds = std::array<NumberKind, 3>;

struct FieldKind {
  std::string_view name;
  /// Its position in a written line, from 0.
  std::size_t writtenPlace;
  /// How long readings are remembered; none where they are not.
  std::optional<boost::chrono::milliseconds> memory;
  /// Whether the numbers of a living person differ every time.
  bool varies;
  /// What its readings pull, apart from confidences, if anything.
  std::optional<ZV::Quantity> pulls;
  /// Unused entries, at the end, have no name.
  NumberKinds numbers;

  /// Whether a reading is of something that happened, such as a touch, and not of what is seen all
  /// the time.
  constexpr bool isMoment() const { return pulls && !varies; }
};

/// A field of an observation, and where its readings are kept.
template <typename Value>
struct ObservationField : FieldKind {
  constexpr ObservationField(ZV::PersonObservation::Field<Value> ZV::PersonObservation::*member_,
                             const FieldKind& kind)
      : FieldKind(kind), member(member_) {}

  ZV::PersonObservation::Field<Value> ZV::PersonObservation::*member;
};

/// The fields of an observation, in the order of their declaration. Recordings have no
/// other list of them.
inline constexpr std::tuple observationFields = [] {
  using O = ZV::PersonObservation;
  constexpr auto usual = ZV::PersonMemory::maxAge;
  constexpr auto context = ZV::PersonMemory::contextEmotionMaxAge;
  constexpr std::nullopt_t unremembered = std::nullopt;
  constexpr bool varies = true, stays = false;
  constexpr auto valence = ZV::Quantity::Valence, attention = ZV::Quantity::Attention;
  constexpr std::nullopt_t nothing = std::nullopt;
  constexpr float unlimited = std::numeric_limits<float>::infinity();
  constexpr NumberKind unit{"value", 0, 1}, any{"value", -unlimited, unlimited};
  constexpr NumberKind confidence{"confidence", 0, 1};
  constexpr NumberKind yaw{"yaw", -180, 180}, pitch{"pitch", -180, 180}, roll{"roll", -180, 180};
  constexpr NumberKind x{"x", -unlimited, unlimited}, y{"y", -unlimited, unlimited};
  constexpr NumberKind emotion{"emotion", -unlimited, unlimited}, duration{"duration", 0, 600};
  constexpr auto upTo = [](float highest) { return NumberKind{"value", 0, highest}; };
  const auto field = [](auto member, const FieldKind& kind) {
    return ObservationField(member, kind);
  };
  return std::tuple{
      field(&O::lookingAtRobot, {"lookingAtRobot", 0, usual, stays, nothing, {unit}}),
      field(&O::height, {"height", 2, unremembered, stays, nothing, {upTo(3)}}),
      field(&O::distance, {"distance", 3, usual, varies, nothing, {upTo(10)}}),
      field(&O::gaze, {"gaze", 6, usual, varies, attention, {yaw, pitch}}),
      field(&O::smile, {"smile", 8, usual, varies, valence, {unit, confidence}}),
      field(&O::expressions, {"expressions", 11, usual, varies, valence, {unit, confidence}}),
      field(&O::headPosture, {"headPosture", 7, usual, varies, attention, {yaw, pitch, roll}}),
      field(&O::gender, {"gender", 9, usual, stays, nothing, {unit, confidence}}),
      field(&O::age, {"age", 10, usual, stays, nothing, {upTo(130), confidence}}),
      field(&O::faceDetected, {"faceDetected", 1, usual, stays, nothing, {unit}}),
      field(&O::facialPoints, {"facialPoints", 13, usual, stays, nothing, {x, y, confidence}}),
      field(&O::voiceEmotion,
            {"voiceEmotion", 12, unremembered, stays, valence, {unit, confidence}}),
      field(&O::asrEmotion, {"asrEmotion", 4, usual, stays, valence, {any}}),
      field(&O::touchEmotion, {"touchEmotion", 5, usual, stays, valence, {any}}),
      field(&O::contextEmotion,
            {"contextEmotion", 14, context, stays, valence, {emotion, duration}}),
  };
}();

inline constexpr std::size_t fieldCount = ZV::PersonObservation::fieldCount;

static_assert(std::tuple_size_v<decltype(observationFields)> == fieldCount);
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
  if constexpr (std::is_constructible_v<Value, int, float>) {
    return Value(0, 0.0f);
  } else {
    return Value();
  }
}

// What the value of a reading consists of. Each function calls `members(kind, number)` for each
// number in turn, by reference, so that `members` can read a value, write it or fill it in.
// Emotions and facial points go to `members.emotion(name, kinds, emotion)` and
// `members.points(kinds, points)`.

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
