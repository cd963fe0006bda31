#ifndef ZV_MEMORY_PERSON_MEMORY_PRIVATE_HPP
#define ZV_MEMORY_PERSON_MEMORY_PRIVATE_HPP

#include "memory/short_term_memory.hpp"
#include "zv/person_memory.hpp"
#include "zv/person_observation.hpp"

namespace ZV {

/// The channels of one person's memory.
struct PersonMemoryPrivate {
  /// As PersonMemory::add says.
  void add(const PersonObservation& observation);

  /// Calls `visit(channel, field)` for each channel, in the order of filing, with the field of an
  /// observation that it remembers.
  template <typename Visit>
  void forEachChannel(Visit visit) {
    visit(age, &PersonObservation::age);
    visit(faceDetected, &PersonObservation::faceDetected);
    visit(distance, &PersonObservation::distance);
    visit(expressions, &PersonObservation::expressions);
    visit(gaze, &PersonObservation::gaze);
    visit(gender, &PersonObservation::gender);
    visit(headPosture, &PersonObservation::headPosture);
    visit(smile, &PersonObservation::smile);
    visit(lookingAtRobot, &PersonObservation::lookingAtRobot);
    visit(facialPoints, &PersonObservation::facialPoints);
    visit(touchEmotion, &PersonObservation::touchEmotion);
    visit(asrEmotion, &PersonObservation::asrEmotion);
    visit(contextEmotion, &PersonObservation::contextEmotion);
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
