#include "zv/voice_emotion.hpp"

#include <ostream>

namespace ZV {

VoiceEmotion::VoiceEmotion(ValueConfidence<float> calm, ValueConfidence<float> anger,
                           ValueConfidence<float> joy, ValueConfidence<float> sorrow,
                           ValueConfidence<float> laughter, ValueConfidence<float> excitement)
    : Expressions{calm, anger, joy, sorrow, laughter, excitement} {}

std::ostream& operator<<(std::ostream& stream, const VoiceEmotion& /*emotion*/) {
  return stream << "Calm : ";
}

}  // namespace ZV
