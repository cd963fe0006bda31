#ifndef ZV_FORCE_HPP
#define ZV_FORCE_HPP

#include <array>
#include <boost/function.hpp>
#include <string_view>

namespace ZV {

/// What a force moves.
enum class Quantity {
  Valence = 0,
  ValenceConfidence = 1,
  Attention = 2,
  AttentionConfidence = 3,
};

/// One change of a person's state: the quantity went a fraction of the way to a target. So
/// `after` is `before + (target - before) * strength`, in single precision, held to the range of
/// the quantity; the valence's is [-1, 1], that of the others [0, 1].
///
/// Thread safety: that of a plain value.
struct Force {
  /// What is moved.
  Quantity quantity;
  /// Where to, usually within the quantity's range.
  float target;
  /// The fraction, in [0, 1] for readings within their ranges.
  float strength;
  /// What caused it: the name of one of the `force_reasons`. It stays valid until the process ends.
  std::string_view reason;
  /// The smoothed quantity before the force.
  float before;
  /// The smoothed quantity after it.
  float after;
};

/// Why a force moves a state.
///
/// Thread safety: that of a plain value.
struct ForceReason {
  std::string_view name;     ///< what `Force::reason` holds, also in files and JSON
  std::string_view label;    ///< what to call it in a sentence or a legend, singular: "the touch"
  std::string_view meaning;  ///< what it stands for, a sentence or two in UTF-8
};

/// The reasons of all forces.
namespace force_reasons {

/// Moves both confidences.
inline constexpr ForceReason pointsConfidence{
    "Points confidence", "the facial points' confidence",
    "How sure the face analysis is of the facial points of the last 7 s, less as they age."};
/// Moves the valence.
inline constexpr ForceReason faceCharacteristics{
    "Face characteristics", "the face",
    "A new smile or expression: towards 1 when the face looks positive, −1 when negative, 0 when "
    "neutral."};
/// Moves the valence's confidence.
inline constexpr ForceReason winnerUnknown{
    "Winner unknown", "an ambiguous expression",
    "A new smile or expression that fits no mood better than the others: half-way towards 0."};
/// Moves the valence.
inline constexpr ForceReason bodyLanguage{
    "Body Language", "the body language",
    "The mean ease of the head postures of the last 7 s, towards which the valence moves: a "
    "lowered "
    "head or one turned right counts 0.5, a raised one or one turned left -0.5, a straight one 0."};
/// Moves the attention.
inline constexpr ForceReason headAngles{
    "Head Angles", "the head direction",
    "How straight the head faces the robot: towards 1 when straight, 0 when turned away."};
/// Moves the attention.
inline constexpr ForceReason gazeDirection{
    "Gaze Direction", "the gaze direction",
    "How straight the eyes look at the robot: towards 1 when straight, 0 when turned away."};
/// Moves the attention's confidence.
inline constexpr ForceReason observation{
    "Observation", "a visible head or gaze",
    "A head posture or a gaze was seen in the last 7 s: towards 1."};
/// Moves the valence.
inline constexpr ForceReason voiceEmotion{
    "Voice emotion", "the tone of voice",
    "What the voice sounds like: joy pulls towards 1, anger towards -1, sorrow towards -0.5, calm "
    "towards 0."};
/// Moves the valence.
inline constexpr ForceReason asrEmotion{"Asr emotion", "what was said",
                                        "The sentiment of what was said in the last 7 s: towards 1 "
                                        "when it is 0 or above, towards -1 when below."};
/// Moves the valence.
inline constexpr ForceReason touchEmotion{
    "Touch emotion", "the touch",
    "Touches of the last 7 s: pleasant ones pull up, unpleasant ones down."};
/// Moves the valence.
inline constexpr ForceReason contextEmotion{
    "Context emotion", "the situation",
    "The situation of the last 20 s, as the robot's other parts judge it."};
/// Moves both confidences.
inline constexpr ForceReason distanceLimitation{
    "Distance limitation", "the distance",
    "How far away the person is: towards 1 within the reach of the face analysis, 1.4 m, and 0 "
    "beyond it."};
/// Moves both confidences.
inline constexpr ForceReason heightLimitation{"Height limitation", "the head's height",
                                              "How high the head is: towards 1 within the reach of "
                                              "the face analysis, 1.5 m, and 0 above it."};
/// Moves every quantity.
inline constexpr ForceReason noObservation{
    "No observation", "a lack of readings",
    "A cycle without readings for the valence, or for the attention: it drifts towards 0, "
    "the faster the longer that lasts, and its confidence loses 70 %. The attention's confidence "
    "also loses 35 % if head postures are missing, and 35 % if gazes are, even when the other is "
    "there."};
/// Moves every quantity.
inline constexpr ForceReason notVisible{
    "Not visible", "being out of sight",
    "A cycle in which the person was not seen: valence and attention lose 26 %, their "
    "confidences 70 %."};

/// Each reason once, in the order of an update.
inline constexpr std::array all{
    pointsConfidence, faceCharacteristics, winnerUnknown,    bodyLanguage,  headAngles,
    gazeDirection,    observation,         voiceEmotion,     asrEmotion,    touchEmotion,
    contextEmotion,   distanceLimitation,  heightLimitation, noObservation, notVisible};

}  // namespace force_reasons

/// Called with each force that moves a state, as it happens; see PersonState::setForceObserver.
using ForceObserver = boost::function<void(const Force&)>;

}  // namespace ZV

#endif
