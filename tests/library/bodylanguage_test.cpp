#include <gtest/gtest.h>

#include "bodylanguage/body_language_state_private.hpp"
#include "simulated_person.hpp"

namespace ZV {
namespace {

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
