#include "playback/person_cycles.hpp"

#include "recording/intervals.hpp"

namespace zorvel {

void PersonCycles::add(Time time, bool isSeen) {
  _times.push_back(time.time_since_epoch().count());
  _begins.push_back(_isRemoved);
  _isRemoved = false;
  _returns.push_back(isSeen && !_isSeen);
  _isSeen = isSeen;
}

std::vector<std::int32_t> PersonCycles::stretches() const {
  const auto stepTo = [this](std::size_t row) {
    const auto time = [this](std::size_t at) { return Time(Time::duration(_times[at])); };
    return between(time(row - 1), time(row)).count();
  };
  Intervals intervals;
  for (std::size_t row = 1; row < _times.size(); ++row) {
    if (!_begins[row]) intervals.add(stepTo(row));
  }
  const std::int64_t limit = intervals.gapLimit();
  std::vector<std::int32_t> rows;
  for (std::size_t row = 0; row < _times.size(); ++row) {
    if (row == 0 || _begins[row] || stepTo(row) > limit) {
      rows.push_back(static_cast<std::int32_t>(row));
    }
  }
  return rows;
}

std::vector<Change> PersonCycles::changes(const std::vector<float>& values, float range,
                                          std::size_t most) const {
  constexpr float leastChange = 0.05f;
  std::vector<bool> comes(_times.size());
  for (const std::int32_t row : stretches()) comes[static_cast<std::size_t>(row)] = true;
  return greatestChanges(_times, values, comes, _returns, leastChange * range, most);
}

}  // namespace zorvel
