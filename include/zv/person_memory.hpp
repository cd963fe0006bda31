#ifndef ZV_PERSON_MEMORY_HPP
#define ZV_PERSON_MEMORY_HPP

#include <boost/chrono/duration.hpp>
#include <boost/shared_ptr.hpp>

#include "zv/export.hpp"
#include "zv/person_observation.hpp"

namespace ZV {

struct PersonMemoryPrivate;

/// The recent observations of one person, by channel. Copies share one record, which lives as long
/// as the last of them.
///
/// Thread safety: every channel locks itself, but an observation is filed channel by channel, so
/// another thread may see it half filed. The owner serialises all work on one person, as
/// SocialGraph does.
class ZV_API PersonMemory {
 public:
  /// How long a reading is remembered; one of exactly this age still is.
  static constexpr boost::chrono::milliseconds maxAge{7000};
  /// The same for context emotions.
  static constexpr boost::chrono::milliseconds contextEmotionMaxAge{20'000};

  /// A new, empty memory. Throws std::bad_alloc, and boost::thread_resource_error when the system
  /// has no lock left.
  PersonMemory();

  /// Shares the record of the other one, as a move does: no handle is ever empty.
  PersonMemory(const PersonMemory&) = default;
  /// The same for assignment.
  PersonMemory& operator=(const PersonMemory&) = default;
  /// Exchanges the records, so moving persons within a list changes no reference count.
  PersonMemory& operator=(PersonMemory&& other) noexcept {
    _memory.swap(other._memory);
    return *this;
  }

  /// Files every set field of the observation with the field's own timestamp, and forgets what has
  /// grown too old. A field whose timestamp is already there is dropped: the first arrival wins.
  ///
  /// Throws std::bad_alloc; the channels filed before stay filed. When reading the clock throws a
  /// std::exception, forgetting stops this once, with a message on standard output; anything else
  /// that it throws is passed on.
  void add(const PersonObservation& observation);

  /// The shared record, for the library's own modules.
  PersonMemoryPrivate& _record() const { return *_memory; }

 private:
  boost::shared_ptr<PersonMemoryPrivate> _memory;
};

}  // namespace ZV

#endif
