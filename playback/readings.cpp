#include "playback/readings.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <zv/force.hpp>

#include "inspection/format.hpp"

namespace zorvel {
namespace {

/// The fields that the forces of a reason come from, and whether what is remembered counts or the
/// cycle's own reading.
struct Origin {
  std::string_view reason;
  bool isRemembered;
  std::array<std::string_view, 2> fields;
};

constexpr std::array origins{
    Origin{ZV::force_reasons::pointsConfidence.name, true, {"facialPoints"}},
    Origin{ZV::force_reasons::faceCharacteristics.name, false, {"expressions", "smile"}},
    Origin{ZV::force_reasons::winnerUnknown.name, false, {"expressions", "smile"}},
    Origin{ZV::force_reasons::bodyLanguage.name, true, {"headPosture"}},
    Origin{ZV::force_reasons::headAngles.name, true, {"headPosture"}},
    Origin{ZV::force_reasons::gazeDirection.name, true, {"gaze"}},
    Origin{ZV::force_reasons::observation.name, true, {"headPosture", "gaze"}},
    Origin{ZV::force_reasons::voiceEmotion.name, false, {"voiceEmotion"}},
    Origin{ZV::force_reasons::asrEmotion.name, true, {"asrEmotion"}},
    Origin{ZV::force_reasons::touchEmotion.name, true, {"touchEmotion"}},
    Origin{ZV::force_reasons::contextEmotion.name, true, {"contextEmotion"}},
    Origin{ZV::force_reasons::distanceLimitation.name, false, {"distance"}},
    Origin{ZV::force_reasons::heightLimitation.name, false, {"height"}},
    Origin{ZV::force_reasons::noObservation.name, false, {}},
    Origin{ZV::force_reasons::notVisible.name, false, {}}};
static_assert(origins.size() == ZV::force_reasons::all.size());

/// The numbers of a reading, by name.
class NumberList {
 public:
  template <typename Number>
  void operator()(const NumberKind& kind, const Number& number) {
    _numbers.emplace_back(kind.name, static_cast<float>(number));
  }
  void emotion(std::string_view name, const NumberKinds& /*kinds*/,
               const ZV::ValueConfidence<float>& emotion) {
    if (emotion.value > 0.0f) _numbers.emplace_back(name, emotion.value);
  }
  void points(const NumberKinds& kinds, const ZV::FacialPoints& points) {
    _numbers.emplace_back(kinds[2].name, points.globalConfidence());
  }
  std::vector<std::pair<std::string, float>> take() { return std::move(_numbers); }

 private:
  std::vector<std::pair<std::string, float>> _numbers;
};

std::string_view unitOf(std::string_view field, std::string_view number) {
  if (number == "yaw" || number == "pitch" || number == "roll") return "°";
  if (number == "duration") return " s";
  return field == "distance" || field == "height" ? " m" : "";
}

}  // namespace

Readings::Readings(Time now, const ZV::SavedPerson& saved) {
  for (auto remembered = saved.memory.rbegin(); remembered != saved.memory.rend(); ++remembered) {
    add(now, {now, Observation{0, *remembered}});
  }
  _observed.fill(false);
}

void Readings::add(Time now, const Event& cycle) {
  _observed.fill(false);
  const auto* const observation = std::get_if<Observation>(&cycle.what);
  if (observation == nullptr) return;
  forEachReading(observation->fields, [&](std::size_t index, const auto& reading) {
    const FieldKind& kind = fieldKinds.at(index);
    Field& field = _fields.at(index);
    _observed.at(index) = true;
    // Of two readings of one time, the first is remembered.
    if (kind.memory && !field.times.insert(reading.timestamp).second) return;
    if (kind.memory && *field.times.rbegin() != reading.timestamp) return;
    NumberList numbers;
    auto value = reading.value;
    visitMembers(numbers, kind.numbers, value);
    field.newest = {kind.name, 1, reading.timestamp, numbers.take()};
  });
  for (std::size_t index = 0; index < fieldCount; ++index) {
    auto& times = _fields.at(index).times;
    const auto& memory = fieldKinds.at(index).memory;
    while (memory && !times.empty() && between(*times.begin(), now) > *memory) {
      times.erase(times.begin());
    }
  }
}

void Readings::merge(Readings& other) {
  for (std::size_t index = 0; index < fieldCount; ++index) {
    Field& field = _fields.at(index);
    Field& from = other._fields.at(index);
    field.times.merge(from.times);
    if (from.newest.count > 0 &&
        (field.newest.count == 0 || from.newest.time > field.newest.time)) {
      field.newest = std::move(from.newest);
    }
  }
}

std::vector<FieldReadings> Readings::behind(std::string_view reason, Time now) const {
  const auto* const origin = std::find_if(
      origins.begin(), origins.end(), [reason](const Origin& of) { return of.reason == reason; });
  std::vector<FieldReadings> all;
  if (origin == origins.end()) return all;
  for (std::size_t index = 0; index < fieldCount; ++index) {
    const FieldKind& kind = fieldKinds.at(index);
    const auto& names = origin->fields;
    if (std::find(names.begin(), names.end(), kind.name) == names.end()) continue;
    const Field& field = _fields.at(index);
    std::size_t count = _observed.at(index) ? 1 : 0;
    if (origin->isRemembered) {
      count = static_cast<std::size_t>(
          std::count_if(field.times.begin(), field.times.end(),
                        [&](Time time) { return between(time, now) <= *kind.memory; }));
    }
    if (count == 0) continue;
    all.push_back(field.newest);
    all.back().count = count;
  }
  return all;
}

std::string describe(const FieldReadings& readings) {
  std::string text(readings.field);
  for (const auto& [name, number] : readings.numbers) {
    const bool isFirst = text.size() == readings.field.size();
    text += fmt::format("{}{}{}{}", isFirst ? " " : ", ", name == "value" ? "" : name + " ",
                        formatNumber(static_cast<double>(number)), unitOf(readings.field, name));
  }
  if (readings.count > 1) text += fmt::format(", the newest of {}", readings.count);
  return text;
}

bool givesForces(std::string_view field) {
  return std::any_of(origins.begin(), origins.end(), [field](const Origin& origin) {
    return std::find(origin.fields.begin(), origin.fields.end(), field) != origin.fields.end();
  });
}

}  // namespace zorvel
