// A host of the estimator: it owns a graph of persons, feeds it a few seconds of one person, and
// reads what the library makes of it.

#include <boost/thread/lock_types.hpp>
#include <iostream>
#include <ku/clock.hpp>
#include <ku/type.hpp>
#include <zv/emotion_recorder.hpp>
#include <zv/social_graph.hpp>

using Milliseconds = boost::chrono::milliseconds;

// What the perception saw at this moment: someone who faces the robot and begins to smile.
ZV::PersonObservation perceive(int cycle) {
  const auto now = ku::SystemClock::now();
  ZV::Expressions expressions;
  expressions.joy = {cycle < 10 ? 0.1f : 0.9f, 0.8f};
  expressions.calm = {cycle < 10 ? 0.9f : 0.1f, 0.8f};

  ZV::PersonObservation observation;
  observation.smile.emplace(now, ZV::Smile(cycle < 10 ? 0.0f : 0.8f, 0.9f));
  observation.expressions.emplace(now, expressions);
  observation.headPosture.emplace(now, ZV::HeadPosture(2.0f, -3.0f, 0.0f));
  observation.gaze.emplace(now, ZV::Gaze(1.0f, 0.0f));
  observation.distance.emplace(now, 0.9f);
  return observation;
}

int main() {
  // A robot leaves the two clock lines out and lives by the wall clock.
  ku::SimulatedClock clock(ku::SystemClock::time_point(boost::chrono::seconds(1'700'000'000)));
  const ku::ClockScope clockScope(clock);

  constexpr int person = 1;
  ZV::SocialGraph graph;
  ZV::ZVEmotionRecorder recorder;
  recorder.startRecording("greeting", -1);
  for (int cycle = 0; cycle < 50; ++cycle) {
    graph.update(person, [&](ZV::Person& seen) {
      seen.update(perceive(cycle));
      const auto valence = seen.personState.personValence();
      const auto attention = seen.personState.personAttention();
      // A state of its own for each sample; passing the person's would record one live state.
      const boost::unique_lock<boost::mutex> lock(recorder.mutex);
      recorder.update_notMutexed(ZV::PersonState(valence.value, valence.confidence, attention.value,
                                                 attention.confidence));
    });
    clock.advance(Milliseconds(100));
  }

  graph.read(person, [](const ZV::Person& seen) { std::cout << seen << '\n' << seen.personState; });
  const auto greeting = recorder.stopRecording("greeting");
  std::cout << "greeting: " << greeting.first << ", " << greeting.second.size() << " samples\n";

  // Other modules know the records by name only.
  ZV::PersonState state = graph.find(person)->personState;
  const auto* type = dynamic_cast<const ku::StructTypeInterface*>(ku::getType(typeid(state)));
  const ku::Reference valence = type->get(&state, 0);
  const auto* pair = dynamic_cast<const ku::StructTypeInterface*>(valence.type);
  std::cout << type->className() << '.' << type->memberNames().front() << '.'
            << pair->memberNames().front() << " = " << pair->get(valence.object, 0).as<float>()
            << '\n';
}
