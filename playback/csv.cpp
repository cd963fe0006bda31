#include "playback/csv.hpp"

#include <array>
#include <cmath>
#include <iterator>
#include <string>
#include <type_traits>

namespace zorvel {
namespace {

template <typename Number>
void append(fmt::memory_buffer& text, Number number) {
  if constexpr (std::is_floating_point_v<Number>) {
    // The sign of a NaN has no meaning.
    if (std::isnan(number)) number = std::abs(number);
  }
  // The shortest digits that read back as the same number.
  fmt::format_to(std::back_inserter(text), "{}", number);
}

void append(fmt::memory_buffer& text, std::string_view part) {
  text.append(part.data(), part.data() + part.size());
}

/// Quoted, by RFC 4180, if it holds a comma, a quote or a line end.
void append(fmt::memory_buffer& text, const std::string& field) {
  if (field.find_first_of(",\"\r\n") == std::string::npos) {
    append(text, std::string_view(field));
    return;
  }
  text.push_back('"');
  for (const char character : field) {
    if (character == '"') text.push_back('"');
    text.push_back(character);
  }
  text.push_back('"');
}

template <typename... Fields>
void appendLine(fmt::memory_buffer& text, Time time, const Fields&... fields) {
  append(text, time.time_since_epoch().count());
  ((text.push_back(','), append(text, fields)), ...);
  text.push_back('\n');
}

}  // namespace

const std::string_view timelineHeader =
    "time,person,valence,valence_confidence,mood,cycle_mood,cycle_mood_confidence,attention,"
    "attention_confidence,ease,ease_confidence\n";
const std::string_view scopesHeader = "time,person,scope,label,samples\n";
const std::string_view ambianceHeader = "time,agitation,calm\n";
const std::string_view forcesHeader = "time,person,quantity,reason,target,strength,before,after\n";

std::string_view nameOf(ZV::Quantity quantity) {
  constexpr std::array<std::string_view, 4> names{"valence", "valence_confidence", "attention",
                                                  "attention_confidence"};
  return names.at(static_cast<std::size_t>(quantity));
}

void appendRow(fmt::memory_buffer& text, Time time, const StateRow& row) {
  appendLine(text, time, row.person, row.valence.value, row.valence.confidence, row.mood,
             row.cycleMood.value, row.cycleMood.confidence, row.attention.value,
             row.attention.confidence, row.ease.level, row.ease.confidence);
}

void appendRow(fmt::memory_buffer& text, Time time, const ScopeRow& row) {
  appendLine(text, time, row.person, row.scope, row.label, row.samples);
}

void appendRow(fmt::memory_buffer& text, Time time, const AmbianceRow& row) {
  appendLine(text, time, row.agitation, row.calm);
}

void appendRow(fmt::memory_buffer& text, Time time, std::int32_t person, const ZV::Force& force) {
  appendLine(text, time, person, nameOf(force.quantity), force.reason, force.target, force.strength,
             force.before, force.after);
}

}  // namespace zorvel
