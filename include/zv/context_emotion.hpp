#ifndef ZV_CONTEXT_EMOTION_HPP
#define ZV_CONTEXT_EMOTION_HPP

#include <cstdint>

namespace ZV {

/// An emotion imposed by the situation, such as a game that was won.
///
/// Thread safety: that of a plain value.
struct ContextEmotion {
  /// An emotion, and for how many seconds it weighs; unchecked.
  ContextEmotion(std::int32_t emotion_, float duration_) : emotion(emotion_), duration(duration_) {}

  /// The valence that the situation pulls towards, by sign and size; the valence itself stays
  /// within [-1, 1].
  std::int32_t emotion;
  /// For how long it weighs, in seconds: at this age its weight is one half. It is remembered for
  /// 20 s at most.
  float duration;
};

}  // namespace ZV

#endif
