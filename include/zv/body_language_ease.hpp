#ifndef ZV_BODY_LANGUAGE_EASE_HPP
#define ZV_BODY_LANGUAGE_EASE_HPP

#include <iosfwd>

#include "zv/export.hpp"

namespace ZV {

/// How much at ease a person seems.
///
/// Thread safety: that of a plain value.
struct ZV_API BodyLanguageEase {
  /// Neither at ease nor uneasy: (0, 0).
  BodyLanguageEase() = default;
  /// A level and its confidence, unchecked.
  BodyLanguageEase(float level_, float confidence_) : level(level_), confidence(confidence_) {}

  /// From -0.5, uneasy, to +0.5, at ease. When a head posture grows too old in the middle of an
  /// update, the level may lie a little beyond; when it was the last one, the level is infinite or
  /// NaN. The next posture brings it back.
  float level = 0.0f;
  /// How certain the level is, in [0, 1].
  float confidence = 0.0f;
};

/// Writes one sentence with the level in percent, the confidence and a word for the feeling; no
/// line end. The stream keeps fixed notation and precision 1 afterwards.
ZV_API std::ostream& operator<<(std::ostream& stream, const BodyLanguageEase& ease);

}  // namespace ZV

#endif
