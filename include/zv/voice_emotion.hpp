#ifndef ZV_VOICE_EMOTION_HPP
#define ZV_VOICE_EMOTION_HPP

#include <iosfwd>

#include "zv/export.hpp"
#include "zv/expressions.hpp"

namespace ZV {

/// How much of each emotion a voice carries, each in [0, 1] by convention. A voice has no surprise:
/// that one stays (0, 0).
///
/// Thread safety: that of a plain value.
class ZV_API VoiceEmotion : public Expressions {
 public:
  /// All emotions (0, 0).
  VoiceEmotion() = default;
  /// These emotions, unchecked.
  VoiceEmotion(ValueConfidence<float> calm, ValueConfidence<float> anger,
               ValueConfidence<float> joy, ValueConfidence<float> sorrow,
               ValueConfidence<float> laughter, ValueConfidence<float> excitement);

  /// How much calm there is, with its confidence.
  ValueConfidence<float> calm() const { return Expressions::calm; }
  /// How much anger there is, with its confidence.
  ValueConfidence<float> anger() const { return Expressions::anger; }
  /// How much joy there is, with its confidence.
  ValueConfidence<float> joy() const { return Expressions::joy; }
  /// How much sorrow there is, with its confidence.
  ValueConfidence<float> sorrow() const { return Expressions::sorrow; }
  /// How much laughter there is, with its confidence.
  ValueConfidence<float> laughter() const { return Expressions::laughter; }
  /// How much excitement there is, with its confidence.
  ValueConfidence<float> excitement() const { return Expressions::excitement; }
};

/// Writes the seven characters "Calm : " and no value: readers of the logs know this form.
ZV_API std::ostream& operator<<(std::ostream& stream, const VoiceEmotion& emotion);

}  // namespace ZV

#endif
