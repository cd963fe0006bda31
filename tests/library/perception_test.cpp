#include <gtest/gtest.h>

#include "bodylanguage/body_language_state_private.hpp"
#include "simulated_person.hpp"
#include "zv/sentiment_info.hpp"

namespace ZV {
namespace {

TEST(Observation, ComparesByTimeAndIsWrittenByteForByte) {
  EXPECT_TRUE(seen(2, 1) > seen(1, 9));
  EXPECT_FALSE(seen(1, 1) > seen(1, 9) || seen(1, 9) > seen(1, 1) || seen(0, 9) > seen(1, 1));
  EXPECT_EQ(VoiceEmotion({1, 1}, {2, 2}, {3, 3}, {4, 4}, {5, 5}, {6, 6}).excitement().value, 6.0f);
  HeadPosture posture;
  posture.setHeadPosture(3.5f, -0.04f, -123.46f);
  // The last number shows the format that the stream is left with.
  EXPECT_EQ(textOf(posture, VoiceEmotion(), 2.25),
            "θ(  3.5°) φ( -0.0°) ψ(-123.5°) Straight pitch Straight yaw Calm :  2.2");
  EXPECT_EQ(textOf(std::hex, SentimentInfo{"Ann", "joy", -31, "Bob", "chat"}),
            " SentimentInfo:\n\t - author : \tAnn\n\t - sentiment : \tjoy\n"
            "\t - sentimentStrengh : \t-31\n\t - recever : \tBob\n\t - from : \tchat\n");
}

TEST(FacialPoints, AddsConfidencesInTheOrderOfStorage) {
  const std::vector<int> order = {0, 3, 4, 1, 5, 6, 2, 7, 8, 11, 9, 10};
  const auto mean = [](const std::vector<std::pair<int, float>>& confidences) {
    FacialPoints points;
    for (const auto& [n, confidence] : confidences) {
      points.setFacialPoint(PointDescription(n), {{n, -n}, confidence});
      EXPECT_EQ(points.facialPoint(PointDescription(n)).value.second, -n);
    }
    return points.globalConfidence();
  };
  // A small number outlives two large ones that cancel only where it is added after both.
  for (std::size_t i = 2; i < order.size(); ++i) {
    EXPECT_EQ(mean({{order[i - 2], 1e9f}, {order[i - 1], -1e9f}, {order[i], 12}}), 1) << order[i];
  }
  EXPECT_EQ(mean({{5, 0.6f}}), 0.05f);
  FacialPoints points;
  EXPECT_EQ(errorOf<std::invalid_argument>([&] { points.facialPoint(PointDescription(12)); }),
            "Error while getting point 12, wrong argument.\n");
  EXPECT_EQ(
      errorOf<std::invalid_argument>([&] { points.setFacialPoint(PointDescription(-1), {}); }),
      "Error while getting point -1, wrong argument.\n");
}

std::vector<int> valuesIn(const ShortTermMemory<int>& memory) {
  std::vector<int> values;
  for (const auto& entry : memory.entries()) values.push_back(entry.value);
  return values;
}

TEST(ShortTermMemory, KeepsTheFirstArrivalOfEachTimestampYoungestFirst) {
  const SimulatedPerson subject;
  using Arrivals = std::vector<std::pair<int, int>>;  // milliseconds and value
  for (const auto& [arrivals, kept] : std::vector<std::pair<Arrivals, std::vector<int>>>{
           {{{3, 3}, {1, 1}, {2, 2}, {4, 4}}, {4, 3, 2, 1}},
           {{{1, 1}, {2, 2}, {3, 3}, {3, 9}, {1, 8}, {2, 7}}, {3, 2, 1}},
           {{{0, 1}, {900'000, 2}, {-5, 3}}, {2, 1, 3}},  // the future has no limit
           {{{-7000, 1}, {-7001, 2}, {-9000, 3}, {0, 4}}, {4, 1}}}) {
    ShortTermMemory<int> memory(milliseconds(7000));
    for (const auto& [time, value] : arrivals) memory.record(seen(time, value));
    EXPECT_EQ(valuesIn(memory), kept);
    EXPECT_EQ(memory.youngest().value, kept.front());
  }
  ShortTermMemory<int> memory(milliseconds(7000));
  ScriptedClock clock([](int) { return Time::max(); });
  memory.record({Time::min(), 1});  // an age that 64 bits of nanoseconds cannot hold
  EXPECT_EQ(errorOf<std::range_error>([&] { memory.youngest(); }), "The ShortTermMemory is empty.");
  clock.script = [](int) { return at(7000) + boost::chrono::nanoseconds(999'999); };
  memory.record(seen(0, 2));
  EXPECT_EQ(memory.size(), 1u);
}

TEST(ShortTermMemory, ReadsTheClockForEveryEntryAndStopsForgettingWhereThatThrows) {
  // Of four entries, 3 to 0, the first is found too old and the others in time, so each of these
  // moves one place forward until a reading throws.
  using Case = std::pair<int, std::vector<int>>;
  for (const auto& [failing, left] :
       {Case{0, {3, 2, 1, 0}}, Case{1, {3, 2, 1, 0}}, Case{2, {2, 2, 1, 0}}, Case{3, {2, 1, 1, 0}},
        Case{4, {2, 1, 0}}}) {
    ScriptedClock clock([](int) { return at(0); });
    ShortTermMemory<int> memory(milliseconds(7000));
    for (int value = 0; value < 4; ++value) memory.record(seen(value, value));
    memory.record(seen(3, 9));
    memory.record(seen(-8000, 9));
    memory.youngest();
    EXPECT_EQ(std::exchange(clock.readings, 0), 1 + 2 + 3 + 4 + 4 + 5 + 4);
    clock.script = [number = failing](int reading) {
      if (reading == number) throw std::runtime_error("no time");
      return at(reading == 0 ? 20'000 : 0);
    };
    testing::internal::CaptureStdout();
    EXPECT_EQ(memory.size(), left.size());
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              failing == 4 ? "" : "Error while forgeting old memory: no time\n");
    EXPECT_EQ(valuesIn(memory), left);
  }
}

TEST(PersonMemory, FilesEveryFieldAndForgetsByChannel) {
  SimulatedPerson subject;
  PersonMemory& memory = subject.person.personMemory;
  auto& m = memory._record();
  memory.add(allChannelsAt(0));
  const char* const contextAlone = "0 0 0 0 0 0 0 0 0 0 0 0 1";
  for (const auto& [time, sizes] :
       {std::pair(7000, "1 1 1 1 1 1 1 1 1 1 1 1 1"), std::pair(7001, contextAlone),
        std::pair(20'000, contextAlone), std::pair(20'001, "0 0 0 0 0 0 0 0 0 0 0 0 0")}) {
    subject.clock.set(at(time));
    memory.add(PersonObservation());
    EXPECT_EQ(textOf(m.headPosture.size(), m.distance.size(), m.lookingAtRobot.size(),
                     m.smile.size(), m.gaze.size(), m.expressions.size(), m.gender.size(),
                     m.age.size(), m.faceDetected.size(), m.facialPoints.size(),
                     m.touchEmotion.size(), m.asrEmotion.size(), m.contextEmotion.size()),
              sizes);
  }
}

TEST(BodyLanguage, IsReadFromHeadPosturesAndWrittenByteForByte) {
  using Posture = std::tuple<float, float, const char*, float>;  // yaw, pitch, words, ease
  for (const auto& [yaw, pitch, words, ease] :
       {Posture{0, 6, "Up Straight yaw", -0.5f}, Posture{0, -6, "Down Straight yaw", 0.5f},
        Posture{-6, 0, "Straight pitch Left", -0.5f}, Posture{6, 0, "Straight pitch Right", 0.5f},
        Posture{below(6), below(6), "Straight pitch Straight yaw", 0},
        Posture{above(-6), above(-6), "Straight pitch Straight yaw", 0},
        Posture{-90, -90, "Down Left", 0.5f}, Posture{90, 90, "Up Right", -0.5f}}) {
    const HeadPosture posture(yaw, pitch, 45);
    const std::string text = textOf(posture);
    EXPECT_EQ(text.substr(text.rfind("°) ") + 4), words) << text;
    EXPECT_EQ(BodyLanguageStatePrivate::estimateFromHeadPosture(posture), ease) << text;
  }
  SimulatedPerson subject;
  BodyLanguageState state;
  auto& postures = subject.person.personMemory._record().headPosture;
  const auto easeAt = [&, copy = state](int time) {
    subject.clock.set(at(time));
    state.update(subject.person.personMemory);
    const auto ease = copy.bodyLanguageState(BodyLanguageDescription(0));
    return textOf(ease.level, ease.confidence);
  };
  EXPECT_EQ(easeAt(0), "0 0");
  postures.record(seen(0, HeadPosture(0, 10, 0)));
  postures.record(seen(1, HeadPosture(10, 0, 0)));
  EXPECT_EQ(easeAt(2), "0 0.5");
  postures.record(seen(2, HeadPosture(0, -10, 0)));
  EXPECT_EQ(easeAt(7000), "0.166666672 0.5");
  EXPECT_EQ(easeAt(7001), "0.5 0.5");
  EXPECT_EQ(textOf(easeAt(7003), BodyLanguageState()._record().ease.level), "0.5 0.5 0");  // stays
  EXPECT_EQ(
      errorOf<std::invalid_argument>([&] { state.bodyLanguageState(BodyLanguageDescription(1)); }),
      "This descriptor is not valid.");
  using Case = std::pair<float, const char*>;
  for (const auto& [level, feeling] :
       {Case{0.25f, "25.0 comfortable"}, Case{below(0.25f), "25.0 almost comfortable"},
        Case{-0.25f, "-25.0 almost comfortable"}, Case{-0.5f, "-50.0 uncomfortable"},
        Case{below(-0.5f), "-50.0 akwards"}, Case{0, "0.0 almost comfortable"}}) {
    const std::string text(feeling), percent = text.substr(0, text.find(' '));
    state._record().ease = BodyLanguageEase(level, 0.25f);
    EXPECT_EQ(textOf(state, 2.25), "Body language ease " + percent +
                                       "% with confidence of 0.2 (feeling" +
                                       text.substr(percent.size()) + "). 2.2");
  }
}

}  // namespace
}  // namespace ZV
