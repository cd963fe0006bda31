#include "recording/intervals.hpp"

#include <algorithm>
#include <limits>

namespace zorvel {
namespace {

constexpr std::int64_t gapMedians = 3;
constexpr std::int64_t shortestGap = 1'000'000'000;

}  // namespace

std::int64_t Intervals::gapLimit() const {
  constexpr std::int64_t longest = std::numeric_limits<std::int64_t>::max();
  return std::max(gapMedians * std::min(median(), longest / gapMedians), shortestGap);
}

}  // namespace zorvel
