// soak SECONDS: a robot in a busy room. 50 people at 30 Hz on the system's clock, who come and go;
// two threads that read states and one that closes scopes meanwhile. Prints what was done. Exit
// status 1 when an update is lost or a value is out of range.

#include <array>
#include <atomic>
#include <boost/thread/lock_types.hpp>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>
#include <zv/emotion_recorder.hpp>
#include <zv/social_graph.hpp>

namespace {

constexpr int people = 50;
constexpr std::chrono::nanoseconds period{33'333'333};

struct Room {
  ZV::SocialGraph graph;
  std::array<ZV::ZVEmotionRecorder, people> recorders;
  std::array<long, people> updates{};  // guarded by the graph's lock
  std::atomic<bool> isOver{false};
  std::atomic<long> reads{0};
  std::atomic<long> closedScopes{0};
  std::atomic<long> outOfRange{0};
  long withoutEffect = 0;
};

ZV::PersonObservation observe(int cycle, int person) {
  const auto now = ku::SystemClock::now();
  const float swing = static_cast<float>((cycle + 7 * person) % 60) - 30.0f;
  ZV::PersonObservation seen;
  seen.facialPoints.emplace(now, ZV::FacialPoints());
  seen.headPosture.emplace(now, ZV::HeadPosture(swing, swing / 3.0f, 0.0f));
  seen.distance.emplace(now, 1.0f);
  seen.height.emplace(now, 1.4f);
  seen.smile.emplace(now, ZV::Smile());
  seen.smile->value.setSmile({swing > 0.0f ? 0.9f : 0.0f, static_cast<float>(cycle % 97) / 100.0f});
  if (cycle % 90 == 0) seen.touchEmotion.emplace(now, person % 2 == 0 ? 1 : -1);
  if (cycle % 150 == 0) seen.contextEmotion.emplace(now, ZV::ContextEmotion(1, 10.0f));
  return seen;
}

/// Each is away for one of seven spans of ten seconds.
bool isThere(int cycle, int person) { return (cycle / 300 + person) % 7 != 0; }

void update(Room& room, int cycle, int person) {
  const ZV::PersonObservation observation = observe(cycle, person);
  room.graph.update(person, [&](ZV::Person& seen) {
    seen.update(observation);
    ++room.updates[static_cast<std::size_t>(person)];
    const auto smile = seen.personState.smile().smile();
    if (smile.confidence != observation.smile->value.smile().confidence) ++room.withoutEffect;
    auto& recorder = room.recorders[static_cast<std::size_t>(person)];
    const boost::unique_lock<boost::mutex> lock(recorder.mutex);
    const auto valence = seen.personState.personValence();
    recorder.update_notMutexed(ZV::PersonState(valence.value, valence.confidence, 0.0f, 0.0f));
  });
}

void look(Room& room, const ZV::Person& person) {
  const auto valence = person.personState.personValence();
  const auto attention = person.personState.personAttention();
  const auto isShare = [](float value) { return value >= 0.0f && value <= 1.0f; };
  const bool isWithin = valence.value >= -1.0f && valence.value <= 1.0f &&
                        isShare(valence.confidence) && isShare(attention.value) &&
                        isShare(attention.confidence);
  room.outOfRange += isWithin ? 0 : 1;
  ++room.reads;
}

void readOneAfterTheOther(Room& room) {
  for (int person = 0; !room.isOver; person = (person + 1) % people) {
    room.graph.read(person, [&room](const ZV::Person& seen) { look(room, seen); });
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

void readAllListed(Room& room) {
  while (!room.isOver) {
    // The copies share their states with the graph, so those are read under its lock.
    for (const ZV::Person& listed : room.graph.persons()) {
      room.graph.read(listed.userSessionID, [&room](const ZV::Person& seen) { look(room, seen); });
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

void openAndCloseScopes(Room& room) {
  for (std::size_t person = 0; !room.isOver; person = (person + 1) % people) {
    const auto result = room.recorders.at(person).stopRecording("visit");
    if (result.first != "error") ++room.closedScopes;
    room.recorders.at(person).startRecording("visit", person % 2 == 0 ? -1 : 60);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
}

}  // namespace

int main(int argumentCount, char** arguments) {  // NOLINT(bugprone-exception-escape)
  const int cycles = 30 * (argumentCount > 1 ? std::atoi(arguments[1]) : 180);
  Room room;
  std::vector<std::thread> threads;
  for (auto* const work : {readOneAfterTheOther, readAllListed, openAndCloseScopes}) {
    threads.emplace_back(work, std::ref(room));
  }

  long asked = 0;
  auto next = std::chrono::steady_clock::now();
  for (int cycle = 0; cycle < cycles; ++cycle) {
    for (int person = 0; person < people; ++person) {
      if (isThere(cycle, person)) {
        update(room, cycle, person);
        ++asked;
      } else {
        room.graph.remove(person);
      }
    }
    next += period;
    std::this_thread::sleep_until(next);
  }
  room.isOver = true;
  for (auto& thread : threads) thread.join();

  long lost = asked + room.withoutEffect;
  for (const long updates : room.updates) lost -= updates;
  std::printf("%d cycles, %ld updates, %ld lost, %ld reads, %ld scopes closed, %ld out of range\n",
              cycles, asked, lost, room.reads.load(), room.closedScopes.load(),
              room.outOfRange.load());
  return lost == 0 && room.outOfRange == 0 ? 0 : 1;
}
