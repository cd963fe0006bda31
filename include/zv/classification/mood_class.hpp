#ifndef ZV_CLASSIFICATION_MOOD_CLASS_HPP
#define ZV_CLASSIFICATION_MOOD_CLASS_HPP

#include <cstdint>
#include <string>
#include <vector>

#include "zv/classification/mood_score.hpp"
#include "zv/export.hpp"

namespace ZV::classification {

/// A candidate outcome of a classification, such as "positive", with the score that judges it.
///
/// Thread safety: that of a plain value.
class ZV_API MoodClass {
 public:
  /// `moodScore` is not owned and must outlive the class. `score` is not set yet.
  MoodClass(const std::string& name, std::int32_t id, const MoodScore& moodScore);

  /// Scores the features `z`, keeps the result in `score` and returns it. When the score throws a
  /// std::exception, its text goes to standard error and the result is 0.
  float calculateScore(const std::vector<float>& z);

  std::string name;  ///< what people call the class
  /// The value of the class; for the moods, the valence that it pulls towards.
  std::int32_t id;
  const MoodScore* moodScore;  ///< judges the class; not owned
  /// The last computed score; valid after the first `calculateScore`.
  float score;
};

/// Whether `left` scored higher than `right`. Names and ids take no part.
inline bool operator>(const MoodClass& left, const MoodClass& right) {
  return left.score > right.score;
}

}  // namespace ZV::classification

#endif
