#ifndef ZORVEL_PLAYBACK_COLUMNS_HPP
#define ZORVEL_PLAYBACK_COLUMNS_HPP

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

#include "playback/playback.hpp"

namespace zorvel {

/// The quantity's name, as in the columns of the timeline.
constexpr std::string_view nameOf(ZV::Quantity quantity) {
  constexpr std::array<std::string_view, 4> names{"valence", "valence_confidence", "attention",
                                                  "attention_confidence"};
  return names.at(static_cast<std::size_t>(quantity));
}

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

/// A column that tables have, but no line of a live event.
template <typename Value>
struct TableColumn {
  std::string_view name;
  Value value;
};
template <typename Value>
TableColumn(std::string_view, Value) -> TableColumn<Value>;

/// A part of a state or of a force. Its meaning is what Python's help says of it.
template <typename Value>
struct Part {
  const char* name;
  const char* meaning;
  Value value;
};
template <typename Value>
Part(const char*, const char*, Value) -> Part<Value>;

/// A part of a state that comes with its confidence, which has a column of its own in tables.
template <typename Value>
struct ConfidentPart {
  const char* name;
  const char* confidenceName;
  const char* meaning;
  Value value;
};
template <typename Value>
ConfidentPart(const char*, const char*, const char*, Value) -> ConfidentPart<Value>;

// What each kind of result consists of, but for the time, which comes first. It is listed only
// here, for files, live lines and programs alike; what is added comes last.

inline constexpr std::tuple stateParts{
    Part{"person", "The host's number of the person.",
         [](const StateRow& row) { return row.person; }},
    ConfidentPart{"valence", "valence_confidence", "How negative or positive, in [-1, 1].",
                  [](const StateRow& row) { return row.valence; }},
    Part{"mood", "The label of the valence: 1 positive, 0 neutral, -1 negative.",
         [](const StateRow& row) { return row.mood; }},
    ConfidentPart{"cycle_mood", "cycle_mood_confidence",
                  "The label that the cycle alone would have given a neutral person.",
                  [](const StateRow& row) { return row.cycleMood; }},
    ConfidentPart{"attention", "attention_confidence", "How engaged with the robot, in [0, 1].",
                  [](const StateRow& row) { return row.attention; }},
    ConfidentPart{"ease", "ease_confidence",
                  "How much at ease the body language seems, from -0.5 to 0.5.",
                  [](const StateRow& row) {
                    return ZV::ValueConfidence<float>(row.ease.level, row.ease.confidence);
                  }},
    TableColumn{"seconds", [](const StateRow& row) { return row.since; }},
    TableColumn{"event",
                [](const StateRow& row) { return row.isSeen ? Observation::name : NotSeen::name; }},
    TableColumn{"visit", [](const StateRow& row) { return row.visit; }}};

inline constexpr std::tuple scopesColumns{
    Column{"person", [](const ScopeRow& row) { return row.person; }},
    Column{"scope", [](const ScopeRow& row) { return std::string_view(row.scope); }},
    Column{"label", [](const ScopeRow& row) { return std::string_view(row.label); }},
    Column{"samples", [](const ScopeRow& row) { return row.samples; }},
    TableColumn{"begin", [](const ScopeRow& row) { return row.begin; }},
    TableColumn{"end", [](const ScopeRow& row) { return row.end; }},
    TableColumn{"mean_valence", [](const ScopeRow& row) { return row.meanValence; }},
    TableColumn{"mean_confidence", [](const ScopeRow& row) { return row.meanConfidence; }},
    TableColumn{"exact_mean_valence", [](const ScopeRow& row) { return row.exactMeanValence; }},
    TableColumn{"visit", [](const ScopeRow& row) { return row.visit; }}};

inline constexpr std::tuple ambianceColumns{
    Column{"agitation", [](const AmbianceRow& row) { return row.agitation; }},
    Column{"calm", [](const AmbianceRow& row) { return row.calm; }}};

inline constexpr std::tuple forcesColumns{
    TableColumn{"person", [](const ForceRow& row) { return row.person; }},
    Part{"quantity", "What was moved, as a column of the timeline is called.",
         [](const ForceRow& row) { return nameOf(row.force.quantity); }},
    Part{"reason", "What caused it.", [](const ForceRow& row) { return row.force.reason; }},
    Part{"target", "Where to.", [](const ForceRow& row) { return row.force.target; }},
    Part{"strength", "The fraction.", [](const ForceRow& row) { return row.force.strength; }},
    Part{"before", "The quantity before.", [](const ForceRow& row) { return row.force.before; }},
    Part{"after", "The quantity after.", [](const ForceRow& row) { return row.force.after; }}};

/// Whether each value is known, for what draws them.
inline constexpr std::tuple knownColumns{
    Column{"valence", [](const StateRow& row) { return row.isKnown[0]; }},
    Column{"attention", [](const StateRow& row) { return row.isKnown[1]; }},
    Column{"ease", [](const StateRow& row) { return row.isKnown[2]; }}};

/// Whether something measured moved each value in the cycle; summaries give the share.
inline constexpr std::tuple measuredColumns{
    Column{"valence_measured", [](const StateRow& row) { return row.isMeasured[0]; }},
    Column{"attention_measured", [](const StateRow& row) { return row.isMeasured[1]; }},
    Column{"ease_measured", [](const StateRow& row) { return row.isMeasured[2]; }}};

// The columns of a part of a state.
template <typename Value>
constexpr auto columnsOf(const TableColumn<Value>& column) {
  return std::tuple{Column{column.name, column.value}};
}
template <typename Value>
constexpr auto columnsOf(const Part<Value>& part) {
  return std::tuple{Column{part.name, part.value}};
}
template <typename Value>
constexpr auto columnsOf(const ConfidentPart<Value>& part) {
  const auto value = part.value;
  return std::tuple{
      Column{part.name, [value](const StateRow& row) { return value(row).value; }},
      Column{part.confidenceName, [value](const StateRow& row) { return value(row).confidence; }}};
}

inline constexpr std::tuple timelineColumns =
    std::apply([](const auto&... part) { return std::tuple_cat(columnsOf(part)...); }, stateParts);

/// The columns of the quantities: of numbers with a confidence, which a label is not.
inline constexpr std::tuple quantityColumns = std::apply(
    [](const auto&... part) {
      const auto columns = [](const auto& of) {
        using Value = decltype(of.value(std::declval<const StateRow&>()));
        if constexpr (std::is_same_v<Value, ZV::ValueConfidence<float>>) {
          return columnsOf(of);
        } else {
          return std::tuple{};
        }
      };
      return std::tuple_cat(columns(part)...);
    },
    stateParts);

template <typename Part>
inline constexpr bool isLive = true;
template <typename Value>
inline constexpr bool isLive<TableColumn<Value>> = false;

/// Calls `visit(part)` for each part that the line of a live event has, too.
template <typename Parts, typename Visit>
void forEachLivePart(const Parts& parts, Visit visit) {
  const auto visitIfLive = [&visit](const auto& part) {
    if constexpr (isLive<std::decay_t<decltype(part)>>) visit(part);
  };
  std::apply([&](const auto&... part) { (visitIfLive(part), ...); }, parts);
}

}  // namespace zorvel

#endif
