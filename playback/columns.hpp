#ifndef ZORVEL_PLAYBACK_COLUMNS_HPP
#define ZORVEL_PLAYBACK_COLUMNS_HPP

#include <string_view>
#include <tuple>

#include "playback/playback.hpp"

namespace zorvel {

/// The quantity's name, as in the columns of the timeline.
std::string_view nameOf(ZV::Quantity quantity);

/// A force, and whom it moved.
struct ForceRow {
  std::int32_t person;
  const ZV::Force& force;
};

/// A column of the results, and what a row has in it.
template <typename Value>
struct Column {
  std::string_view name;
  Value value;
};
template <typename Value>
Column(std::string_view, Value) -> Column<Value>;

// The columns of each table of results, but for the first, which is the time. They are listed only
// here, for files and for programs alike.

inline constexpr std::tuple timelineColumns{
    Column{"person", [](const StateRow& row) { return row.person; }},
    Column{"valence", [](const StateRow& row) { return row.valence.value; }},
    Column{"valence_confidence", [](const StateRow& row) { return row.valence.confidence; }},
    Column{"mood", [](const StateRow& row) { return row.mood; }},
    Column{"cycle_mood", [](const StateRow& row) { return row.cycleMood.value; }},
    Column{"cycle_mood_confidence", [](const StateRow& row) { return row.cycleMood.confidence; }},
    Column{"attention", [](const StateRow& row) { return row.attention.value; }},
    Column{"attention_confidence", [](const StateRow& row) { return row.attention.confidence; }},
    Column{"ease", [](const StateRow& row) { return row.ease.level; }},
    Column{"ease_confidence", [](const StateRow& row) { return row.ease.confidence; }},
    Column{"seconds", [](const StateRow& row) { return row.since; }},
    Column{"event",
           [](const StateRow& row) { return row.isSeen ? Observation::name : NotSeen::name; }},
    Column{"visit", [](const StateRow& row) { return row.visit; }}};

inline constexpr std::tuple scopesColumns{
    Column{"person", [](const ScopeRow& row) { return row.person; }},
    Column{"scope", [](const ScopeRow& row) { return std::string_view(row.scope); }},
    Column{"label", [](const ScopeRow& row) { return std::string_view(row.label); }},
    Column{"samples", [](const ScopeRow& row) { return row.samples; }},
    Column{"begin", [](const ScopeRow& row) { return row.begin; }},
    Column{"end", [](const ScopeRow& row) { return row.end; }},
    Column{"mean_valence", [](const ScopeRow& row) { return row.meanValence; }},
    Column{"mean_confidence", [](const ScopeRow& row) { return row.meanConfidence; }}};

inline constexpr std::tuple ambianceColumns{
    Column{"agitation", [](const AmbianceRow& row) { return row.agitation; }},
    Column{"calm", [](const AmbianceRow& row) { return row.calm; }}};

inline constexpr std::tuple forcesColumns{
    Column{"person", [](const ForceRow& row) { return row.person; }},
    Column{"quantity", [](const ForceRow& row) { return nameOf(row.force.quantity); }},
    Column{"reason", [](const ForceRow& row) { return row.force.reason; }},
    Column{"target", [](const ForceRow& row) { return row.force.target; }},
    Column{"strength", [](const ForceRow& row) { return row.force.strength; }},
    Column{"before", [](const ForceRow& row) { return row.force.before; }},
    Column{"after", [](const ForceRow& row) { return row.force.after; }}};

}  // namespace zorvel

#endif
