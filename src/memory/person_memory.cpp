#include "zv/person_memory.hpp"

#include <boost/make_shared.hpp>

#include "memory/person_memory_private.hpp"

namespace ZV {

void PersonMemoryPrivate::add(const PersonObservation& observation) {
  const auto file = [](auto& channel, const auto& field) {
    if (field) channel.record(*field);
  };
  file(age, observation.age);
  file(faceDetected, observation.faceDetected);
  file(distance, observation.distance);
  file(expressions, observation.expressions);
  file(gaze, observation.gaze);
  file(gender, observation.gender);
  file(headPosture, observation.headPosture);
  file(smile, observation.smile);
  file(lookingAtRobot, observation.lookingAtRobot);
  file(facialPoints, observation.facialPoints);
  file(touchEmotion, observation.touchEmotion);
  file(asrEmotion, observation.asrEmotion);
  file(contextEmotion, observation.contextEmotion);
}

PersonMemory::PersonMemory() : _memory(boost::make_shared<PersonMemoryPrivate>()) {}

void PersonMemory::add(const PersonObservation& observation) { _memory->add(observation); }

}  // namespace ZV
