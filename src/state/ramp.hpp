#ifndef ZV_STATE_RAMP_HPP
#define ZV_STATE_RAMP_HPP

#include <cmath>

namespace ZV {

enum class RampSlope {
  Falling = 0,  ///< from the height, far below the centre, to 0
  Rising = 1,   ///< from 0, far below the centre, to the height
};

/// A smooth step in the shape of a hyperbolic tangent.
///
/// Over one width around the centre the output passes from 1.8 % to 98.2 % of the height. A width
/// of 0 gives a hard step that is NaN at the centre; a negative width mirrors the ramp.
template <RampSlope slope, typename In, typename Out>
struct Ramp {
  Ramp() = default;
  Ramp(In center_, In width_, Out height_) : center(center_), width(width_), height(height_) {}

  Out operator()(In x) const {
    const In gain = In(4) / width;
    const In u = (x - center) * gain;
    const In t = std::tanh(u);
    if constexpr (slope == RampSlope::Rising) {
      return ((t + In(1)) * height) * Out(0.5);
    } else {
      return ((In(1) - t) * height) * Out(0.5);
    }
  }

  In center = In(0);
  In width = In(0);
  Out height = Out(0);
};

}  // namespace ZV

#endif
