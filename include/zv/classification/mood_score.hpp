#ifndef ZV_CLASSIFICATION_MOOD_SCORE_HPP
#define ZV_CLASSIFICATION_MOOD_SCORE_HPP

#include <vector>

#include "zv/export.hpp"

/// What decides between positive, neutral and negative, from a smile and four expressions.
namespace ZV::classification {

class MoodClass;

/// The fixed part of a regression: one weight per feature and a constant term.
///
/// The features of the moods are, in this order: smile value times smile confidence, then the
/// values of calm, joy, anger and sorrow.
///
/// Thread safety: that of a plain value.
struct Coefficient {
  std::vector<float> weights;  ///< one per feature, in the features' order
  float intercept;             ///< the constant term
};

/// Says how well a feature vector fits a mood.
///
/// There is no virtual destructor: scores are owned by value and never deleted through this class.
///
/// Thread safety: scoring changes nothing, so any number of threads may use one score at once.
class ZV_API MoodScore {
 public:
  /// The score of the features `z`. `moodClass` is the class that asks.
  virtual float calculateScore(const MoodClass& moodClass, const std::vector<float>& z) const = 0;

 protected:
  MoodScore() = default;
  /// Protected, so that no score is copied without its derived part.
  MoodScore(const MoodScore&) = default;
  /// The same for assignment.
  MoodScore& operator=(const MoodScore&) = default;
  ~MoodScore() = default;
};

/// A linear regression.
///
/// Thread safety: any number of threads may score at once.
class ZV_API LinregMoodScore final : public MoodScore {
 public:
  /// `featureCount` weights of 1. Throws std::length_error for a negative count.
  LinregMoodScore(int featureCount, float intercept);
  /// These weights and this intercept, which are copied.
  explicit LinregMoodScore(const Coefficient& coefficient);

  /// The weighted sum and the intercept, both divided by the number of features. Throws
  /// std::runtime_error unless `z` has one feature per weight.
  float calculateScore(const MoodClass& moodClass, const std::vector<float>& z) const override;

  /// The weights of the positive mood. The reference stays valid until the library is unloaded; the
  /// first call may come from any thread.
  static const Coefficient& COEFFICIENT_POS();
  /// The same for the neutral mood.
  static const Coefficient& COEFFICIENT_NEU();
  /// The same for the negative mood.
  static const Coefficient& COEFFICIENT_NEG();

 private:
  std::vector<float> weights;
  float intercept;
};

/// A logistic regression.
///
/// Thread safety: any number of threads may score at once; `setWeights` needs the score to itself.
class ZV_API LogregMoodScore final : public MoodScore {
 public:
  /// `featureCount` weights of 1. Throws std::length_error for a negative count.
  LogregMoodScore(int featureCount, float intercept);
  /// These weights and this intercept, which are copied.
  explicit LogregMoodScore(const Coefficient& coefficient);

  /// Replaces weights and intercept. The number of weights is checked by the next `calculateScore`.
  /// Not to be called while another thread scores.
  void setWeights(const std::vector<float>& weights, float intercept);

  /// The logistic function of the weighted sum and the intercept, in [0, 1]. Throws
  /// std::runtime_error unless `z` has one feature per weight.
  float calculateScore(const MoodClass& moodClass, const std::vector<float>& z) const override;

  /// The weights of the positive mood. The reference stays valid until the library is unloaded; the
  /// first call may come from any thread.
  static const Coefficient& COEFFICIENT_POS();
  /// The same for the neutral mood.
  static const Coefficient& COEFFICIENT_NEU();
  /// The same for the negative mood.
  static const Coefficient& COEFFICIENT_NEG();

 private:
  std::vector<float> weights;
  float intercept;
};

}  // namespace ZV::classification

#endif
