#ifndef ZV_SMILE_HPP
#define ZV_SMILE_HPP

#include "zv/value_confidence.hpp"

namespace ZV {

/// How much a person smiles, in [0, 1] by convention, with the confidence in it.
///
/// Thread safety: that of a plain value.
class Smile {
 public:
  /// No smile: (0, 0).
  Smile() : _smile(0.0f, 0.0f) {}
  /// A degree and its confidence, unchecked.
  Smile(float value, float confidence) : _smile(value, confidence) {}

  /// The degree and its confidence.
  ValueConfidence<float> smile() const { return _smile; }
  /// Replaces both the degree and its confidence.
  void setSmile(ValueConfidence<float> smile) { _smile = smile; }

 private:
  friend class TypeRegistration;

  ValueConfidence<float> _smile;
};

}  // namespace ZV

#endif
