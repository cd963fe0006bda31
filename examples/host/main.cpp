// A host of the estimator: it owns a graph of persons, feeds it a few seconds of one person, and
// reads what the library makes of it.

#include <boost/thread/lock_types.hpp>
#include <chrono>
#include <cmath>
#include <iostream>
#include <ku/clock.hpp>
#include <ku/type.hpp>
#include <mutex>
#include <queue>
#include <stdexcept>
#include <zv/emotion_recorder.hpp>
#include <zv/observation_guard.hpp>
#include <zv/social_graph.hpp>

using StandardTime = std::chrono::system_clock::time_point;
using std::chrono::milliseconds;

// The library counts nanoseconds since 1970, as the standard's system clock does.
ku::SystemClock::time_point toLibraryTime(StandardTime time) {
  const std::chrono::nanoseconds sinceEpoch = time.time_since_epoch();
  return ku::SystemClock::time_point(boost::chrono::nanoseconds(sinceEpoch.count()));
}

// Readings that arrive between frames, from any thread. They join the person's next frame, because
// an update of their own would count as one more cycle.
class Mailbox {
 public:
  void putTouch(StandardTime time, std::int32_t touch) {
    const std::lock_guard<std::mutex> lock(_mutex);
    _touches.emplace(toLibraryTime(time), touch);
  }

  void putVoice(StandardTime time, const ZV::VoiceEmotion& voice) {
    const std::lock_guard<std::mutex> lock(_mutex);
    _voices.emplace(toLibraryTime(time), voice);
  }

  // Moves the oldest of each kind into the frame; any others wait for the frames after it.
  void mergeInto(ZV::PersonObservation& frame) {
    const std::lock_guard<std::mutex> lock(_mutex);
    take(_touches, frame.touchEmotion);
    take(_voices, frame.voiceEmotion);
  }

 private:
  template <typename T>
  using Queue = std::queue<ZV::Timestamped<T>>;

  template <typename T>
  static void take(Queue<T>& queue, ZV::PersonObservation::Field<T>& field) {
    if (queue.empty()) return;
    field = queue.front();
    queue.pop();
  }

  std::mutex _mutex;
  Queue<std::int32_t> _touches;
  Queue<ZV::VoiceEmotion> _voices;
};

// What the camera saw: someone who faces the robot and begins to smile. In one frame the depth is
// missing.
ZV::PersonObservation perceive(int cycle, StandardTime time) {
  const auto taken = toLibraryTime(time);
  ZV::Expressions expressions;
  expressions.joy = {cycle < 10 ? 0.1f : 0.9f, 0.8f};
  expressions.calm = {cycle < 10 ? 0.9f : 0.1f, 0.8f};

  ZV::PersonObservation observation;
  observation.smile.emplace(taken, ZV::Smile(cycle < 10 ? 0.0f : 0.8f, 0.9f));
  observation.expressions.emplace(taken, expressions);
  observation.headPosture.emplace(taken, ZV::HeadPosture(2.0f, -3.0f, 0.0f));
  observation.gaze.emplace(taken, ZV::Gaze(1.0f, 0.0f));
  observation.distance.emplace(taken, cycle == 20 ? NAN : 0.9f);
  return observation;
}

void reportTo(std::ostream& log, const ZV::ObservationGuard::Report& report) {
  for (const auto& field : report.removedFields) {
    const bool isAhead = field.reason == ZV::ObservationGuard::Reason::Ahead;
    log << field.name << (isAhead ? " is from the future\n" : " is not a number\n");
  }
  if (report.clockSetBack) log << "the clock was set back\n";
}

int main() {
  // On a robot, leave out the lines with this clock: the wall clock is the default.
  const StandardTime start{std::chrono::seconds(1'700'000'000)};
  ku::SimulatedClock clock;
  const ku::ClockScope clockScope(clock);

  constexpr int person = 1;
  ZV::SocialGraph graph;
  ZV::ObservationGuard guard;
  Mailbox mailbox;
  ZV::ZVEmotionRecorder recorder;
  recorder.startRecording("greeting", -1);
  for (int cycle = 0; cycle < 50; ++cycle) {
    const StandardTime now = start + cycle * milliseconds(100);
    clock.set(toLibraryTime(now));
    if (cycle == 30) mailbox.putTouch(now - milliseconds(40), 1);  // by another thread, usually

    ZV::PersonObservation observation = perceive(cycle, now);
    mailbox.mergeInto(observation);
    const auto report = guard.clean(observation);
    reportTo(std::cout, report);
    if (report.clockSetBack) {  // all that is remembered lies in the future: all begin anew
      for (const ZV::Person& known : graph.persons()) graph.remove(known.userSessionID);
      recorder.startRecording("greeting", -1);
    }
    try {
      graph.update(person, [&](ZV::Person& seen) {
        seen.update(observation);
        const auto valence = seen.personState.personValence();
        const auto attention = seen.personState.personAttention();
        // A new state for each sample; the person's own would show its last numbers in all of them.
        const boost::unique_lock<boost::mutex> lock(recorder.mutex);
        recorder.update_notMutexed(ZV::PersonState(valence.value, valence.confidence,
                                                   attention.value, attention.confidence));
      });
    } catch (const std::runtime_error& error) {  // a reading expired during the update: carry on
      std::cerr << error.what() << '\n';
    }
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
