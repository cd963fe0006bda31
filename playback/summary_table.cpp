#include "playback/summary_table.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

namespace zorvel {
namespace {

Spread spreadOf(const std::vector<float>& values, double confidences) {
  const auto count = static_cast<double>(values.size());
  double sum = 0.0;
  for (const float value : values) sum += static_cast<double>(value);
  const double mean = sum / count;
  double squares = 0.0;
  for (const float value : values) {
    const double distance = static_cast<double>(value) - mean;
    squares += distance * distance;
  }
  return {mean, std::sqrt(squares / count), confidences / count};
}

static_assert(std::tuple_size_v<decltype(quantityColumns)> == 6,
              "A new quantity needs a Spread in SummaryRow, here and in summaryColumns.");

}  // namespace

void SummaryTable::add(Time time, const Event& event, const Row& row) {
  if (const auto* remove = std::get_if<Remove>(&event.what)) {
    const auto found = _persons.find(remove->person);
    if (found != _persons.end()) found->second.cycles.remove();
  }
  if (const auto* scope = std::get_if<ScopeRow>(&row)) {
    const auto* const label = std::find(scopeLabels.begin(), scopeLabels.end(), scope->label);
    ++_persons[scope->person].scopes.at(static_cast<std::size_t>(label - scopeLabels.begin()));
  }
  const auto* const state = std::get_if<StateRow>(&row);
  if (state == nullptr) return;
  Person& person = _persons[state->person];
  person.since.push_back(state->since);
  person.cycles.add(time, state->isSeen);
  if (!state->isSeen) ++person.unseen;
  person.visits = state->visit;
  person.valence.push_back(state->valence.value);
  person.attention.push_back(state->attention.value);
  person.ease.push_back(state->ease.level);
  person.valenceConfidence += static_cast<double>(state->valence.confidence);
  person.attentionConfidence += static_cast<double>(state->attention.confidence);
  person.easeConfidence += static_cast<double>(state->ease.confidence);
  ++person.moods.at(static_cast<std::size_t>(1 - state->mood));
}

std::vector<SummaryRow> SummaryTable::rows() const {
  std::vector<SummaryRow> rows;
  for (const auto& entry : _persons) {
    const Person& person = entry.second;
    const auto& since = person.since;
    if (since.empty()) continue;
    const auto greatest = [&](const std::vector<float>& values, float range) {
      constexpr double none = std::numeric_limits<double>::quiet_NaN();
      const auto changes = person.cycles.changes(values, range, 1);
      if (changes.empty()) return GreatestChange{none, none};
      const Change& change = changes.front();
      return GreatestChange{static_cast<double>(values[change.last] - values[change.first]),
                            inSeconds(since[change.last])};
    };
    const auto share = [count = since.size()](auto part) {
      return static_cast<double>(part) / static_cast<double>(count);
    };
    rows.push_back(
        {entry.first, inSeconds(since.front()), inSeconds(since.back()), since.size(),
         person.unseen, person.visits, spreadOf(person.valence, person.valenceConfidence),
         spreadOf(person.attention, person.attentionConfidence),
         spreadOf(person.ease, person.easeConfidence), share(person.moods[0]),
         share(person.moods[1]), share(person.moods[2]),
         share(std::count_if(person.attention.begin(), person.attention.end(),
                             [](float attention) { return attention > 0.5f; })),
         greatest(person.valence, 2.0f), greatest(person.attention, 1.0f), person.scopes});
  }
  return rows;
}

}  // namespace zorvel
