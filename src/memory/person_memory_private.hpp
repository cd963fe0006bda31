#ifndef ZV_MEMORY_PERSON_MEMORY_PRIVATE_HPP
#define ZV_MEMORY_PERSON_MEMORY_PRIVATE_HPP

#include "memory/short_term_memory.hpp"
#include "zv/person_memory.hpp"

namespace ZV {

/// The channels of one person's memory.
struct PersonMemoryPrivate {
  /// Files every set field into its channel.
  void add(const PersonObservation& observation);

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
