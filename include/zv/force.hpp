#ifndef ZV_FORCE_HPP
#define ZV_FORCE_HPP

#include <boost/function.hpp>
#include <string_view>

namespace ZV {

/// What a force moves.
enum class Quantity {
  Valence = 0,
  ValenceConfidence = 1,
  Attention = 2,
  AttentionConfidence = 3,
};

/// One change of a person's state: the quantity went a fraction of the way to a target. So
/// `after` is `before + (target - before) * strength`, in single precision, held to the range of
/// the quantity; the valence's is [-1, 1], that of the others [0, 1].
///
/// Thread safety: that of a plain value.
struct Force {
  /// What is moved.
  Quantity quantity;
  /// Where to, usually within the quantity's range.
  float target;
  /// The fraction, in [0, 1] for readings within their ranges.
  float strength;
  /// What caused it, such as "Face characteristics". Valid until the process ends.
  std::string_view reason;
  /// The smoothed quantity before the force.
  float before;
  /// The smoothed quantity after it.
  float after;
};

/// Is told each force that moves a state, as it happens: see PersonState::setForceObserver.
using ForceObserver = boost::function<void(const Force&)>;

}  // namespace ZV

#endif
