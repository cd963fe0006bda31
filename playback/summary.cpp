#include "playback/summary.hpp"

#include <fmt/format.h>

#include <cmath>
#include <iterator>

namespace zorvel {
namespace {

// A recording may close any number of scopes. The terminal shows the first, scopes.csv has all.
constexpr std::size_t shownScopes = 20;

}  // namespace

void Summary::add(Time time, const Row& row) {
  if (const auto* state = std::get_if<StateRow>(&row)) {
    Cycles& cycles = _persons[state->person];
    if (cycles.count++ == 0) cycles.first = time;
    cycles.last = time;
    cycles.valence += state->valence.value;
    cycles.valenceConfidence += state->valence.confidence;
    cycles.attention += state->attention.value;
    cycles.attentionConfidence += state->attention.confidence;
    ++cycles.moods.at(static_cast<std::size_t>(1 - state->mood));
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
  Total total;
  total.persons = _persons.size();
  total.scopes = _scopeCount;
  for (const auto& [person, cycles] : _persons) {
    total.cycles += cycles.count;
    total.seconds += inSeconds(between(cycles.first, cycles.last));
  }
  return total;
}

std::string Summary::text() const {
  std::string text;
  const auto out = std::back_inserter(text);
  fmt::format_to(out, "{:>11} {:>9} {:>11}  {:>22} {:>22} {:>9} {:>8} {:>9}\n", "person", "cycles",
                 "seconds", "valence (confidence)", "attention (confidence)", "positive", "neutral",
                 "negative");
  for (const auto& [person, cycles] : _persons) {
    const auto count = static_cast<double>(cycles.count);
    const auto share = [&cycles = cycles, count](std::size_t mood) {
      return fmt::format("{:.1f} %", 100.0 * static_cast<double>(cycles.moods.at(mood)) / count);
    };
    const auto mean = [count](double value, double confidence) {
      // A NaN's sign would be printed.
      const auto number = [](double part) { return std::isnan(part) ? std::abs(part) : part; };
      return fmt::format("{:.3f} ({:.3f})", number(value / count), number(confidence / count));
    };
    fmt::format_to(out, "{:>11} {:>9} {:>11.3f}  {:>22} {:>22} {:>9} {:>8} {:>9}\n", person,
                   cycles.count, inSeconds(between(cycles.first, cycles.last)),
                   mean(cycles.valence, cycles.valenceConfidence),
                   mean(cycles.attention, cycles.attentionConfidence), share(0), share(1),
                   share(2));
  }
  if (_scopes.empty()) return text;
  fmt::format_to(out, "\n{:>11} {:>9}  {:<8}  {}\n", "person", "samples", "label", "scope");
  for (const auto& scope : _scopes) {
    fmt::format_to(out, "{:>11} {:>9}  {:<8}  {:?}\n", scope.person, scope.samples, scope.label,
                   scope.scope);
  }
  if (_scopeCount > _scopes.size()) {
    fmt::format_to(out, "and {} more\n", _scopeCount - _scopes.size());
  }
  return text;
}

}  // namespace zorvel
