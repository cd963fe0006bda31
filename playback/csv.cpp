#include "playback/csv.hpp"

#include <cmath>
#include <cstdlib>
#include <iterator>
#include <optional>
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

/// In seconds, to the nanosecond.
void append(fmt::memory_buffer& text, Time::duration duration) {
  constexpr std::int64_t second = 1'000'000'000;
  const std::int64_t count = duration.count();
  fmt::format_to(std::back_inserter(text), "{}{}", count < 0 ? "-" : "", std::abs(count / second));
  std::int64_t rest = std::abs(count % second);
  if (rest == 0) return;
  int digits = 9;
  for (; rest % 10 == 0; rest /= 10) --digits;
  fmt::format_to(std::back_inserter(text), ".{:0{}}", rest, digits);
}

/// A missing value is an empty cell.
template <typename Value>
void append(fmt::memory_buffer& text, const std::optional<Value>& value) {
  if (value) append(text, *value);
}

/// Quoted, by RFC 4180, if it holds a comma, a quote or a line end.
void append(fmt::memory_buffer& text, std::string_view field) {
  if (field.find_first_of(",\"\r\n") == std::string_view::npos) {
    text.append(field.data(), field.data() + field.size());
    return;
  }
  text.push_back('"');
  for (const char character : field) {
    if (character == '"') text.push_back('"');
    text.push_back(character);
  }
  text.push_back('"');
}

template <typename Columns>
std::string headerOf(std::string header, const Columns& columns) {
  std::apply([&](const auto&... column) { ((header.append(",").append(column.name)), ...); },
             columns);
  return header + "\n";
}

template <typename First, typename Columns, typename Row>
void appendLine(fmt::memory_buffer& text, First first, const Columns& columns, const Row& row) {
  append(text, first);
  std::apply(
      [&](const auto&... column) { ((text.push_back(','), append(text, column.value(row))), ...); },
      columns);
  text.push_back('\n');
}

}  // namespace

const std::string timelineHeader = headerOf("time", timelineColumns);
const std::string scopesHeader = headerOf("time", scopesColumns);
const std::string ambianceHeader = headerOf("time", ambianceColumns);
const std::string forcesHeader = headerOf("time", forcesColumns);
const std::string summaryHeader = headerOf("recording", summaryColumns);

void appendRow(fmt::memory_buffer& text, Time time, const StateRow& row) {
  appendLine(text, time.time_since_epoch().count(), timelineColumns, row);
}

void appendRow(fmt::memory_buffer& text, Time time, const ScopeRow& row) {
  appendLine(text, time.time_since_epoch().count(), scopesColumns, row);
}

void appendRow(fmt::memory_buffer& text, Time time, const AmbianceRow& row) {
  appendLine(text, time.time_since_epoch().count(), ambianceColumns, row);
}

void appendRow(fmt::memory_buffer& text, Time time, const ForceRow& row) {
  appendLine(text, time.time_since_epoch().count(), forcesColumns, row);
}

void appendSummary(fmt::memory_buffer& text, std::string_view recording,
                   const std::vector<SummaryRow>& rows) {
  for (const SummaryRow& row : rows) appendLine(text, recording, summaryColumns, row);
  if (!rows.empty()) return;
  append(text, recording);
  for (std::size_t column = 0; column < std::tuple_size_v<decltype(summaryColumns)>; ++column) {
    text.push_back(',');
  }
  text.push_back('\n');
}

}  // namespace zorvel
