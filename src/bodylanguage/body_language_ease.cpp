#include "zv/body_language_ease.hpp"

#include <iomanip>
#include <ostream>

namespace ZV {
namespace {

const char* feeling(float level) {
  if (level < -0.5f) return "akwards";
  if (level < -0.25f) return "uncomfortable";
  if (level < 0.25f) return "almost comfortable";
  return "comfortable";
}

}  // namespace

std::ostream& operator<<(std::ostream& stream, const BodyLanguageEase& ease) {
  return stream << "Body language ease " << std::fixed << std::setprecision(1) << std::setw(3)
                << ease.level * 100.0f << "% with confidence of " << ease.confidence << " (feeling "
                << feeling(ease.level) << ").";
}

}  // namespace ZV
