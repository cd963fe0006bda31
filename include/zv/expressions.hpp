#ifndef ZV_EXPRESSIONS_HPP
#define ZV_EXPRESSIONS_HPP

#include "zv/value_confidence.hpp"

namespace ZV {

/// How much of each facial expression a face shows, each in [0, 1] by convention. All are (0, 0) at
/// first. The estimator reads the values of calm, anger, joy and sorrow; it ignores the other three
/// and all confidences.
///
/// Thread safety: that of a plain value.
struct Expressions {
  ValueConfidence<float> calm{0.0f, 0.0f};        ///< a calm face or voice
  ValueConfidence<float> anger{0.0f, 0.0f};       ///< anger
  ValueConfidence<float> joy{0.0f, 0.0f};         ///< joy
  ValueConfidence<float> sorrow{0.0f, 0.0f};      ///< sorrow
  ValueConfidence<float> laughter{0.0f, 0.0f};    ///< laughter
  ValueConfidence<float> excitement{0.0f, 0.0f};  ///< excitement
  ValueConfidence<float> surprise{0.0f, 0.0f};    ///< surprise
};

}  // namespace ZV

#endif
