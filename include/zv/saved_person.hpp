#ifndef ZV_SAVED_PERSON_HPP
#define ZV_SAVED_PERSON_HPP

#include <boost/optional.hpp>
#include <ku/clock.hpp>
#include <vector>

#include "zv/body_language_ease.hpp"
#include "zv/expressions.hpp"
#include "zv/person_observation.hpp"
#include "zv/smile.hpp"
#include "zv/value_confidence.hpp"

namespace ZV {

/// Everything that the library knows of a person, as plain values: what Person::save gives, to be
/// kept over a restart. A person made from it goes on as the saved one would have, to the bit.
/// Valence and confidences stay as they were; only the remembered readings age in between.
///
/// What the host set is not in it: the observer of forces and the two frequencies.
///
/// Thread safety: that of a plain value.
struct SavedPerson {
  /// When a reading was taken; empty when there has been none yet.
  using OptionalTime = boost::optional<ku::SystemClock::time_point>;

  /// For each field, when the reading that an update used last was taken. A smile, expressions or a
  /// voice emotion with another time counts as new; the ages decide how fast values fall back to 0.
  ///
  /// Thread safety: that of a plain value.
  struct LastUsed {
    OptionalTime headPosture;   ///< the youngest of those remembered
    OptionalTime gaze;          ///< the youngest of those remembered
    OptionalTime smile;         ///< the last new one
    OptionalTime expressions;   ///< the last new ones
    OptionalTime voiceEmotion;  ///< the last new one
    OptionalTime asrEmotion;    ///< the youngest of those remembered
    OptionalTime touchEmotion;  ///< the youngest of those remembered
    /// the youngest of those remembered; only SocialGraph::merge reads it
    OptionalTime contextEmotion;
  };

  ValueConfidence<float> valence{0.0f, 0.0f};  ///< the smoothed valence; in [-1, 1] or NaN
  /// What the last cycle alone made of a neutral start; the same range.
  ValueConfidence<float> unsmoothedValence{0.0f, 0.0f};
  ValueConfidence<float> attention{0.0f, 0.0f};  ///< the smoothed attention; in [0, 1] or NaN
  BodyLanguageEase ease;                         ///< the ease; any level
  Smile smile;                                   ///< PersonState::smile
  Expressions expressions;                       ///< PersonState::expressions
  float headHeight = 0.0f;                       ///< PersonState::headHeight, in metres
  LastUsed lastUsed;                             ///< what counts as new, and the last inputs' ages
  /// What is remembered: the first observation has the youngest reading of each field, the second
  /// the next older ones, and so on. Height and voice emotion, which are not remembered, are never
  /// set.
  std::vector<PersonObservation> memory;
};

}  // namespace ZV

#endif
