#include "zv/classification/mood_classifier.hpp"

#include <algorithm>
#include <functional>
#include <stdexcept>

namespace ZV::classification {

ArgmaxClassifierType::ArgmaxClassifierType(float margin_) : margin(margin_) {}

MoodClass& ArgmaxClassifierType::classify(const MoodClassifier& /*classifier*/,
                                          std::vector<MoodClass>& classes) const {
  std::sort(classes.begin(), classes.end(), std::greater<>());
  // Written so that a NaN is not a lead.
  if (classes.size() >= 2 && classes[0].score - classes[1].score > margin) return classes[0];
  throw std::runtime_error("unknown state: no clear winner found");
}

MoodClassifier::MoodClassifier(const MoodClassifierType& type) : classifierType(&type) {}

MoodClassifier::~MoodClassifier() = default;

MoodClass& MoodClassifier::classify(std::vector<MoodClass>& classes) const {
  return classifierType->classify(*this, classes);
}

}  // namespace ZV::classification
