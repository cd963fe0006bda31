#include "playback/summary_table.hpp"

#include <algorithm>
#include <cmath>

namespace zorvel {
namespace {

static_assert(std::tuple_size_v<decltype(quantityColumns)> == 6,
              "A new quantity needs a Spread in SummaryRow, here and in summaryColumns.");

}  // namespace

void SummaryTable::Values::add(float value, float confidence, bool isMeasured) {
  values.push_back(value);
  confidences += static_cast<double>(confidence);
  if (isMeasured) ++measured;
}

Spread SummaryTable::Values::spread() const {
  const auto count = static_cast<double>(values.size());
  Spread spread{{}, {}, {}, static_cast<double>(measured) / count};
  if (measured == 0) return spread;
  double sum = 0.0;
  for (const float value : values) sum += static_cast<double>(value);
  const double mean = sum / count;
  double squares = 0.0;
  for (const float value : values) {
    const double distance = static_cast<double>(value) - mean;
    squares += distance * distance;
  }
  spread.mean = mean;
  if (values.size() > 1) spread.deviation = std::sqrt(squares / (count - 1.0));
  spread.confidence = confidences / count;
  return spread;
}

std::optional<double> SummaryTable::Values::share(std::uint64_t part) const {
  if (measured == 0) return std::nullopt;
  return static_cast<double>(part) / static_cast<double>(values.size());
}

void SummaryTable::add(Time time, const Event& event, const Row& row) {
  followPeople(event, _persons);
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
  const auto& [valence, attention, ease] = state->isMeasured;
  person.valence.add(state->valence.value, state->valence.confidence, valence);
  person.attention.add(state->attention.value, state->attention.confidence, attention);
  person.ease.add(state->ease.level, state->ease.confidence, ease);
  ++person.moods.at(static_cast<std::size_t>(1 - state->mood));
}

std::vector<SummaryRow> SummaryTable::rows() const {
  std::vector<SummaryRow> rows;
  for (const auto& entry : _persons) {
    const Person& person = entry.second;
    const auto& since = person.since;
    if (since.empty()) continue;
    const auto greatest = [&](const std::vector<float>& values, float range) {
      const auto changes = person.cycles.changes(values, range, 1);
      if (changes.empty()) return GreatestChange{};
      const Change& change = changes.front();
      return GreatestChange{static_cast<double>(values[change.last] - values[change.first]),
                            inSeconds(since[change.last])};
    };
    const auto& [valence, attention, ease] =
        std::tie(person.valence, person.attention, person.ease);
    const auto attentive = std::count_if(attention.values.begin(), attention.values.end(),
                                         [](float value) { return value > 0.5f; });
    rows.push_back({entry.first, inSeconds(since.front()), inSeconds(since.back()), since.size(),
                    person.unseen, person.visits, valence.spread(), attention.spread(),
                    ease.spread(), valence.share(person.moods[0]), valence.share(person.moods[1]),
                    valence.share(person.moods[2]),
                    attention.share(static_cast<std::uint64_t>(attentive)),
                    greatest(valence.values, 2.0f), greatest(attention.values, 1.0f),
                    person.cycles.areShort(), person.scopes});
  }
  return rows;
}

}  // namespace zorvel
