#ifndef ZV_CONTEXT_EMOTION_HPP
#define ZV_CONTEXT_EMOTION_HPP

#include <cstdint>

namespace ZV {

/// An emotion imposed by the situation, such as a game that was won.
///
/// Thread safety: that of a plain value.
struct ContextEmotion {
  /// An emotion and its duration; unchecked.
  ContextEmotion(std::int32_t emotion_, float duration_) : emotion(emotion_), duration(duration_) {}

  /// The target of the pull: 1 positive, -1 negative. Larger numbers pull further in a cycle; the
  /// valence itself stays within [-1, 1].
  std::int32_t emotion;
  /// The age at which its weight is one half, in seconds. It is remembered for 20 s at most.
  float duration;
};

}  // namespace ZV

#endif
