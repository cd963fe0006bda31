#ifndef ZV_EXPRESSIONS_HPP
#define ZV_EXPRESSIONS_HPP

#include "zv/value_confidence.hpp"

namespace ZV {

/// How much of each facial expression a face shows, each in [0, 1] by convention. All are (0, 0) at
/// first.
///
/// Thread safety: that of a plain value.
struct Expressions {
  ValueConfidence<float> calm{0.0f, 0.0f};
  ValueConfidence<float> anger{0.0f, 0.0f};
  ValueConfidence<float> joy{0.0f, 0.0f};
  ValueConfidence<float> sorrow{0.0f, 0.0f};
  ValueConfidence<float> laughter{0.0f, 0.0f};
  ValueConfidence<float> excitement{0.0f, 0.0f};
  ValueConfidence<float> surprise{0.0f, 0.0f};
};

}  // namespace ZV

#endif
