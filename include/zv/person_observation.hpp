#ifndef ZV_PERSON_OBSERVATION_HPP
#define ZV_PERSON_OBSERVATION_HPP

#include <boost/optional.hpp>
#include <cstdint>

#include "zv/context_emotion.hpp"
#include "zv/expressions.hpp"
#include "zv/facial_points.hpp"
#include "zv/gaze.hpp"
#include "zv/head_posture.hpp"
#include "zv/smile.hpp"
#include "zv/timestamped.hpp"
#include "zv/value_confidence.hpp"
#include "zv/voice_emotion.hpp"

namespace ZV {

/// What was perceived of one person in one perception cycle. A field that was not perceived is
/// unset; each set field carries the time of its own reading.
///
/// Thread safety: that of a plain value.
struct PersonObservation {
  template <typename T>
  using Field = boost::optional<Timestamped<T>>;

  /// Whether the person looks at the robot.
  Field<bool> lookingAtRobot;
  /// Height of the head above the ground, in metres.
  Field<float> height;
  /// Distance from the robot, in metres.
  Field<float> distance;
  Field<Gaze> gaze;
  Field<Smile> smile;
  Field<Expressions> expressions;
  Field<HeadPosture> headPosture;
  /// The perception layer's gender estimate; the library keeps it and does not interpret it.
  Field<ValueConfidence<bool>> gender;
  /// Age of the person, in years.
  Field<ValueConfidence<unsigned int>> age;
  Field<bool> faceDetected;
  Field<FacialPoints> facialPoints;
  Field<VoiceEmotion> voiceEmotion;
  /// Sentiment of what the speech recognition heard: negative below 0, positive from 0 on.
  Field<float> asrEmotion;
  /// A touch: pleasant above 0, unpleasant below 0, without effect on the valence at 0.
  Field<std::int32_t> touchEmotion;
  Field<ContextEmotion> contextEmotion;
};

}  // namespace ZV

#endif
