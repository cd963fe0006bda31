// The forces that move a state, and what decides how far.

#include <cxxabi.h>

#include <algorithm>
#include <boost/math/special_functions/erf.hpp>
#include <boost/thread/lock_types.hpp>
#include <cmath>

#include "log_categories.hpp"
#include "observation/age.hpp"
#include "state/person_state_private.hpp"
#include "state/ramp.hpp"

namespace ZV {
namespace {

constexpr float okaoStrength = 0.175f;
constexpr float distanceLimitMetres = 1.4f;
constexpr float heightLimitMetres = 1.5f;
constexpr float limitWidthMetres = 0.2f;
constexpr float notVisibleStrength = 0.26f;
constexpr float notVisibleConfidenceStrength = 0.7f;
constexpr double oldObservationSeconds = 3.0;

// How steeply a weight falls at its horizon, in 1/s or 1/degree: this divided by the horizon, held
// within these bounds.
constexpr float slopeTimesHorizon = 2.0f;
constexpr float flattestSlope = 0.001f;
constexpr float steepestSlope = 2.0f;
constexpr float smallestWeight = 0.01f;

constexpr float dampingExponent = 0.7f;

// Without this policy, Boost would compute the error function in long double, and the last digits
// would differ.
using DoublePrecision = boost::math::policies::policy<boost::math::policies::promote_double<false>>;

float pulled(float value, float target, float strength, float lowest, float highest) {
  return std::clamp(value + (target - value) * strength, lowest, highest);
}

}  // namespace

// The exception that unwinds a cancelled thread has no object, so a reference to it refers to null.
__attribute__((no_sanitize("null"))) void PersonStatePrivate::Observer::tell(
    const Force& force) const {
  try {
    observe(force);
  } catch (const abi::__forced_unwind&) {
    throw;  // Swallowing or wrapping it would abort the process.
  } catch (...) {
    throw ObserverFailure{std::current_exception()};
  }
}

inline void PersonStatePrivate::move(float& value, float* cycleValue, float lowest,
                                     boost::mutex& mutex, Force force) {
  {
    const boost::unique_lock<boost::mutex> lock(mutex);
    force.before = value;
    value = pulled(value, force.target, force.strength, lowest, 1.0f);
    force.after = value;
    if (cycleValue != nullptr)
      *cycleValue = pulled(*cycleValue, force.target, force.strength, lowest, 1.0f);
  }
  if (observer.observe) observer.tell(force);
}

void PersonStatePrivate::_applyForceValence(float target, float strength, std::string_view reason) {
  move(valence.value, &unsmoothedValence.value, -1.0f, locks.valence,
       {Quantity::Valence, target, strength, reason, 0.0f, 0.0f});
}

void PersonStatePrivate::_applyForceAttention(float target, float strength,
                                              std::string_view reason) {
  move(attention.value, nullptr, 0.0f, locks.attention,
       {Quantity::Attention, target, strength, reason, 0.0f, 0.0f});
}

void PersonStatePrivate::_applyForceValenceConfidence(float target, float strength,
                                                      std::string_view reason) {
  move(valence.confidence, &unsmoothedValence.confidence, 0.0f, locks.valenceConfidence,
       {Quantity::ValenceConfidence, target, strength, reason, 0.0f, 0.0f});
}

void PersonStatePrivate::_applyForceAttentionConfidence(float target, float strength,
                                                        std::string_view reason) {
  move(attention.confidence, nullptr, 0.0f, locks.attentionConfidence,
       {Quantity::AttentionConfidence, target, strength, reason, 0.0f, 0.0f});
}

float PersonStatePrivate::_computeWeight(float x, float horizon) {
  const float slope = std::clamp(slopeTimesHorizon / horizon, flattestSlope, steepestSlope);
  const float scaled = (horizon - x) * slope;
  const auto e =
      static_cast<float>(boost::math::erf(static_cast<double>(scaled), DoublePrecision()));
  return std::max(smallestWeight, (e + 1.0f) * 0.5f);
}

float PersonStatePrivate::_computeDampingFactor(float value, float x) {
  return value / std::pow(x, dampingExponent);
}

void PersonStatePrivate::_warnIfObservationOld(boost::chrono::milliseconds age,
                                               std::string_view label) const {
  const double seconds = static_cast<double>(age.count()) * 0.001;
  if (!(seconds > oldObservationSeconds)) return;
  ku::log::LogStream line(ku::log::Warning, "", "_warnIfObservationOld", 0,
                          log_categories::emotionalstate);
  line << "Processing old observation from " << seconds << " s ago";
  if (!label.empty()) line << " of " << label;
}

void PersonStatePrivate::_handleOkaoLimitations(float distance, float height,
                                                std::string_view which) {
  using FallingRamp = Ramp<RampSlope::Falling, float, float>;
  static const FallingRamp distanceRamp(distanceLimitMetres, limitWidthMetres, 1.0f);
  static const FallingRamp heightRamp(heightLimitMetres, limitWidthMetres, 1.0f);
  if (which != "attention") {
    _applyForceValenceConfidence(distanceRamp(distance), okaoStrength,
                                 force_reasons::distanceLimitation.name);
    _applyForceValenceConfidence(heightRamp(height), okaoStrength,
                                 force_reasons::heightLimitation.name);
  }
  if (which != "valence") {
    _applyForceAttentionConfidence(distanceRamp(distance), okaoStrength,
                                   force_reasons::distanceLimitation.name);
    _applyForceAttentionConfidence(heightRamp(height), okaoStrength,
                                   force_reasons::heightLimitation.name);
  }
}

void PersonStatePrivate::_decreaseSinceNotSeen() {
  _applyForceValence(0.0f, notVisibleStrength, force_reasons::notVisible.name);
  _applyForceValenceConfidence(0.0f, notVisibleConfidenceStrength, force_reasons::notVisible.name);
  _applyForceAttention(0.0f, notVisibleStrength, force_reasons::notVisible.name);
  _applyForceAttentionConfidence(0.0f, notVisibleConfidenceStrength,
                                 force_reasons::notVisible.name);
}

}  // namespace ZV
