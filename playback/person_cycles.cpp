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

void PersonCycles::goOnIn(PersonCycles& to) {
  if (&to == this) return;
  remove();
  to.remove();
}

Time::duration PersonCycles::step(std::size_t from, std::size_t to) const {
  const auto time = [this](std::size_t row) { return Time(Time::duration(_times[row])); };
  return between(time(from), time(to));
}

std::vector<std::int32_t> PersonCycles::stretches() const {
  const auto stepTo = [this](std::size_t row) { return step(row - 1, row).count(); };
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

std::vector<bool> PersonCycles::comes() const {
  std::vector<bool> rows(_times.size());
  for (const std::int32_t row : stretches()) rows[static_cast<std::size_t>(row)] = true;
  return rows;
}

bool PersonCycles::areShort() const {
  const std::vector<bool> begins = comes();
  std::size_t begin = 0;
  int later = 0;  // a change goes from one cycle to another
  for (std::size_t row = 0; row < _times.size(); ++row) {
    if (begins[row]) {
      begin = row;
      later = 0;
    }
    if (step(begin, row) >= boost::chrono::seconds(1) && ++later == 2) return false;
  }
  return true;
}

std::vector<Change> PersonCycles::changes(const std::vector<float>& values, float range,
                                          std::size_t most) const {
  constexpr float leastChange = 0.05f;
  return greatestChanges(_times, values, comes(), _returns, leastChange * range, most);
}

}  // namespace zorvel
