#include "playback/summary.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <iterator>

#include "recording/printable.hpp"

namespace zorvel {
namespace {

// A recording may close any number of scopes. The terminal shows the first, scopes.csv has all.
constexpr std::size_t shownScopes = 20;

template <typename... Columns>
std::string formatMeanColumns(const Columns&... columns) {
  return fmt::format("{:>22} {:>22} {:>9} {:>8} {:>9}", columns...);
}

}  // namespace

void QuantitySums::add(const ZV::ValueConfidence<float>& quantity, bool isMeasuredNow) {
  ++count;
  isMeasured |= isMeasuredNow;
  value += quantity.value;
  confidence += quantity.confidence;
}

QuantitySums& QuantitySums::operator+=(const QuantitySums& other) {
  if (!other.isMeasured) return *this;
  count += other.count;
  isMeasured = true;
  value += other.value;
  confidence += other.confidence;
  return *this;
}

void CycleSums::add(const StateRow& row) {
  ++count;
  valence.add(row.valence, row.isMeasured[0]);
  attention.add(row.attention, row.isMeasured[1]);
  ++moods.at(static_cast<std::size_t>(1 - row.mood));
}

CycleSums& CycleSums::operator+=(const CycleSums& other) {
  count += other.count;
  valence += other.valence;
  attention += other.attention;
  if (!other.valence.isMeasured) return *this;
  for (std::size_t mood = 0; mood < moods.size(); ++mood) moods.at(mood) += other.moods.at(mood);
  return *this;
}

std::string formatMeansHeadings() {
  return formatMeanColumns("valence (confidence)", "attention (confidence)", "positive", "neutral",
                           "negative");
}

std::string formatMeans(const CycleSums& cycles) {
  const auto share = [&](std::size_t mood) -> std::string {
    if (!cycles.valence.isMeasured) return "-";
    return fmt::format("{:.1f} %", 100.0 * static_cast<double>(cycles.moods.at(mood)) /
                                       static_cast<double>(cycles.valence.count));
  };
  const auto mean = [](const QuantitySums& sums) -> std::string {
    if (!sums.isMeasured) return "-";
    // The sign bit of a NaN would be printed.
    const auto number = [&sums](double sum) {
      const double part = sum / static_cast<double>(sums.count);
      return std::isnan(part) ? std::abs(part) : part;
    };
    return fmt::format("{:.3f} ({:.3f})", number(sums.value), number(sums.confidence));
  };
  return formatMeanColumns(mean(cycles.valence), mean(cycles.attention), share(0), share(1),
                           share(2));
}

void Summary::Span::add(Time time) {
  first = std::min(first, time);
  last = std::max(last, time);
}

void Summary::add(Time time, const Row& row) {
  _span.add(time);
  if (const auto* state = std::get_if<StateRow>(&row)) {
    PersonSummary& person = _persons[state->person];
    person.cycles.add(*state);
    person.span.add(time);
  }
  if (const auto* scope = std::get_if<ScopeRow>(&row)) {
    ++_scopeCount;
    if (_scopes.size() < shownScopes) _scopes.push_back(*scope);
  }
}

Summary::Total& Summary::Total::operator+=(const Total& other) {
  persons += other.persons;
  cycles += other.cycles;
  scopes += other.scopes;
  seconds += other.seconds;
  return *this;
}

Summary::Total Summary::total() const {
  Total total{_persons.size(), {}, _scopeCount, _span.seconds()};
  for (const auto& [id, person] : _persons) total.cycles += person.cycles;
  return total;
}

std::string Summary::text() const {
  std::string text;
  const auto out = std::back_inserter(text);
  fmt::format_to(out, "{:>11} {:>9} {:>11}  {}\n", "person", "cycles", "seconds",
                 formatMeansHeadings());
  for (const auto& [id, person] : _persons) {
    fmt::format_to(out, "{:>11} {:>9} {:>11.3f}  {}\n", id, person.cycles.count,
                   person.span.seconds(), formatMeans(person.cycles));
  }
  if (_scopes.empty()) return text;
  fmt::format_to(out, "\n{:>11} {:>9}  {:<8}  {}\n", "person", "samples", "label", "scope");
  for (const auto& scope : _scopes) {
    fmt::format_to(out, "{:>11} {:>9}  {:<8}  {}\n", scope.person, scope.samples, scope.label,
                   inQuotes(scope.scope));
  }
  if (_scopeCount > _scopes.size()) {
    fmt::format_to(out, "and {} more\n", _scopeCount - _scopes.size());
  }
  return text;
}

}  // namespace zorvel
