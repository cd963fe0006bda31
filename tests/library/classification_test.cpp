#include <gtest/gtest.h>

#include "simulated_person.hpp"
#include "zv/classification/mood_classifier.hpp"

namespace ZV::classification {
namespace {

using Features = std::vector<float>;

template <typename Score>
std::string scoresOf(const Features& z) {
  std::string scores;
  for (const auto table :
       {Score::COEFFICIENT_POS, Score::COEFFICIENT_NEU, Score::COEFFICIENT_NEG}) {
    const Score score(table());
    scores += textOf(MoodClass("", 0, score).calculateScore(z)) + ' ';
  }
  return scores;
}

TEST(MoodScore, IsExactForEveryTableAndAtTheEdges) {
  // [mood_score([0] * 5, w, i) for _, w, i in MOODS], and so on; the linear ones are a fifth of
  // intercept and weighted features: 0.3516 / 5, (0.3516 + 0.3478 + 0.5303) / 5.
  EXPECT_EQ(scoresOf<LogregMoodScore>({0, 0, 0, 0, 0}) + scoresOf<LinregMoodScore>({0, 0, 0, 0, 0}),
            "0.278672785 0.296966583 0.376097828 0.0703269318 0.0643645599 0.0745449811 ");
  const Features happy = {1, 0, 1, 0, 0}, mixed = {0.3f, 0.1f, 0.2f, 0.7f, 0.6f};
  EXPECT_EQ(scoresOf<LogregMoodScore>(happy) + scoresOf<LinregMoodScore>(happy),
            "0.999748409 0.00891454704 7.26928483e-05 0.245956704 -0.0178611279 -0.0266726967 ");
  EXPECT_EQ(scoresOf<LogregMoodScore>(mixed) + scoresOf<LinregMoodScore>(mixed),
            "0.399304271 0.0792216808 0.37114799 0.0316911042 -0.00563137513 0.179162115 ");
  const LinregMoodScore none(0, 2.0f), five(5, 0.0f);
  LogregMoodScore score(5, 0.0f);
  MoodClass any("any", 0, score);
  EXPECT_EQ(textOf(none.calculateScore(any, {}), any.calculateScore({1e9f, -1e9f, 0, 0, 0}),
                   any.calculateScore({200, 0, 0, 0, 0}), any.calculateScore({-999, 0, 0, 0, 0})),
            "inf 0.5 1 0");
  const std::string refusal = "Z vector size does not match the feature size";
  EXPECT_EQ(errorOf<std::runtime_error>([&] { five.calculateScore(any, Features(4)); }), refusal);
  testing::internal::CaptureStderr();
  EXPECT_EQ(any.calculateScore(Features(6)) + any.score, 0.0f);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), refusal + "\n");
  struct : MoodScore {
    float calculateScore(const MoodClass& /*asking*/, const Features& /*z*/) const override {
      throw std::logic_error("no score");
    }
  } const failing{};
  testing::internal::CaptureStderr();
  EXPECT_EQ(MoodClass("", 0, failing).calculateScore({}), 0.0f);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "no score\n");
  score.setWeights({2, -3}, 1.0f);
  EXPECT_EQ(any.calculateScore({1, 1}), 0.5f);
}

TEST(MoodClassifier, ChoosesALeaderByMoreThanTheMargin) {
  using Case = std::tuple<float, std::vector<float>, int>;  // margin, scores, winner or -1
  for (const auto& [margin, scores, winner] :
       {Case{0, {0.05f, 0.9f, 0.05f}, 1}, Case{0, {0.9f, 0.9f, 0.05f}, -1},
        Case{0, {0.3f, 0.5f, above(0.5f)}, 2}, Case{0.1f, {0.45f, 0.2f, 0.5f}, -1},
        Case{0.1f, {0.39f, 0.2f, 0.5f}, 2}, Case{0.25f, {0.75f, 0.5f}, -1},
        Case{0.25f, {above(0.75f), 0.5f}, 0}, Case{0, {NAN, NAN, NAN}, -1},
        Case{0, {INFINITY, INFINITY, 0}, -1}, Case{0, {0.5f}, -1}}) {
    const LogregMoodScore unused(1, 0.0f);
    std::vector<MoodClass> classes(scores.size(), MoodClass("", 0, unused));
    for (std::size_t i = 0; i < scores.size(); ++i) {
      classes[i].id = static_cast<int>(i);
      classes[i].score = scores[i];
    }
    const ArgmaxClassifierType argMax(margin);
    int chosen = -1;
    const auto classify = [&] { chosen = MoodClassifier(argMax).classify(classes).id; };
    EXPECT_EQ(errorOf<std::runtime_error>(classify),
              winner == -1 ? "unknown state: no clear winner found" : "");
    EXPECT_EQ(chosen, winner) << testing::PrintToString(scores);
  }
}

}  // namespace
}  // namespace ZV::classification
