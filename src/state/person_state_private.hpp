#ifndef ZV_STATE_PERSON_STATE_PRIVATE_HPP
#define ZV_STATE_PERSON_STATE_PRIVATE_HPP

#include <array>
#include <boost/chrono/duration.hpp>
#include <boost/thread/mutex.hpp>
#include <exception>
#include <ku/clock.hpp>
#include <string_view>

#include "zv/body_language_state.hpp"
#include "zv/classification/mood_score.hpp"
#include "zv/expressions.hpp"
#include "zv/force.hpp"
#include "zv/gaze.hpp"
#include "zv/head_posture.hpp"
#include "zv/smile.hpp"
#include "zv/value_confidence.hpp"

namespace ZV {

class PersonMemory;
struct PersonObservation;

/// Carries what an observer of forces threw out of an update. It is not a std::exception, so no
/// step of the update takes it for a failure of its own.
struct ObserverFailure {
  std::exception_ptr error;
};

/// The emotional state of one person, and the estimator that moves it.
///
/// Every change is a force: a move of a fraction, the strength, of the distance to a target. Forces
/// take the lock of the quantity they move, always innermost; the steps of an update take the
/// observation lock around them.
struct PersonStatePrivate {
  /// The boundaries of a scope's label.
  static constexpr float binaryBoundaryPositive = 0.2f;
  static constexpr float binaryBoundaryNegative = -0.2f;
  static constexpr float binaryBoundaryConfidence = 0.4f;
  /// The boundaries of a state's label, in double precision: 0.2f and -0.2f lie just outside.
  static constexpr double labelBoundaryPositive = 0.2;
  static constexpr double labelBoundaryNegative = -0.2;

  /// The scores of the positive, neutral and negative mood, shared by all persons. They are made
  /// when the library is loaded and never freed.
  static const classification::LogregMoodScore* const _reg_pos;
  static const classification::LogregMoodScore* const _reg_neu;
  static const classification::LogregMoodScore* const _reg_neg;

  /// One update cycle. See PersonState::_update.
  void __update(const PersonObservation& observation, const PersonMemory& memory);
  /// One cycle in which the person was not perceived.
  void _decreaseSinceNotSeen();

  /// When the newest reading that moved the state was taken.
  ku::SystemClock::time_point _newestReading() const;
  /// Takes over everything from the other one but the readings that were used last, the locks and
  /// the observer. Handles on this body-language state see it change.
  void _goOnFrom(const PersonStatePrivate& other);
  /// For each channel, counts as used last the later of the readings that the two used last.
  void _useLaterReadings(const PersonStatePrivate& other);

  void _applyForceValence(float target, float strength, std::string_view reason);
  void _applyForceAttention(float target, float strength, std::string_view reason);
  void _applyForceValenceConfidence(float target, float strength, std::string_view reason);
  void _applyForceAttentionConfidence(float target, float strength, std::string_view reason);

  /// The weight of something at `x`: near 1 well below the horizon, one half at it, 0.01 far beyond
  /// and for a NaN.
  static float _computeWeight(float x, float horizon);
  static float _computeDampingFactor(float value, float x);
  /// Logs a warning when an observation is more than 3 s old.
  void _warnIfObservationOld(boost::chrono::milliseconds age, std::string_view label) const;
  /// Pulls confidences towards what the face analysis can tell at this distance and head height,
  /// both in metres. `which` is "valence" or "attention"; anything else stands for both.
  void _handleOkaoLimitations(float distance, float height, std::string_view which);
  /// The time since the last observation that moved the valence; context emotions do not count.
  boost::chrono::milliseconds _lastTimeStampedObservationValence() const;
  boost::chrono::milliseconds _lastTimeStampedObservationAttention() const;

  void _setValence(float value);
  void _setValenceConfidence(float value);
  void _setAttention(float value);
  void _setAttentionConfidence(float value);
  void _setUnsmoothedValence(float value);
  void _setUnsmoothedValenceConfidence(float value);

  /// Earlier than any real observation, so that the first one counts as new.
  static constexpr ku::SystemClock::time_point never{ku::SystemClock::duration(-1'000'000)};

  BodyLanguageState bodyLanguageState;
  ValueConfidence<float> valence{0.0f, 0.0f};
  /// The valence that this cycle alone would give, from a neutral start.
  ValueConfidence<float> unsmoothedValence{0.0f, 0.0f};
  ValueConfidence<float> attention{0.0f, 0.0f};
  Smile smile;
  Gaze gaze;
  Expressions expressions;
  float headHeight = 0.0f;
  HeadPosture headAngles;
  float frequencyGaze = 1000.0f;
  float frequencyFace = 1000.0f;

  // When the sample that an update used last was observed. A smile, expressions or voice emotion
  // with another time is new; the ages decide how strongly a quantity without input falls back.
  ku::SystemClock::time_point headPostureTimestamp = never;
  ku::SystemClock::time_point smileTimestamp = never;
  ku::SystemClock::time_point expressionsTimestamp = never;
  ku::SystemClock::time_point voiceEmotionTimestamp = never;
  ku::SystemClock::time_point asrEmotionTimestamp = never;
  ku::SystemClock::time_point gazeTimestamp = never;
  ku::SystemClock::time_point touchEmotionTimestamp = never;
  ku::SystemClock::time_point contextEmotionTimestamp = never;

  static constexpr auto usedTimes() {
    return std::array{
        &PersonStatePrivate::headPostureTimestamp,  &PersonStatePrivate::gazeTimestamp,
        &PersonStatePrivate::smileTimestamp,        &PersonStatePrivate::expressionsTimestamp,
        &PersonStatePrivate::voiceEmotionTimestamp, &PersonStatePrivate::asrEmotionTimestamp,
        &PersonStatePrivate::touchEmotionTimestamp, &PersonStatePrivate::contextEmotionTimestamp};
  }

  /// A copied state gets locks of its own.
  struct Locks {
    Locks() = default;
    Locks(const Locks& /*other*/) : Locks() {}
    Locks& operator=(const Locks&) = delete;

    boost::mutex valence;
    boost::mutex attention;
    boost::mutex valenceConfidence;
    boost::mutex attentionConfidence;
    std::array<boost::mutex, 4> spare;  ///< in the record's layout, never taken
    boost::mutex headHeight;
    boost::mutex observation;
  };
  Locks locks;

  /// A copied state is not observed.
  struct Observer {
    Observer() = default;
    Observer(const Observer& /*other*/) : Observer() {}
    Observer& operator=(const Observer&) = delete;

    /// Throws ObserverFailure when the observer throws.
    void tell(const Force& force) const;

    ForceObserver observe;
  };
  Observer observer;

 private:
  /// Moves the quantity, and `cycleValue` (what this cycle alone would give) unless it is null;
  /// then tells the observer.
  void move(float& value, float* cycleValue, float lowest, boost::mutex& mutex, Force force);

  // The steps of an update. Those that return a bool say whether they had input. `restOrLimit...`
  // lets a quantity without input fall back to 0, and pulls the confidence of one with input
  // towards what the face analysis can tell.
  void pullByFacialPoints(const PersonMemory& memory);
  bool takeNewFace(const PersonObservation& observation);
  void classifyFace();
  bool pullByHeadPosture(const PersonMemory& memory);
  bool pullByGaze(const PersonMemory& memory);
  bool pullByVoiceEmotion(const PersonObservation& observation);
  bool pullByAsrEmotion(const PersonMemory& memory);
  bool pullByTouchEmotion(const PersonMemory& memory);
  bool pullByContextEmotion(const PersonMemory& memory);
  void restOrLimitValence(bool seen, const PersonObservation& observation);
  void restOrLimitAttention(bool seen, const PersonObservation& observation);
  void limitBySensor(const PersonObservation& observation, std::string_view which);
};

}  // namespace ZV

#endif
