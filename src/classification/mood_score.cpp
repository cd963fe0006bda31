#include "zv/classification/mood_score.hpp"

#include <cmath>
#include <initializer_list>
#include <stdexcept>

namespace ZV::classification {
namespace {

Coefficient coefficient(std::initializer_list<double> weights, float intercept) {
  Coefficient table{{}, intercept};
  for (const double weight : weights) table.weights.push_back(static_cast<float>(weight));
  return table;
}

float weightedSum(const std::vector<float>& weights, const std::vector<float>& z, float intercept) {
  if (z.size() != weights.size()) {
    throw std::runtime_error("Z vector size does not match the feature size");
  }
  float sum = 0.0f;
  for (std::size_t feature = 0; feature < z.size(); ++feature) sum += weights[feature] * z[feature];
  return sum + intercept;
}

// A negative count becomes a huge one, for which the vector throws std::length_error.
std::vector<float> ones(int count) {
  return std::vector<float>(static_cast<std::size_t>(count), 1.0f);
}

}  // namespace

LinregMoodScore::LinregMoodScore(int featureCount, float intercept_)
    : weights(ones(featureCount)), intercept(intercept_) {}

LinregMoodScore::LinregMoodScore(const Coefficient& coefficient)
    : weights(coefficient.weights), intercept(coefficient.intercept) {}

float LinregMoodScore::calculateScore(const MoodClass& /*moodClass*/,
                                      const std::vector<float>& z) const {
  return weightedSum(weights, z, intercept) / static_cast<float>(z.size());
}

const Coefficient& LinregMoodScore::COEFFICIENT_POS() {
  static const Coefficient table = coefficient(
      {0.347842195293, -0.426107582215, 0.530306722283, -0.298138523784, -0.253809017785},
      0.35163465f);
  return table;
}

const Coefficient& LinregMoodScore::COEFFICIENT_NEU() {
  static const Coefficient table = coefficient(
      {0.0808290898056, 0.891293775228, -0.491957517638, -0.425402390317, -0.111974310571},
      0.3218228f);
  return table;
}

const Coefficient& LinregMoodScore::COEFFICIENT_NEG() {
  static const Coefficient table = coefficient(
      {-0.561094814733, -0.328849006716, 0.0550064449134, 0.777949578444, 0.281221762619},
      0.3727249f);
  return table;
}

LogregMoodScore::LogregMoodScore(int featureCount, float intercept_)
    : weights(ones(featureCount)), intercept(intercept_) {}

LogregMoodScore::LogregMoodScore(const Coefficient& coefficient)
    : weights(coefficient.weights), intercept(coefficient.intercept) {}

void LogregMoodScore::setWeights(const std::vector<float>& weights_, float intercept_) {
  weights = weights_;
  intercept = intercept_;
}

float LogregMoodScore::calculateScore(const MoodClass& /*moodClass*/,
                                      const std::vector<float>& z) const {
  const float negated = -weightedSum(weights, z, intercept);
  return static_cast<float>(1.0 / (1.0 + std::exp(static_cast<double>(negated))));
}

const Coefficient& LogregMoodScore::COEFFICIENT_POS() {
  static const Coefficient table = coefficient(
      {2.38828954219, -3.15291359475, 6.85025791269, -1.41616331546, -0.395405045619}, -0.9510546f);
  return table;
}

const Coefficient& LogregMoodScore::COEFFICIENT_NEU() {
  static const Coefficient table = coefficient(
      {2.939970882, 5.47256141157, -6.78930233561, -1.49980029085, -1.0211854597}, -0.86178476f);
  return table;
}

const Coefficient& LogregMoodScore::COEFFICIENT_NEG() {
  static const Coefficient table = coefficient(
      {-5.80814485571, -4.06000541074, -3.21490518458, 2.53144329703, 1.6637735194}, -0.50614434f);
  return table;
}

}  // namespace ZV::classification
