// A state in words, for people.

#include <ostream>
#include <sstream>

#include "zv/person_state.hpp"

namespace ZV {
namespace {

constexpr float engagedAttention = 0.6f;
constexpr float absentAttention = 0.4f;

}  // namespace

std::string PersonState::emotionLogMessage() const {
  const float valence = personValence().value;
  const float attention = personAttention().value;
  std::ostringstream message;
  message << "Emotion recognized : \n";
  if (valence > 0.0f) {
    message << "\t - Actually you're in a positive mood at a " << valence * 100.0f
            << "% rate ＼（＠￣∇￣＠）／ \n";
  } else {
    // A valence of 0 is printed as "-0", which readers of this log expect.
    message << "\t - Actually you're in a negative mood at a " << valence * -100.0f
            << "% rate ヽ（＠⋋_⋌）ノ \n";
  }
  if (attention > engagedAttention) {
    message << "\t - And you're totally engaged in my interaction ＼（〇_ｏ）／ !\n";
  } else if (attention > absentAttention) {
    message << "\t - But you're a bit inattentive, hum ? ヽ(。_°)ノ \n";
  } else {
    message << "\t - But you're totally absent in our interaction (-, – )…zzzZZZ \n";
  }
  return message.str();
}

std::ostream& operator<<(std::ostream& stream, const PersonState& state) {
  const auto print = [&stream](const char* title, float value, float confidence) {
    stream << title << std::endl
           << "\t - Value: \t" << value << std::endl
           << "\t - Confidence: \t" << confidence * 100.0f << std::endl;
  };
  const ValueConfidence<float> valence = state.personValence();
  const ValueConfidence<float> attention = state.personAttention();
  print("Positive: ", valence.value > 0.0f ? valence.value * 100.0f : 0.0f, valence.confidence);
  print("Negative: ", valence.value < 0.0f ? -100.0f * valence.value : 0.0f, valence.confidence);
  print("Attention: ", attention.value * 100.0f, attention.confidence);
  return stream;
}

}  // namespace ZV
