#ifndef ZORVEL_TOOL_RECORDING_OBSERVATION_FIELDS_HPP
#define ZORVEL_TOOL_RECORDING_OBSERVATION_FIELDS_HPP

#include <array>
#include <boost/chrono/duration.hpp>
#include <cstddef>
#include <optional>
#include <string_view>
#include <zv/person_observation.hpp>

namespace zorvel {

/// A number that a reading consists of, and between which bounds it makes sense.
struct NumberKind {
  std::string_view name;
  float lowest = 0.0f;
  float highest = 0.0f;
};

struct FieldKind {
  std::string_view name;
  /// How long the memory keeps a reading; none for a field without memory.
  std::optional<boost::chrono::milliseconds> memory;
  /// Whether a living person gives other numbers every time.
  bool varies;
  /// The last ones may be without a name: they are none.
  std::array<NumberKind, 3> numbers;
};

/// The fields of an observation, in the order of their declaration.
extern const std::array<FieldKind, 15> fieldKinds;

/// Calls `visit` with the index and the reading of each field that is set.
template <typename Visit>
void forEachField(const ZV::PersonObservation& fields, Visit visit) {
  std::size_t index = 0;
  const auto each = [&](const auto& field) {
    if (field) visit(index, *field);
    ++index;
  };
  each(fields.lookingAtRobot);
  each(fields.height);
  each(fields.distance);
  each(fields.gaze);
  each(fields.smile);
  each(fields.expressions);
  each(fields.headPosture);
  each(fields.gender);
  each(fields.age);
  each(fields.faceDetected);
  each(fields.facialPoints);
  each(fields.voiceEmotion);
  each(fields.asrEmotion);
  each(fields.touchEmotion);
  each(fields.contextEmotion);
}

}  // namespace zorvel

#endif
