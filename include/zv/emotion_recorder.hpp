#ifndef ZV_EMOTION_RECORDER_HPP
#define ZV_EMOTION_RECORDER_HPP

#include <boost/thread/mutex.hpp>
#include <cstdint>
#include <ku/clock.hpp>
#include <list>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "zv/export.hpp"
#include "zv/person_state.hpp"

namespace ZV {

/// Records the states of a person over named scopes and sums up each scope in one label.
///
/// Several scopes may be open at once; every update adds a sample to all of them. A sample is a
/// handle on the state that was passed, not a copy of its numbers. If every update passes the same
/// live state, all samples show that state as it is when the scope is stopped. For a history, pass
/// a new state each time.
///
/// Thread safety: the two functions whose names end in `_notMutexed` require the caller to hold
/// `mutex`, which is not recursive; the others may be called from any thread:
///
///     boost::unique_lock<boost::mutex> lock(recorder.mutex);
///     if (recorder.hasAnOpenScope_notMutexed()) recorder.update_notMutexed(state);
class ZV_API ZVEmotionRecorder {
 public:
  /// The time of the update, in nanoseconds, and the state it was given.
  using Sample = std::pair<ku::SystemClock::time_point, PersonState>;
  /// The samples of one scope, oldest first.
  using Samples = std::list<Sample>;

  /// One open scope.
  ///
  /// Thread safety: that of a plain value.
  struct EmoRecordInfo {
    /// How many more samples the scope takes; negative means no limit. Each sample lowers it by
    /// one, and at 0 the next update drops the scope.
    std::int32_t remainingSamples = 0;
    /// What has been recorded so far, oldest first.
    Samples samples;
  };

  /// The numbers of one sample.
  ///
  /// Thread safety: that of a plain value.
  struct SavedSample {
    ku::SystemClock::time_point time;              ///< the time of the update
    ValueConfidence<float> valence{0.0f, 0.0f};    ///< in [-1, 1] or NaN
    ValueConfidence<float> attention{0.0f, 0.0f};  ///< in [0, 1] or NaN
  };
  /// An open scope as plain values.
  ///
  /// Thread safety: that of a plain value.
  struct SavedScope {
    std::int32_t remainingSamples = -1;  ///< as in EmoRecordInfo
    std::vector<SavedSample> samples;    ///< oldest first
  };
  /// The open scopes by name: what is kept of a recorder over a restart.
  using SavedScopes = std::map<std::string, SavedScope>;

  /// No scopes. Like the copy constructor, it throws boost::thread_resource_error when the system
  /// has no lock left.
  ZVEmotionRecorder() = default;
  /// Copies all scopes, with a lock of its own; does not lock `other`.
  ZVEmotionRecorder(const ZVEmotionRecorder& other);
  ZVEmotionRecorder& operator=(const ZVEmotionRecorder&) = delete;

  /// Opens a scope for this many updates; a negative number means no limit. A scope that is already
  /// open starts afresh. Throws std::bad_alloc.
  void startRecording(const std::string& name, std::int32_t remainingSamples);

  /// Closes a scope and gives its label and samples. The label is that of their meanValence():
  /// "unknown" below a confidence of 0.4, "positive" above 0.2, "negative" below -0.2, else
  /// "neutral". Without a scope of that name: "error" and no samples. A scope without
  /// samples is "neutral".
  ///
  /// A scope that has used up its updates can still be stopped until the next update, which drops
  /// it for good, samples included.
  std::pair<std::string, Samples> stopRecording(const std::string& name);

  /// All open scopes, each sample with the numbers that its state has now. Throws std::bad_alloc.
  SavedScopes save() const;
  /// Takes saved scopes in place of its own. Each sample gets a new state with the saved numbers.
  /// Throws std::invalid_argument when one of the numbers is beyond its range, and what making a
  /// state throws; then nothing has changed.
  void restore(const SavedScopes& scopes);
  /// Takes over the scopes of another recorder, whose person turned out to be this one's. Two
  /// scopes of the same name become one: it has the samples of both in the order of time, at equal
  /// times this recorder's first, and takes as many more as this recorder's scope did. Throws
  /// nothing. Locks the other recorder, then this one, never both at once.
  void merge(ZVEmotionRecorder& other);

  /// The mean valence of samples, weighted by their confidences, and their mean confidence. Both
  /// are NaN without samples; the mean valence also when all confidences are 0. A valence that is
  /// NaN counts as 0. Adds up in single precision, in the order of the samples, and reads each
  /// state as it is now. Uses no recorder, so it may be called from any thread.
  static ValueConfidence<float> meanValence(const Samples& samples);

  /// Adds one sample, with one clock reading, to every open scope, and drops the scopes that are
  /// used up. The caller holds `mutex`. Throws what reading the clock throws, and std::bad_alloc.
  void update_notMutexed(const PersonState& state);
  /// Whether any scope is open, including one that the next update will drop. The caller holds
  /// `mutex`.
  bool hasAnOpenScope_notMutexed() const;

  /// Guards the scopes; see above.
  mutable boost::mutex
      mutex;  // NOLINT(misc-non-private-member-variables-in-classes): callers hold it

 private:
  std::map<std::string, EmoRecordInfo> _scopes;
};

}  // namespace ZV

#endif
