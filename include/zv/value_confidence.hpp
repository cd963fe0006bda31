#ifndef ZV_VALUE_CONFIDENCE_HPP
#define ZV_VALUE_CONFIDENCE_HPP

namespace ZV {

/// A value with the confidence of its source, in [0, 1].
///
/// Thread safety: that of a plain value.
template <typename T>
struct ValueConfidence {
  /// Sets the confidence to 0 and leaves `value` uninitialised: whoever makes one sets the value.
  ValueConfidence() : confidence(0.0f) {}  // NOLINT(cppcoreguidelines-pro-type-member-init)
  /// A value and its confidence, unchecked.
  ValueConfidence(T value_, float confidence_) : value(value_), confidence(confidence_) {}

  T value;           ///< what was perceived or estimated
  float confidence;  ///< how certain it is, in [0, 1]
};

}  // namespace ZV

#endif
