#ifndef ZV_MEMORY_PERSON_MEMORY_PRIVATE_HPP
#define ZV_MEMORY_PERSON_MEMORY_PRIVATE_HPP

#include <ku/clock.hpp>

#include "memory/short_term_memory.hpp"
#include "zv/person_memory.hpp"
#include "zv/person_observation.hpp"

namespace ZV {

/// The channels of one person's memory.
struct PersonMemoryPrivate {
  /// As PersonMemory::add says.
  void add(const PersonObservation& observation);

  /// Adds what the other one remembers; of two entries of one time, this memory's stays. When
  /// std::bad_alloc is thrown, nothing has changed.
  void merge(const PersonMemoryPrivate& other);

  /// The time of the newest entry of all channels, which may be too old; the earliest time there is
  /// without any.
  ku::SystemClock::time_point newestReading() const;

  /// Calls `visit(channel, field)` for each channel, in the order of filing, with the field of an
  /// observation that it remembers.
  template <typename Visit>
  void forEachChannel(Visit visit) {
    forEachMember([&](auto member, auto field) { visit(this->*member, field); });
  }

  /// The same with the members of this class.
  template <typename Visit>
  static void forEachMember(Visit visit) {
    visit(&PersonMemoryPrivate::age, &PersonObservation::age);
    visit(&PersonMemoryPrivate::faceDetected, &PersonObservation::faceDetected);
    visit(&PersonMemoryPrivate::distance, &PersonObservation::distance);
    visit(&PersonMemoryPrivate::expressions, &PersonObservation::expressions);
    visit(&PersonMemoryPrivate::gaze, &PersonObservation::gaze);
    visit(&PersonMemoryPrivate::gender, &PersonObservation::gender);
    visit(&PersonMemoryPrivate::headPosture, &PersonObservation::headPosture);
    visit(&PersonMemoryPrivate::smile, &PersonObservation::smile);
    visit(&PersonMemoryPrivate::lookingAtRobot, &PersonObservation::lookingAtRobot);
    visit(&PersonMemoryPrivate::facialPoints, &PersonObservation::facialPoints);
    visit(&PersonMemoryPrivate::touchEmotion, &PersonObservation::touchEmotion);
    visit(&PersonMemoryPrivate::asrEmotion, &PersonObservation::asrEmotion);
    visit(&PersonMemoryPrivate::contextEmotion, &PersonObservation::contextEmotion);
  }

  ShortTermMemory<HeadPosture> headPosture{PersonMemory::maxAge};
  ShortTermMemory<float> distance{PersonMemory::maxAge};
  ShortTermMemory<bool> lookingAtRobot{PersonMemory::maxAge};
  ShortTermMemory<Smile> smile{PersonMemory::maxAge};
  ShortTermMemory<Gaze> gaze{PersonMemory::maxAge};
  ShortTermMemory<Expressions> expressions{PersonMemory::maxAge};
  ShortTermMemory<ValueConfidence<bool>> gender{PersonMemory::maxAge};
  ShortTermMemory<ValueConfidence<unsigned int>> age{PersonMemory::maxAge};
  ShortTermMemory<bool> faceDetected{PersonMemory::maxAge};
  ShortTermMemory<FacialPoints> facialPoints{PersonMemory::maxAge};
  ShortTermMemory<std::int32_t> touchEmotion{PersonMemory::maxAge};
  ShortTermMemory<float> asrEmotion{PersonMemory::maxAge};
  ShortTermMemory<ContextEmotion> contextEmotion{PersonMemory::contextEmotionMaxAge};
};

}  // namespace ZV

#endif
