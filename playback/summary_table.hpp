#ifndef ZORVEL_PLAYBACK_SUMMARY_TABLE_HPP
#define ZORVEL_PLAYBACK_SUMMARY_TABLE_HPP

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string_view>
#include <tuple>
#include <vector>

#include "playback/columns.hpp"
#include "playback/person_cycles.hpp"
#include "playback/playback.hpp"

namespace zorvel {

/// The mean and the standard deviation of a quantity over all cycles, and its mean confidence.
/// There is none for a quantity that was never measured, and no deviation for a single cycle.
struct Spread {
  std::optional<double> mean;
  std::optional<double> deviation;
  std::optional<double> confidence;
  /// The share of cycles in which something measured moved the quantity.
  double coverage;
};

/// The greatest rise or fall of a quantity within a second, if there is any, and when it ends, in
/// seconds since second 0.
struct GreatestChange {
  std::optional<double> change;
  std::optional<double> at;
};

/// What a recording adds up to for one person.
struct SummaryRow {
  std::int32_t person;
  /// The first and the last cycle, in seconds since second 0.
  double first;
  double last;
  std::uint64_t cycles;
  /// Cycles in which the person was not perceived.
  std::uint64_t unseen;
  /// Stretches of cycles, separated by removals or by renamings to another id.
  std::int32_t visits;
  Spread valence;
  Spread attention;
  Spread ease;
  /// Shares of the cycles, in [0, 1]; none where no valence was measured.
  std::optional<double> positive;
  std::optional<double> neutral;
  std::optional<double> negative;
  /// The share with an attention above a half; none where no attention was measured.
  std::optional<double> attentive;
  GreatestChange valenceChange;
  GreatestChange attentionChange;
  /// Whether there is no change because every stretch of cycles is too short to have one.
  bool isTooShort;
  /// Closed scopes with the labels of scopeLabels.
  std::array<std::uint64_t, 5> scopes;
};

/// The labels that a scope can have.
inline constexpr std::array<std::string_view, 5> scopeLabels{"positive", "neutral", "negative",
                                                             "unknown", "error"};

/// The columns of the table.
inline constexpr std::tuple summaryColumns{
    Column{"person", [](const SummaryRow& row) { return row.person; }},
    Column{"first", [](const SummaryRow& row) { return row.first; }},
    Column{"last", [](const SummaryRow& row) { return row.last; }},
    Column{"cycles", [](const SummaryRow& row) { return row.cycles; }},
    Column{"unseen_cycles", [](const SummaryRow& row) { return row.unseen; }},
    Column{"visits", [](const SummaryRow& row) { return row.visits; }},
    Column{"valence_mean", [](const SummaryRow& row) { return row.valence.mean; }},
    Column{"valence_deviation", [](const SummaryRow& row) { return row.valence.deviation; }},
    Column{"valence_confidence", [](const SummaryRow& row) { return row.valence.confidence; }},
    Column{"attention_mean", [](const SummaryRow& row) { return row.attention.mean; }},
    Column{"attention_deviation", [](const SummaryRow& row) { return row.attention.deviation; }},
    Column{"attention_confidence", [](const SummaryRow& row) { return row.attention.confidence; }},
    Column{"ease_mean", [](const SummaryRow& row) { return row.ease.mean; }},
    Column{"ease_deviation", [](const SummaryRow& row) { return row.ease.deviation; }},
    Column{"ease_confidence", [](const SummaryRow& row) { return row.ease.confidence; }},
    Column{"positive", [](const SummaryRow& row) { return row.positive; }},
    Column{"neutral", [](const SummaryRow& row) { return row.neutral; }},
    Column{"negative", [](const SummaryRow& row) { return row.negative; }},
    Column{"attentive", [](const SummaryRow& row) { return row.attentive; }},
    Column{"valence_change", [](const SummaryRow& row) { return row.valenceChange.change; }},
    Column{"valence_change_at", [](const SummaryRow& row) { return row.valenceChange.at; }},
    Column{"attention_change", [](const SummaryRow& row) { return row.attentionChange.change; }},
    Column{"attention_change_at", [](const SummaryRow& row) { return row.attentionChange.at; }},
    Column{"positive_scopes", [](const SummaryRow& row) { return row.scopes[0]; }},
    Column{"neutral_scopes", [](const SummaryRow& row) { return row.scopes[1]; }},
    Column{"negative_scopes", [](const SummaryRow& row) { return row.scopes[2]; }},
    Column{"unknown_scopes", [](const SummaryRow& row) { return row.scopes[3]; }},
    Column{"error_scopes", [](const SummaryRow& row) { return row.scopes[4]; }},
    Column{"valence_coverage", [](const SummaryRow& row) { return row.valence.coverage; }},
    Column{"attention_coverage", [](const SummaryRow& row) { return row.attention.coverage; }},
    Column{"ease_coverage", [](const SummaryRow& row) { return row.ease.coverage; }}};

/// Sums up a recording in a row for each person who has a cycle.
class SummaryTable {
 public:
  /// Adds an event that was played at `time`, and what it gave.
  void add(Time time, const Event& event, const Row& row);
  /// By person, ascending.
  std::vector<SummaryRow> rows() const;

 private:
  /// Of a quantity, cycle by cycle.
  struct Values {
    std::vector<float> values;
    double confidences = 0.0;
    /// In how many cycles something measured moved it.
    std::uint64_t measured = 0;

    void add(float value, float confidence, bool isMeasured);
    Spread spread() const;
    /// What share a part of the cycles is, if the quantity was ever measured.
    std::optional<double> share(std::uint64_t part) const;
  };
  struct Person {
    PersonCycles cycles;
    /// When each cycle was, since second 0.
    std::vector<Time::duration> since;
    std::uint64_t unseen = 0;
    std::int32_t visits = 0;
    Values valence;
    Values attention;
    Values ease;
    /// Cycles with the mood 1, 0 and -1.
    std::array<std::uint64_t, 3> moods{};
    std::array<std::uint64_t, scopeLabels.size()> scopes{};
  };

  std::map<std::int32_t, Person> _persons;
};

}  // namespace zorvel

#endif
