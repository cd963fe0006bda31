#include "scene.hpp"

namespace zorvel::bench {

Duration period(int rate) { return Duration(1'000'000'000 / rate); }

ZV::PersonObservation observeAll() {
  const Time now = ku::SystemClock::now();
  ZV::Expressions expressions;
  expressions.calm = {0.2f, 0.9f};
  expressions.joy = {0.7f, 0.9f};
  ZV::FacialPoints points;
  for (int point = 0; point < 12; ++point) {
    points.setFacialPoint(static_cast<ZV::PointDescription>(point), {{300.0f, 200.0f}, 0.9f});
  }
  const ZV::ValueConfidence<float> part(0.1f, 0.9f);

  ZV::PersonObservation observation;
  observation.lookingAtRobot.emplace(now, true);
  observation.height.emplace(now, 1.3f);
  observation.distance.emplace(now, 0.9f);
  observation.gaze.emplace(now, ZV::Gaze(2.0f, -1.0f));
  observation.smile.emplace(now, ZV::Smile(0.6f, 0.9f));
  observation.expressions.emplace(now, expressions);
  observation.headPosture.emplace(now, ZV::HeadPosture(7.0f, -2.0f, 1.0f));
  observation.gender.emplace(now, ZV::ValueConfidence<bool>(true, 0.8f));
  observation.age.emplace(now, ZV::ValueConfidence<unsigned int>(41, 0.6f));
  observation.faceDetected.emplace(now, true);
  observation.facialPoints.emplace(now, points);
  observation.voiceEmotion.emplace(now, ZV::VoiceEmotion(part, part, part, part, part, part));
  observation.asrEmotion.emplace(now, 0.4f);
  observation.touchEmotion.emplace(now, 1);
  observation.contextEmotion.emplace(now, ZV::ContextEmotion(1, 10.0f));
  return observation;
}

}  // namespace zorvel::bench
