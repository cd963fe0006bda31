#ifndef ZV_PERSON_OBSERVATION_HPP
#define ZV_PERSON_OBSERVATION_HPP

#include <boost/optional.hpp>
#include <cstddef>
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
  /// A reading with its time, or nothing.
  template <typename T>
  using Field = boost::optional<Timestamped<T>>;
  /// How many fields there are.
  static constexpr std::size_t fieldCount = 15;

  /// Whether the person looks at the robot.
  Field<bool> lookingAtRobot;
  /// Height of the head above the ground, in metres.
  Field<float> height;
  /// Distance from the robot, in metres.
  Field<float> distance;
  /// Where the eyes look, as seen from the robot.
  Field<Gaze> gaze;
  /// How much the face smiles. Without expressions a smile counts as neutral, and one of 0 as
  /// negative: a perception without expressions leaves both out.
  Field<Smile> smile;
  /// What the face shows. All at 0 without a smile counts as negative: what was not perceived is
  /// left out, not set to 0.
  Field<Expressions> expressions;
  /// Where the head is turned, as seen from the robot.
  Field<HeadPosture> headPosture;
  /// The perception layer's gender estimate; the library keeps it and does not interpret it.
  Field<ValueConfidence<bool>> gender;
  /// Age of the person, in years.
  Field<ValueConfidence<unsigned int>> age;
  /// Whether a face was found.
  Field<bool> faceDetected;
  /// The landmarks of the face; the estimator reads their confidences.
  Field<FacialPoints> facialPoints;
  /// What the voice carried. It is used in the cycle that brings it and not remembered.
  Field<VoiceEmotion> voiceEmotion;
  /// Sentiment of what the speech recognition heard: negative below 0, positive from 0 on.
  Field<float> asrEmotion;
  /// A touch: pleasant above 0, unpleasant below 0, without effect on the valence at 0.
  Field<std::int32_t> touchEmotion;
  /// What the situation suggests that the person feels.
  Field<ContextEmotion> contextEmotion;
};

}  // namespace ZV

#endif
