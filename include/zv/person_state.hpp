#ifndef ZV_PERSON_STATE_HPP
#define ZV_PERSON_STATE_HPP

#include <boost/shared_ptr.hpp>
#include <iosfwd>
#include <string>

#include "zv/body_language_state.hpp"
#include "zv/export.hpp"
#include "zv/expressions.hpp"
#include "zv/force.hpp"
#include "zv/gaze.hpp"
#include "zv/head_posture.hpp"
#include "zv/smile.hpp"
#include "zv/value_confidence.hpp"

namespace ZV {

class PersonMemory;
struct PersonObservation;
struct PersonStatePrivate;

/// What `PersonState::personEmotion` can give.
enum class PersonDescription {
  Positivity = 0,  ///< the positive part of the valence, in [0, 1]
  Negativity = 1,  ///< the size of the negative part of the valence, in [0, 1]
  Attention = 2,   ///< the attention, in [0, 1]
};

/// The emotional state of one person, which changes smoothly from one perception cycle to the next:
/// a valence in [-1, 1] (how negative or positive the person seems) and an attention in [0, 1] (how
/// engaged with the robot), each with a confidence in [0, 1].
///
/// Copies share one record: an update through one is seen through all. The record lives as long as
/// the last copy.
///
/// Thread safety: the readers take no lock, so the owner sees to it that nobody reads or updates a
/// state while it is being updated. Callbacks of one SocialGraph are serialised that way.
///
/// A NaN in an observation can make a value NaN, which then stays NaN. A head or a gaze at an angle
/// of NaN weighs 0.01.
class ZV_API PersonState {
 public:
  /// A new record: everything 0. Like the other constructor, it throws std::bad_alloc, and
  /// boost::thread_resource_error when the system has no lock left.
  PersonState();
  /// A new record with these values, clamped to their ranges. The unsmoothed valence is (0, 0).
  PersonState(float valence, float valenceConfidence, float attention, float attentionConfidence);

  /// Shares the record of the other one, as a move does: no handle is ever empty.
  PersonState(const PersonState&) = default;
  /// The same for assignment.
  PersonState& operator=(const PersonState&) = default;
  /// Exchanges the records, so moving persons within a list changes no reference count.
  PersonState& operator=(PersonState&& other) noexcept {
    _state.swap(other._state);
    return *this;
  }

  /// The smoothed valence.
  ValueConfidence<float> personValence() const;
  /// The smoothed attention.
  ValueConfidence<float> personAttention() const;
  /// The label of the smoothed valence: 1 positive, 0 neutral, -1 negative. The boundaries are 0.2
  /// and -0.2 in double precision, from which 0.2f and -0.2f differ a little: 0.2f is positive,
  /// -0.2f negative. NaN is negative.
  ValueConfidence<int> personValenceBinary() const;
  /// The same label for what the last cycle alone made of a neutral start.
  ValueConfidence<int> personUnsmoothedValenceBinary() const;
  /// One aspect of the state, with the confidence of the valence or of the attention. Throws
  /// std::invalid_argument for an unknown description.
  ValueConfidence<float> personEmotion(PersonDescription description) const;

  /// The smile of the last cycle, if it brought a new one; else (0, 0).
  Smile smile() const;
  /// The expressions of the last cycle, if it brought new ones; else all (0, 0).
  Expressions expressions() const;
  /// (0, 0) after every update.
  Gaze gaze() const;
  /// (0, 0, 0) after every update.
  HeadPosture headAngles() const;
  /// Height of the head in the last cycle, in metres: 0 when the cycle brought none, or no input
  /// for valence or attention.
  float headHeight() const;

  /// Keeps how often faces are analysed, in hertz by convention, unchecked. Nothing depends on it:
  /// the estimator does not read it.
  void setFrequencyFace(float frequency);
  /// The same for gazes.
  void setFrequencyGaze(float frequency);

  /// The body-language state that the next update reads.
  BodyLanguageState& bodyLanguageState();
  /// The same, to read.
  const BodyLanguageState& bodyLanguageState() const;

  /// From now on `observer` is called with each force that moves this state: everything that
  /// `_update` and `decreaseSinceNotSeen` do to the smoothed valence, attention and their
  /// confidences, in order. Setters are not forces. The previous observer is replaced; an empty one
  /// removes it. Copies of this handle share the observer. Throws what copying `observer` throws.
  ///
  /// The observer is called in the middle of an update, which waits for it. It may read this state.
  /// It must not update the state, replace its observer or drop its last handle. Nor may it use the
  /// memory that the update reads, or the SocialGraph in whose callback the update runs. An
  /// observer that holds a handle on this state keeps it alive for ever. What it throws ends the
  /// update and is passed on as it is; the forces stay done, including the one just reported.
  void setForceObserver(const ForceObserver& observer);

  /// For Person::update: moves the state one cycle on, after the observation was filed into the
  /// memory and the body-language state was updated.
  ///
  /// Throws what reading the clock throws, and std::range_error "The ShortTermMemory is empty."
  /// when the last sample of a channel grows too old in the middle of its step. In the steps on
  /// head postures and gazes, both come as std::runtime_error with the same text. What the observer
  /// of forces throws comes as it is. The changes made before an exception stay.
  void _update(const PersonObservation& observation, const PersonMemory& memory);

  /// Lets valence and attention decay, once for each cycle in which the person was not perceived.
  void decreaseSinceNotSeen();

  /// A playful paragraph on the state, for people to read; UTF-8, several lines.
  std::string emotionLogMessage() const;

  /// Sets the smoothed valence, clamped to [-1, 1]; hosts leave that to updates.
  void _setValence(float valence);

  /// The shared record, for the library's own modules.
  PersonStatePrivate& _record() const { return *_state; }

 private:
  boost::shared_ptr<PersonStatePrivate> _state;
};

/// Writes positivity, negativity and attention with their confidences, in percent, a line each, in
/// the number format of the stream; every line ends with a newline and a flush.
ZV_API std::ostream& operator<<(std::ostream& stream, const PersonState& state);

}  // namespace ZV

#endif
