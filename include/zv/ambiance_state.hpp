#ifndef ZV_AMBIANCE_STATE_HPP
#define ZV_AMBIANCE_STATE_HPP

#include <boost/thread/mutex.hpp>
#include <iosfwd>

#include "zv/export.hpp"

namespace ZV {

/// Which level `AmbianceState::ambientActivityLevel` gives.
enum class AmbianceDescription {
  Agitation = 0,
  Calm = 1,
};

/// How agitated, and so how calm, the robot's surroundings are.
///
/// Thread safety: `updateAmbiance`, `incrementMovementDetected`, `save`, `restore` and assignment
/// (of the object assigned to) take the lock, so they may be called from different threads.
/// Everything else reads or writes one number at a time without the lock, so a reader may see the
/// two levels from different updates.
class ZV_API AmbianceState {
 public:
  /// Everything that is known of the room, as plain values, to be kept over a restart.
  ///
  /// Thread safety: that of a plain value.
  struct Saved {
    float agitation = 0.0f;  ///< in [0, 1]
    float calm = 0.0f;       ///< in [0, 1]
    float movements = 0.0f;  ///< counted since the last measurement
  };

  /// Both levels are 0. They become each other's complement with the first update. Like the copy
  /// constructor, it throws boost::thread_resource_error when the system has no lock left.
  AmbianceState() = default;
  /// Copies the numbers, with a lock of its own; locks neither side.
  AmbianceState(const AmbianceState& other);
  /// Copies the numbers under this object's lock alone.
  AmbianceState& operator=(const AmbianceState& other);

  /// Blends a measurement, usually in [0, 0.1], and the movements counted since the last call into
  /// the agitation: the measurement, times ten, pulls it a fifth of the way, and each movement adds
  /// 0.04. The result is held to [0, 1]; NaN gives 0.
  void updateAmbiance(float activity);
  /// Counts one movement in the room.
  void incrementMovementDetected();
  /// Sets the agitation, held to [0, 1] (NaN gives 0), and the calm as its complement. Takes no
  /// lock.
  void _setAmbientActivityLevel(float level);

  /// All numbers as they are now.
  Saved save() const;
  /// Takes saved numbers in place of its own. Throws std::invalid_argument when one of them is
  /// beyond its range or NaN; then nothing has changed.
  void restore(const Saved& saved);

  /// One of the two levels, in [0, 1]. Throws std::invalid_argument for an unknown description.
  float ambientActivityLevel(AmbianceDescription description) const;

 private:
  friend class StateBoard;
  friend class TypeRegistration;

  void copyNumbers(const AmbianceState& other);

  float agitationLevel = 0.0f;
  float calmLevel = 0.0f;
  float movementCount = 0.0f;
  mutable boost::mutex mutex;
};

/// Writes a title line, then the agitation and the calm on a line each; no line end after the last.
ZV_API std::ostream& operator<<(std::ostream& stream, const AmbianceState& state);

}  // namespace ZV

#endif
