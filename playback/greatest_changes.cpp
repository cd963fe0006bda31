#include "playback/greatest_changes.hpp"

#include <algorithm>
#include <cmath>
#include <deque>
#include <optional>
#include <utility>

#include "recording/event.hpp"

namespace zorvel {
namespace {

std::int64_t step(std::int64_t from, std::int64_t to) {
  return between(Time(Time::duration(from)), Time(Time::duration(to))).count();
}

constexpr std::int64_t second = 1'000'000'000;

struct Rise {
  std::size_t first;
  std::size_t last;
  float size;
};

/// Finds the peaks in a curve of rises.
class RisePeaks {
 public:
  explicit RisePeaks(float least) : _least(least) {}

  void add(const Rise& rise) {
    if (!_top) {
      _lowest = std::min(_lowest, rise.size);
      if (rise.size >= std::max(_least, 2 * _lowest)) _top = rise;
    } else if (rise.size > _top->size) {
      _top = rise;
    } else if (rise.size <= _top->size / 2) {
      finish();
      _lowest = rise.size;
    }
  }

  /// Ends the curve; what is added next begins another.
  void finish() {
    if (_top) _peaks.push_back(*_top);
    _top.reset();
    _lowest = 0.0f;
  }

  const std::vector<Rise>& peaks() const { return _peaks; }

 private:
  float _least;
  std::optional<Rise> _top;
  float _lowest = 0.0f;  // since the last peak
  std::vector<Rise> _peaks;
};

std::vector<Rise> risesOf(const std::vector<std::int64_t>& times, const std::vector<float>& values,
                          const std::vector<bool>& begins, float least) {
  RisePeaks peaks(least);
  std::deque<std::size_t> lows;  // rows of the last second below all that come after them
  std::int64_t begin = 0;
  for (std::size_t row = 0; row < values.size(); ++row) {
    if (begins[row]) {
      peaks.finish();
      lows.clear();
      begin = times[row];
    }
    if (step(begin, times[row]) < second || !std::isfinite(values[row])) continue;
    // The row before counts however long ago it is.
    while (lows.size() > 1 && step(times[lows.front()], times[row]) > second) lows.pop_front();
    while (!lows.empty() && values[lows.back()] >= values[row]) lows.pop_back();
    lows.push_back(row);
    peaks.add({lows.front(), row, values[row] - values[lows.front()]});
  }
  peaks.finish();
  return peaks.peaks();
}

/// The row after `first`, up to `last`, with the greatest step from the one before it.
std::size_t steepestRow(const std::vector<float>& values, const Rise& rise) {
  const auto step = [&values](std::size_t row) { return values[row] - values[row - 1]; };
  std::size_t steepest = rise.last;
  for (std::size_t row = rise.first + 1; row < rise.last; ++row) {
    if (step(row) > step(steepest)) steepest = row;
  }
  return steepest;
}

}  // namespace

std::vector<Change> greatestChanges(const std::vector<std::int64_t>& times,
                                    const std::vector<float>& values,
                                    const std::vector<bool>& begins,
                                    const std::vector<bool>& returns, float least,
                                    std::size_t most) {
  std::vector<std::pair<float, Change>> found;
  const auto addRises = [&](const std::vector<float>& curve) {
    for (const Rise& rise : risesOf(times, curve, begins, least)) {
      const std::size_t steepest = steepestRow(curve, rise);
      if (!returns[steepest]) found.push_back({rise.size, {rise.first, rise.last, steepest}});
    }
  };
  addRises(values);
  std::vector<float> mirrored(values.size());
  std::transform(values.begin(), values.end(), mirrored.begin(), std::negate<>());
  addRises(mirrored);
  std::stable_sort(found.begin(), found.end(),
                   [](const auto& one, const auto& other) { return one.first > other.first; });
  std::vector<Change> changes;
  for (const auto& [size, change] : found) {
    if (changes.size() == most) break;
    changes.push_back(change);
  }
  return changes;
}

}  // namespace zorvel
