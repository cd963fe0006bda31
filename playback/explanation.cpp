#include "playback/explanation.hpp"

#include <algorithm>
#include <numeric>

namespace zorvel {

std::string_view labelOf(std::string_view reason) {
  const auto& all = ZV::force_reasons::all;
  const auto found = std::find_if(all.begin(), all.end(), [&reason](const ZV::ForceReason& known) {
    return known.name == reason;
  });
  return found == all.end() ? reason : found->label;
}

double QuantityMoves::up() const {
  return std::accumulate(reasons.begin(), reasons.end(), 0.0,
                         [](double sum, const ReasonMoves& moves) { return sum + moves.up; });
}

double QuantityMoves::down() const {
  return std::accumulate(reasons.begin(), reasons.end(), 0.0,
                         [](double sum, const ReasonMoves& moves) { return sum + moves.down; });
}

void QuantityMoves::add(const ZV::Force& force) {
  if (reasons.empty()) before = force.before;
  after = force.after;
  auto found = std::find_if(reasons.begin(), reasons.end(), [&force](const ReasonMoves& moves) {
    return moves.reason == force.reason;
  });
  if (found == reasons.end()) found = reasons.insert(reasons.end(), ReasonMoves{force.reason});
  ++found->forces;
  found->target = force.target;
  found->strength = force.strength;
  const double moved = static_cast<double>(force.after) - static_cast<double>(force.before);
  if (moved > 0.0) found->up += moved;
  if (moved < 0.0) found->down -= moved;
}

void Explanation::add(const std::vector<ZV::Force>& forces) {
  for (const ZV::Force& force : forces) {
    _quantities.at(static_cast<std::size_t>(force.quantity)).add(force);
  }
}

}  // namespace zorvel
