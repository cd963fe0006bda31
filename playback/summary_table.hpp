#ifndef ZORVEL_PLAYBACK_SUMMARY_TABLE_HPP
#define ZORVEL_PLAYBACK_SUMMARY_TABLE_HPP

#include <array>
#include <cstdint>
#include <map>
#include <string_view>
#include <tuple>
#include <vector>

#include "playback/columns.hpp"
#include "playback/person_cycles.hpp"
#include "playback/playback.hpp"

namespace zorvel {

/// The mean and the standard deviation of a quantity over all cycles, and its mean confidence.
struct Spread {
  double mean;
  double deviation;
  double confidence;
};

/// The greatest rise or fall of a quantity within a second, and when it ends, in seconds since
/// second 0; NaN where there is none.
struct GreatestChange {
  double change;
  double at;
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
  /// Stretches of cycles that a removal parts.
  std::int32_t visits;
  Spread valence;
  Spread attention;
  Spread ease;
  /// Shares of the cycles, in [0, 1].
  double positive;
  double neutral;
  double negative;
  /// The share with an attention above a half.
  double attentive;
  GreatestChange valenceChange;
  GreatestChange attentionChange;
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
    Column{"error_scopes", [](const SummaryRow& row) { return row.scopes[4]; }}};

/// Sums up a recording in a row for each person who has a cycle.
class SummaryTable {
 public:
  /// Adds an event that was played at `time`, and what it gave.
  void add(Time time, const Event& event, const Row& row);
  /// By person, ascending.
  std::vector<SummaryRow> rows() const;

 private:
  struct Person {
    PersonCycles cycles;
    /// When each cycle was, since second 0.
    std::vector<Time::duration> since;
    std::uint64_t unseen = 0;
    std::int32_t visits = 0;
    std::vector<float> valence;
    std::vector<float> attention;
    std::vector<float> ease;
    double valenceConfidence = 0.0;
    double attentionConfidence = 0.0;
    double easeConfidence = 0.0;
    /// Cycles with the mood 1, 0 and -1.
    std::array<std::uint64_t, 3> moods{};
    std::array<std::uint64_t, scopeLabels.size()> scopes{};
  };

  std::map<std::int32_t, Person> _persons;
};

}  // namespace zorvel

#endif
