#ifndef ZORVEL_PLAYBACK_EXPLANATION_HPP
#define ZORVEL_PLAYBACK_EXPLANATION_HPP

#include <array>
#include <cstddef>
#include <string_view>
#include <vector>
#include <zv/force.hpp>

namespace zorvel {

/// What to call a reason of a force where people read of it; its name if it is not known.
std::string_view labelOf(std::string_view reason);

/// What the forces of one reason did to a quantity.
struct ReasonMoves {
  std::string_view reason;
  std::size_t forces = 0;
  float target = 0.0f;    ///< of the last force
  float strength = 0.0f;  ///< of the last force
  double up = 0.0;
  double down = 0.0;  ///< as a positive number
};

/// What moved a quantity from the first force to the last.
struct QuantityMoves {
  float before = 0.0f;
  float after = 0.0f;
  std::vector<ReasonMoves> reasons;

  double up() const;
  double down() const;
  void add(const ZV::Force& force);
};

/// Why a person's state moved as it did, in one cycle or in many: by quantity, in the order of
/// ZV::Quantity. A quantity without forces has no reasons.
class Explanation {
 public:
  void add(const std::vector<ZV::Force>& forces);
  const std::array<QuantityMoves, 4>& quantities() const { return _quantities; }

 private:
  std::array<QuantityMoves, 4> _quantities;
};

}  // namespace zorvel

#endif
