#include <gtest/gtest.h>

#include "simulated_person.hpp"

namespace ZV {
namespace {

TEST(Observation, ComparesByTimeAndIsWrittenByteForByte) {
  const auto comparisons = [](int left, int right) {
    const auto a = seen(left, 9 - left), b = seen(right, 9);
    return textOf(a<b, a> b, a == b, a != b);
  };
  EXPECT_EQ(comparisons(1, 2), "1 0 0 1");
  EXPECT_EQ(comparisons(2, 1), "0 1 0 1");
  EXPECT_EQ(comparisons(1, 1), "0 0 1 0");
  const VoiceEmotion voice({1, 9}, {2, 8}, {3, 7}, {4, 6}, {5, 5}, {6, 4});
  EXPECT_EQ(textOf(voice.excitement().value, voice.excitement().confidence, voice.surprise.value,
                   voice.surprise.confidence),
            "6 4 0 0");
  HeadPosture posture;
  posture.setHeadPosture(3.5f, -0.04f, -123.46f);
  // The last number shows the format that the stream is left with.
  EXPECT_EQ(textOf(posture, VoiceEmotion(), 2.25),
            "θ(  3.5°) φ( -0.0°) ψ(-123.5°) Straight pitch Straight yaw Calm :  2.2");
  EXPECT_EQ(textOf(std::hex, SentimentInfo{"Ann", "joy", -31, "Bob", "chat"}),
            " SentimentInfo:\n\t - author : \tAnn\n\t - sentiment : \tjoy\n"
            "\t - sentimentStrengh : \t-31\n\t - recever : \tBob\n\t - from : \tchat\n");
  EXPECT_EQ(flushesOf(SentimentInfo()), 6);  // one per line
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
  // Of two large numbers that cancel and a small one, the small one survives only if it is added
  // last.
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

}  // namespace
}  // namespace ZV
