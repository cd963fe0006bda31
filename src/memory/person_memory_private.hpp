#ifndef ZV_MEMORY_PERSON_MEMORY_PRIVATE_HPP
#define ZV_MEMORY_PERSON_MEMORY_PRIVATE_HPP

#include "memory/short_term_memory.hpp"
#include "zv/person_observation.hpp"

namespace ZV {

/// The channels of one person's memory.
struct PersonMemoryPrivate {
  static constexpr boost::chrono::milliseconds defaultMaxAge{7000};
  static constexpr boost::chrono::milliseconds contextEmotionMaxAge{20000};

  /// Files every set field into its channel.
  void add(const PersonObservation& observation);

  ShortTermMemory<HeadPosture> headPosture{defaultMaxAge};
  ShortTermMemory<float> distance{defaultMaxAge};
  ShortTermMemory<bool> lookingAtRobot{defaultMaxAge};
  ShortTermMemory<Smile> smile{defaultMaxAge};
  ShortTermMemory<Gaze> gaze{defaultMaxAge};
  ShortTermMemory<Expressions> expressions{defaultMaxAge};
  ShortTermMemory<ValueConfidence<bool>> gender{defaultMaxAge};
  ShortTermMemory<ValueConfidence<unsigned int>> age{defaultMaxAge};
  ShortTermMemory<bool> faceDetected{defaultMaxAge};
  ShortTermMemory<FacialPoints> facialPoints{defaultMaxAge};
  ShortTermMemory<std::int32_t> touchEmotion{defaultMaxAge};
  ShortTermMemory<float> asrEmotion{defaultMaxAge};
  ShortTermMemory<ContextEmotion> contextEmotion{contextEmotionMaxAge};
};

}  // namespace ZV

#endif
