#ifndef ZV_CLASSIFICATION_MOOD_CLASSIFIER_HPP
#define ZV_CLASSIFICATION_MOOD_CLASSIFIER_HPP

#include <vector>

#include "zv/classification/mood_class.hpp"
#include "zv/export.hpp"

namespace ZV::classification {

class MoodClassifier;

/// A way to choose among scored classes.
///
/// There is no virtual destructor: strategies are never deleted through this class.
///
/// Thread safety: choosing changes nothing but the caller's vector.
class ZV_API MoodClassifierType {
 public:
  /// The winner among `classes`, all of which have their score; the vector may be reordered.
  virtual MoodClass& classify(const MoodClassifier& classifier,
                              std::vector<MoodClass>& classes) const = 0;

 protected:
  MoodClassifierType() = default;
  /// Protected, so that no strategy is copied without its derived part.
  MoodClassifierType(const MoodClassifierType&) = default;
  /// The same for assignment.
  MoodClassifierType& operator=(const MoodClassifierType&) = default;
  ~MoodClassifierType() = default;
};

/// Chooses the class with the highest score, if it leads by more than a margin.
///
/// Thread safety: choosing changes nothing but the caller's vector.
class ZV_API ArgmaxClassifierType final : public MoodClassifierType {
 public:
  /// `margin` is in the unit of the scores.
  explicit ArgmaxClassifierType(float margin);

  /// Sorts `classes` by descending score (equal scores in any order) and returns the first. Throws
  /// std::runtime_error when it does not lead by more than the margin (a NaN never does), or when
  /// there are fewer than two classes.
  MoodClass& classify(const MoodClassifier& classifier,
                      std::vector<MoodClass>& classes) const override;

 private:
  float margin;
};

/// Picks a winner by a strategy.
///
/// Thread safety: any number of threads may classify at once, each its own vector.
class ZV_API MoodClassifier {
 public:
  /// `classifierType` is not owned and must outlive the classifier.
  explicit MoodClassifier(const MoodClassifierType& classifierType);
  /// Uses the strategy of the other one.
  MoodClassifier(const MoodClassifier&) = default;
  /// Takes over the strategy of the other one.
  MoodClassifier& operator=(const MoodClassifier&) = default;
  virtual ~MoodClassifier();

  /// The winner by the strategy, a reference into `classes`, which may be reordered. Throws what
  /// the strategy throws.
  MoodClass& classify(std::vector<MoodClass>& classes) const;

 private:
  const MoodClassifierType* classifierType;
};

}  // namespace ZV::classification

#endif
