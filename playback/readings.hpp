#ifndef ZORVEL_PLAYBACK_READINGS_HPP
#define ZORVEL_PLAYBACK_READINGS_HPP

#include <array>
#include <cstddef>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "recording/event.hpp"
#include "recording/observation_fields.hpp"

namespace zorvel {

/// The readings of one field that a force can come from.
struct FieldReadings {
  /// The field, as a recording calls it.
  std::string_view field;
  /// How many there are: those remembered, or the one of the cycle.
  std::size_t count = 0;
  /// The newest one: its time, and its numbers with their names; of emotions, only those above 0.
  Time time;
  std::vector<std::pair<std::string, float>> numbers;
};

/// The readings of a person, as far as forces of a moment come from them.
class Readings {
 public:
  Readings() = default;
  /// Those of a person who was restored at `now`.
  Readings(Time now, const ZV::SavedPerson& saved);

  /// Adds a cycle of the person, which is played at `now`.
  void add(Time now, const Event& cycle);
  /// Takes over what is remembered of the same person under another id.
  void merge(Readings& other);
  /// What forces of that reason came from, at `now`; empty for one that comes from no reading.
  std::vector<FieldReadings> behind(std::string_view reason, Time now) const;

 private:
  struct Field {
    std::set<Time> times;
    FieldReadings newest;
  };

  std::array<Field, fieldCount> _fields;
  /// Whether the last cycle brought one.
  std::array<bool, fieldCount> _observed{};
};

/// In words, such as "headPosture yaw 28°, pitch −12°, roll 0°, the newest of 40".
std::string describe(const FieldReadings& readings);

/// Whether any force comes from readings of the field.
bool givesForces(std::string_view field);

}  // namespace zorvel

#endif
