#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <zorvel/session.hpp>
#include <zv/social_graph.hpp>

#include "playback/playback.hpp"

namespace zorvel {
namespace {

std::string contentOf(const std::string& file) {
  return (std::ostringstream() << std::ifstream(file).rdbuf()).str();
}

/// What a host does that keeps its session and records it, with one person and the room.
struct Host {
  ZV::SocialGraph graph;
  ZV::ZVEmotionRecorder recorder;
  ZV::AmbianceState room;

  void cycle(Time now, SessionRecording& recording, int count) {
    ZV::PersonObservation seen;
    seen.smile.emplace(now, ZV::Smile(static_cast<float>(count % 7) / 6, 1));
    seen.headPosture.emplace(now, ZV::HeadPosture(static_cast<float>(count % 11), 0, 0));
    graph.update(3, [&](ZV::Person& person) {
      person.update(seen);
      recorder.update_notMutexed(ZV::PersonState(person.personState.personValence().value,
                                                 person.personState.personValence().confidence,
                                                 person.personState.personAttention().value,
                                                 person.personState.personAttention().confidence));
    });
    recording.observation(now, 3, seen);
    room.updateAmbiance(0.02f);
    recording.activity(now, 0.02f);
  }
  SessionState save() { return {{{3, {graph.find(3)->save(), recorder.save()}}}, room.save()}; }
};

struct Session : testing::Test {
  std::string folder = testing::TempDir() + "session" + std::to_string(getpid());
  std::string stateFile = folder + ".state", recordFile = folder + ".jsonl";
  void TearDown() override {
    for (const auto& file : {stateFile, recordFile}) std::remove(file.c_str());
  }
};

TEST_F(Session, IsTheSameForTheHostAfterARestartAndInItsRecording) {
  ku::SimulatedClock clock(Time(boost::chrono::seconds(1'700'000'000)));
  const ku::ClockScope scope(clock);
  EXPECT_FALSE(loadSession(stateFile));
  std::string states;
  {
    Host host;
    SessionRecording before(recordFile, "before");
    host.recorder.startRecording("talk", -1);
    for (int count = 0; count < 40; ++count) {
      clock.advance(boost::chrono::milliseconds(33));
      host.cycle(clock.now(), before, count);
    }
    saveSession(stateFile, clock.now(), host.save());
    std::remove(recordFile.c_str());
  }
  Host host;
  SessionRecording recording(recordFile, "a robot");
  const auto saved = loadSession(stateFile);
  ASSERT_TRUE(saved);
  host.graph.restore(3, saved->persons.at(3).known);
  host.recorder.restore(saved->persons.at(3).scopes);
  host.room.restore(saved->room);
  recording.restore(clock.now(), *saved);
  for (int count = 40; count < 80; ++count) {
    clock.advance(boost::chrono::milliseconds(33));
    host.cycle(clock.now(), recording, count);
  }
  recording.stopRecording(clock.now(), 3, "talk");
  const auto samples = host.recorder.stopRecording("talk").second;
  const auto valence = host.graph.find(3)->personState.personValence();

  RecordingReader reader(recordFile);
  StateRow last{};
  ScopeRow talk{};
  const auto failure = playAll(reader, Forces::Unwatched, [&](Time, const Event&, const Row& row) {
    if (const auto* state = std::get_if<StateRow>(&row)) last = *state;
    if (const auto* of = std::get_if<ScopeRow>(&row)) talk = *of;
  });
  EXPECT_FALSE(failure);
  EXPECT_EQ(last.valence.value, valence.value);
  EXPECT_EQ(last.valence.confidence, valence.confidence);
  EXPECT_EQ(talk.samples, 80);
  EXPECT_EQ(talk.samples, samples.size());
  EXPECT_EQ(talk.meanValence, ZV::ZVEmotionRecorder::meanValence(samples).value);
}

TEST_F(Session, RefusesWhatCannotBeReadBack) {
  SessionRecording recording(recordFile, "a robot");
  const Time now(boost::chrono::seconds(1));
  recording.rename(now, 2, 1);
  const std::string before = contentOf(recordFile);
  ZV::PersonObservation seen;
  seen.distance.emplace(now, NAN);
  EXPECT_THROW(recording.observation(now, 1, seen), std::invalid_argument);
  EXPECT_THROW(recording.startRecording(now, 1, "\xff"), std::invalid_argument);
  EXPECT_THROW(recording.notSeen(Time::max(), 1), std::invalid_argument);
  EXPECT_EQ(contentOf(recordFile), before);
  SessionState tooLong;
  tooLong.persons[1].scopes[std::string(std::size_t{16} << 20, 'x')] = {};
  EXPECT_THROW(recording.restore(now, tooLong), std::runtime_error);
  recording.remove(now, 1);
  EXPECT_EQ(contentOf(recordFile).find("restore"), std::string::npos);
  EXPECT_THROW(SessionRecording(recordFile, ""), std::runtime_error);
  EXPECT_THROW(saveSession(folder + "/nowhere", now, {}), std::runtime_error);
  std::ofstream(stateFile) << before;
  EXPECT_THROW(loadSession(stateFile), std::runtime_error);
}

}  // namespace
}  // namespace zorvel
