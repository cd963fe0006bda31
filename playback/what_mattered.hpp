#ifndef ZORVEL_PLAYBACK_WHAT_MATTERED_HPP
#define ZORVEL_PLAYBACK_WHAT_MATTERED_HPP

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "playback/columns.hpp"
#include "playback/playback.hpp"
#include "recording/observation_fields.hpp"

namespace zorvel {

/// Stands for the names of all fields.
inline constexpr std::string_view everyField = "all";

inline constexpr std::size_t quantityCount = std::tuple_size_v<decltype(quantityColumns)>;

/// How far a quantity moves when a field is left out.
struct QuantityChange {
  /// Of the distances in all cycles.
  double mean = 0.0;
  /// Above 0 where the quantity is higher without the field.
  float greatest = 0.0f;
  /// The cycle of the greatest, in seconds since second 0; NaN where there is no change.
  double at = std::numeric_limits<double>::quiet_NaN();
};

/// What changes for a person in a replay without one field.
struct Mattered {
  std::int32_t person;
  std::string_view field;
  std::uint64_t cycles;
  /// In the order of quantityColumns.
  std::array<QuantityChange, quantityCount> quantities;
  /// Shares of the cycles: with another mood, and with an attention on the other side of a half.
  double otherMood;
  double otherAttentive;
  /// Why nothing changes; empty where that is not known.
  std::string reason;

  /// Or nothing that shows with three decimals.
  bool changesNothing() const;
};

/// Calls `write(name, value)` for each member of what mattered, under its name in results.
template <typename Write>
void writeMattered(const Mattered& row, Write write) {
  write("person", row.person);
  write("without", row.field);
  write("cycles", row.cycles);
  const auto* quantity = row.quantities.begin();
  const auto writeQuantity = [&](std::string_view name) {
    write(std::string(name) + "_mean_change", quantity->mean);
    write(std::string(name) + "_change", quantity->greatest);
    write(std::string(name) + "_change_at", quantity->at);
    ++quantity;
  };
  std::apply([&](const auto&... column) { (writeQuantity(column.name), ...); }, quantityColumns);
  write("other_mood", row.otherMood);
  write("other_attentive", row.otherAttentive);
  write("changes_nothing", row.changesNothing());
  write("reason", std::string_view(row.reason));
}

/// Replays a recording beside its own replay, once without each of some fields, and compares. An
/// observation stays one even when nothing is left of it.
class WhatMattered {
 public:
  /// Takes the names of the fields. As many threads play at once as there are jobs. Throws
  /// std::invalid_argument when no field has one of the names.
  WhatMattered(const std::vector<std::string>& names, unsigned int jobs);

  /// Adds an event of the recording and what it gave with all fields. Throws what the library
  /// throws.
  void add(const Event& event, const Row& row);
  /// By person; for each, the field without which all quantities together change most comes first.
  std::vector<Mattered> rows();

 private:
  struct Values {
    /// Since second 0, where the recording says it.
    Time::duration since;
    std::array<float, quantityCount> quantities;
    int mood;
    bool isAttentive;
  };
  static Values valuesOf(const StateRow& row);

  struct Played {
    Event event;
    std::optional<Values> values;
  };
  struct Sums {
    std::array<double, quantityCount> distances{};
    std::array<QuantityChange, quantityCount> quantities{};
    std::uint64_t otherMoods = 0;
    std::uint64_t otherAttentives = 0;

    void add(const Values& with, const Values& without);
  };
  /// The replay without a field.
  struct Variant {
    explicit Variant(std::size_t left) : field(left) {}
    void play(const std::vector<Played>& batch);

    std::size_t field;
    ClockedPlayback playback{Forces::Unwatched};
    std::map<std::int32_t, Sums> persons;
  };
  /// What shows why a field of a person changes nothing.
  struct Seen {
    std::uint64_t cycles = 0;
    std::array<std::uint64_t, fieldCount> readings{};
    float distance = 0.0f;
    float height = 0.0f;
    /// Of the face in which a smile came nearest to deciding the mood, and from when it does.
    double smile = 0.0;
    double smileCountsFrom = 1e9;

    void add(const ZV::PersonObservation& fields);
    std::string reasonFor(std::size_t field) const;
  };

  void playBatch();

  unsigned int _jobs;
  std::deque<Variant> _variants;
  std::map<std::int32_t, Seen> _persons;
  std::vector<Played> _batch;
};

}  // namespace zorvel

#endif
