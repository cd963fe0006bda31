#include "playback/what_mattered.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <future>
#include <limits>
#include <set>
#include <stdexcept>
#include <utility>
#include <zv/classification/mood_score.hpp>

#include "inspection/format.hpp"
#include "playback/readings.hpp"
#include "recording/printable.hpp"

namespace zorvel {
namespace {

/// What shows with three decimals.
constexpr float leastShown = 0.0005f;

constexpr std::size_t batchSize = 1024;

// Up to here, a distance and a height are as good as none.
constexpr float distanceLimitMetres = 1.4f;
constexpr float heightLimitMetres = 1.5f;

bool hasField(const ZV::PersonObservation& fields, std::size_t left) {
  bool has = false;
  forEachReading(fields, [&](std::size_t index, const auto& /*reading*/) { has |= index == left; });
  return has;
}

void leaveOut(ZV::PersonObservation& fields, std::size_t left) {
  forEachField([&](std::size_t index, const auto& field) {
    if (index == left) (fields.*field.member).reset();
  });
}

/// The event without the field; none if it is the same.
std::optional<Event> without(const Event& event, std::size_t left) {
  const auto* const observation = std::get_if<Observation>(&event.what);
  if (observation != nullptr && hasField(observation->fields, left)) {
    Observation changed = *observation;
    leaveOut(changed.fields, left);
    return Event{event.time, std::move(changed)};
  }
  if (const auto* const restored = restoredPerson(event)) {
    SavedPerson changed = *restored;
    for (ZV::PersonObservation& remembered : changed.known.memory) leaveOut(remembered, left);
    return Event{event.time, Restore{std::move(changed)}};
  }
  return std::nullopt;
}

/// From which smile, times its confidence, a face with these expressions has another mood than
/// without a smile.
double smileThatDecides(const ZV::Expressions& face) {
  using Score = ZV::classification::LogregMoodScore;
  struct Line {
    double begin;
    double slope;
  };
  const auto lineOf = [&face](const ZV::classification::Coefficient& table) {
    const std::array features{face.calm.value, face.joy.value, face.anger.value, face.sorrow.value};
    Line line{static_cast<double>(table.intercept), static_cast<double>(table.weights[0])};
    for (std::size_t feature = 0; feature < features.size(); ++feature) {
      line.begin += static_cast<double>(table.weights[feature + 1] * features.at(feature));
    }
    return line;
  };
  const std::array lines{lineOf(Score::COEFFICIENT_POS()), lineOf(Score::COEFFICIENT_NEU()),
                         lineOf(Score::COEFFICIENT_NEG())};
  const Line winner = *std::max_element(
      lines.begin(), lines.end(),
      [](const Line& left, const Line& right) { return left.begin < right.begin; });
  double decides = std::numeric_limits<double>::infinity();
  for (const Line& line : lines) {
    if (line.slope > winner.slope) {
      decides = std::min(decides, (winner.begin - line.begin) / (line.slope - winner.slope));
    }
  }
  return decides;
}

}  // namespace

bool Mattered::changesNothing() const {
  return otherMood == 0.0 && otherAttentive == 0.0 &&
         std::all_of(quantities.begin(), quantities.end(), [](const QuantityChange& change) {
           return std::abs(change.greatest) < leastShown;
         });
}

WhatMattered::Values WhatMattered::valuesOf(const StateRow& row) {
  return {row.since,
          std::apply([&](const auto&... column) { return std::array{column.value(row)...}; },
                     quantityColumns),
          row.mood, row.attention.value > 0.5f};
}

void WhatMattered::Sums::add(const Values& with, const Values& without) {
  for (std::size_t index = 0; index < quantityCount; ++index) {
    const float change = without.quantities.at(index) - with.quantities.at(index);
    if (!std::isfinite(change) || change == 0.0f) continue;
    distances.at(index) += static_cast<double>(std::abs(change));
    QuantityChange& quantity = quantities.at(index);
    if (std::abs(change) <= std::abs(quantity.greatest)) continue;
    quantity.greatest = change;
    quantity.at = inSeconds(with.since);
  }
  if (with.mood != without.mood) ++otherMoods;
  if (with.isAttentive != without.isAttentive) ++otherAttentives;
}

void WhatMattered::Variant::play(const std::vector<Played>& batch) {
  for (const Played& played : batch) {
    const auto changed = without(played.event, field);
    const Row row = playback.play(changed ? *changed : played.event);
    const auto* const state = std::get_if<StateRow>(&row);
    if (state == nullptr) continue;
    persons[state->person].add(*played.values, valuesOf(*state));
  }
}

void WhatMattered::Seen::add(const ZV::PersonObservation& fields) {
  forEachReading(fields,
                 [this](std::size_t index, const auto& /*reading*/) { ++readings.at(index); });
  if (fields.distance) distance = std::max(distance, fields.distance->value);
  if (fields.height) height = std::max(height, fields.height->value);
  if (!fields.smile) return;
  const auto degree = fields.smile->value.smile();
  const auto value = static_cast<double>(degree.value * degree.confidence);
  const double countsFrom =
      smileThatDecides(fields.expressions ? fields.expressions->value : ZV::Expressions());
  if (!(countsFrom - value < smileCountsFrom - smile)) return;
  smile = value;
  smileCountsFrom = countsFrom;
}

std::string WhatMattered::Seen::reasonFor(std::size_t field) const {
  const std::string_view name = fieldKinds.at(field).name;
  if (readings.at(field) == 0) return "no reading of it";
  if (!givesForces(name)) return "no state depends on it";
  const auto within = [](float greatest, float limit) {
    if (!(greatest < limit)) return std::string();
    return fmt::format("it reached {} m; it lowers confidences from about {} m on",
                       formatNumber(static_cast<double>(greatest)),
                       formatNumber(static_cast<double>(limit)));
  };
  if (name == "distance") return within(distance, distanceLimitMetres);
  if (name == "height") return within(height, heightLimitMetres);
  if (name != "smile" || smile >= smileCountsFrom) return {};
  if (smileCountsFrom > 1.0) return "with these expressions no smile changes the mood of a face";
  return fmt::format("it came nearest with {}; with those expressions a smile counts from {}",
                     formatNumber(smile), formatNumber(smileCountsFrom));
}

WhatMattered::WhatMattered(const std::vector<std::string>& names, unsigned int jobs) : _jobs(jobs) {
  std::set<std::string_view> left(names.begin(), names.end());
  const bool isEvery = left.erase(everyField) > 0;
  for (std::size_t field = 0; field < fieldCount; ++field) {
    if (left.erase(fieldKinds.at(field).name) > 0 || isEvery) _variants.emplace_back(field);
  }
  if (!left.empty()) {
    throw std::invalid_argument(inQuotes(*left.begin()) + " is not a field of an observation");
  }
}

void WhatMattered::add(const Event& event, const Row& row) {
  const auto* const state = std::get_if<StateRow>(&row);
  if (state != nullptr) {
    Seen& person = _persons[state->person];
    ++person.cycles;
    const auto* const observation = std::get_if<Observation>(&event.what);
    if (observation != nullptr) person.add(observation->fields);
  }
  _batch.push_back({event, state == nullptr ? std::nullopt : std::optional(valuesOf(*state))});
  if (_batch.size() == batchSize) playBatch();
}

void WhatMattered::playBatch() {
  std::atomic<std::size_t> next{0};
  const auto work = [&] {
    for (std::size_t index = next++; index < _variants.size(); index = next++) {
      _variants[index].play(_batch);
    }
  };
  std::vector<std::future<void>> others;
  for (std::size_t job = 1; job < std::min<std::size_t>(_jobs, _variants.size()); ++job) {
    others.push_back(std::async(std::launch::async, work));
  }
  work();
  for (auto& other : others) other.get();
  _batch.clear();
}

std::vector<Mattered> WhatMattered::rows() {
  playBatch();
  std::vector<Mattered> rows;
  for (const auto& [id, seen] : _persons) {
    std::vector<std::pair<double, Mattered>> own;
    for (const Variant& variant : _variants) {
      const Sums& sums = variant.persons.at(id);
      const auto cycles = static_cast<double>(seen.cycles);
      Mattered row{id,
                   fieldKinds.at(variant.field).name,
                   seen.cycles,
                   sums.quantities,
                   static_cast<double>(sums.otherMoods) / cycles,
                   static_cast<double>(sums.otherAttentives) / cycles,
                   {}};
      double all = 0.0;
      for (std::size_t index = 0; index < quantityCount; ++index) {
        const double mean = sums.distances.at(index) / cycles;
        row.quantities.at(index).mean = mean;
        all += mean;
      }
      if (row.changesNothing()) row.reason = seen.reasonFor(variant.field);
      own.emplace_back(all, std::move(row));
    }
    std::stable_sort(own.begin(), own.end(),
                     [](const auto& left, const auto& right) { return left.first > right.first; });
    for (auto& [all, row] : own) rows.push_back(std::move(row));
  }
  return rows;
}

}  // namespace zorvel
