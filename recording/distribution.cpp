#include "recording/distribution.hpp"

#include <algorithm>
#include <cmath>

namespace zorvel {
namespace {

/// The number rounded towards 0 to its leading 9 binary digits.
std::int64_t binOf(std::int64_t number) {
  constexpr int leading = 9;
  const auto digits = static_cast<std::uint64_t>(number);
  const std::uint64_t magnitude = number < 0 ? 0 - digits : digits;
  if (magnitude >> leading == 0) return number;
  const int cleared = 64 - leading - __builtin_clzll(magnitude);
  const std::uint64_t step = magnitude >> cleared << cleared;
  return static_cast<std::int64_t>(number < 0 ? 0 - step : step);
}

}  // namespace

void Distribution::add(std::int64_t number) {
  const std::int64_t key = binOf(number);
  Bin& bin = _bins[key];
  ++bin.count;
  bin.offsets += static_cast<double>(number - key);
  _lowest = _count == 0 ? number : std::min(_lowest, number);
  _highest = _count == 0 ? number : std::max(_highest, number);
  ++_count;
}

void Distribution::add(const Distribution& other) {
  if (other._count == 0) return;
  for (const auto& [key, bin] : other._bins) {
    _bins[key].count += bin.count;
    _bins[key].offsets += bin.offsets;
  }
  _lowest = _count == 0 ? other._lowest : std::min(_lowest, other._lowest);
  _highest = _count == 0 ? other._highest : std::max(_highest, other._highest);
  _count += other._count;
}

std::int64_t Distribution::median() const {
  std::uint64_t passed = 0;
  for (const auto& [key, bin] : _bins) {
    passed += bin.count;
    if (2 * passed < _count) continue;
    return key + std::llround(bin.offsets / static_cast<double>(bin.count));
  }
  return 0;
}

std::uint64_t Distribution::countAbove(std::int64_t limit) const {
  std::uint64_t above = 0;
  for (auto bin = _bins.upper_bound(limit); bin != _bins.end(); ++bin) above += bin->second.count;
  return above;
}

}  // namespace zorvel
