#include "recording/distribution.hpp"

#include <algorithm>
#include <cmath>

namespace zorvel {
namespace {

/// The number with all binary digits but the leading 9 cleared.
std::int64_t stepOf(std::int64_t number) {
  constexpr std::int64_t end = std::int64_t{1} << 9;
  std::int64_t width = 1;
  while (number / width >= end || number / width <= -end) width *= 2;
  return number / width * width;
}

}  // namespace

void Distribution::add(std::int64_t number) {
  const std::int64_t key = stepOf(number);
  Step& step = _steps[key];
  ++step.count;
  step.offsets += static_cast<double>(number - key);
  _lowest = _count == 0 ? number : std::min(_lowest, number);
  _highest = _count == 0 ? number : std::max(_highest, number);
  ++_count;
}

void Distribution::add(const Distribution& other) {
  if (other._count == 0) return;
  for (const auto& [key, step] : other._steps) {
    _steps[key].count += step.count;
    _steps[key].offsets += step.offsets;
  }
  _lowest = _count == 0 ? other._lowest : std::min(_lowest, other._lowest);
  _highest = _count == 0 ? other._highest : std::max(_highest, other._highest);
  _count += other._count;
}

std::int64_t Distribution::median() const {
  std::uint64_t passed = 0;
  for (const auto& [key, step] : _steps) {
    passed += step.count;
    if (2 * passed < _count) continue;
    return key + std::llround(step.offsets / static_cast<double>(step.count));
  }
  return 0;
}

std::uint64_t Distribution::countAbove(std::int64_t limit) const {
  std::uint64_t above = 0;
  for (auto step = _steps.upper_bound(limit); step != _steps.end(); ++step)
    above += step->second.count;
  return above;
}

}  // namespace zorvel
