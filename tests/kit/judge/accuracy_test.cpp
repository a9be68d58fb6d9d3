#include "kit/judge/accuracy.h"

#include <gtest/gtest.h>

#include <cmath>

namespace vorn::kit {
namespace {

using Values = std::vector<float>;

TEST(ClassAccuracy, CountsTheFirstAndTheFirstFive) {
  ClassAccuracy accuracy;
  const Values scores{0.1F, 0.9F, 0.8F, 0.7F, 0.6F, 0.5F};
  accuracy.Take(scores, 1);
  accuracy.Take(scores, 5);
  accuracy.Take(scores, 0);
  accuracy.Take(scores, 99);
  EXPECT_EQ(accuracy.Scores()[0].value, 0.25);
  EXPECT_EQ(accuracy.Scores()[1].value, 0.5);
}

TEST(ClassAccuracy, IsNothingForNan) {
  ClassAccuracy accuracy;
  accuracy.Take(Values{NAN, NAN}, 0);
  EXPECT_EQ(accuracy.Scores()[0].value, 0);
}

TEST(MaskAccuracy, CountsPixelsAndUnions) {
  MaskAccuracy accuracy{{}};
  accuracy.Take(Values{0, 0, 1, 1}, Values{0, 1, 1, 1});
  EXPECT_EQ(accuracy.Scores()[0].value, 0.75);
  EXPECT_DOUBLE_EQ(accuracy.Scores()[1].value, (1.0 / 2 + 2.0 / 3) / 2);
}

TEST(MaskAccuracy, TakesTheGreatestOfThePlanes) {
  MaskAccuracy accuracy{{}};
  // Three classes, two pixels: the second plane is greatest at the first pixel.
  accuracy.Take(Values{0, 1, 5, 0, 0, 9}, Values{1, 2});
  EXPECT_EQ(accuracy.Scores()[0].value, 1);
  EXPECT_EQ(accuracy.Scores()[1].value, 1);
}

TEST(MaskAccuracy, LeavesIgnoredPixelsOut) {
  MaskAccuracy accuracy{255};
  accuracy.Take(Values{0, 7, NAN}, Values{0, 255, 0});
  EXPECT_EQ(accuracy.Scores()[0].value, 0.5);
  EXPECT_EQ(accuracy.Scores()[1].value, 0.5);
}

Box At(double left, double score = 0, int64_t label = 0) {
  return {left, 0, left + 10, 10, label, score};
}

double MeanPrecision(const std::vector<Box>& found, const std::vector<Box>& labelled,
                     size_t metric = 0) {
  BoxAccuracy accuracy;
  accuracy.Take(found, labelled);
  return accuracy.Scores()[metric].value;
}

TEST(BoxAccuracy, IsOneForThatWhatIsLabelled) {
  EXPECT_NEAR(MeanPrecision({At(0, 0.9), At(50, 0.8, 1)}, {At(0), At(50, 0, 1)}), 1, 1e-12);
  EXPECT_EQ(MeanPrecision({}, {At(0)}), 0);
  EXPECT_EQ(MeanPrecision({At(0, 0.9)}, {}), 0);
}

TEST(BoxAccuracy, CountsHowWellBoxesFit) {
  // Moved by 1 of 10: 9 of 11 in common, which passes 0.50 to 0.80, seven of ten.
  EXPECT_NEAR(MeanPrecision({At(1, 0.9)}, {At(0)}), 0.7, 1e-12);
  EXPECT_NEAR(MeanPrecision({At(1, 0.9)}, {At(0)}, 1), 1, 1e-12);
  // Exactly half in common passes: moved by a third of the width.
  EXPECT_NEAR(MeanPrecision({{0, 0, 2, 1, 0, 1}}, {{0, 0, 1, 1, 0, 0}}, 1), 1, 1e-12);
}

TEST(BoxAccuracy, CountsByScoresAndEachLabelOnce) {
  // A wrong box before the right one: precision 1/2 at every recall.
  EXPECT_NEAR(MeanPrecision({At(100, 0.9), At(0, 0.8)}, {At(0)}), 0.5, 1e-12);
  // The same box twice: the second is wrong, behind full recall, and costs nothing.
  EXPECT_NEAR(MeanPrecision({At(0, 0.9), At(0, 0.8)}, {At(0)}), 1, 1e-12);
  // One of two labels: 51 of 101 points of recall.
  EXPECT_NEAR(MeanPrecision({At(0, 0.9)}, {At(0), At(50)}), 51.0 / 101, 1e-12);
}

TEST(BoxAccuracy, SortsOverAllSamplesAndAveragesClasses) {
  BoxAccuracy accuracy;
  accuracy.Take({At(0, 0.5)}, {At(0)});
  accuracy.Take({At(90, 0.9)}, {});
  accuracy.Take({}, {At(0, 0, 1)});
  // Class 0: the wrong box of the second sample comes first. Class 1: nothing found.
  EXPECT_NEAR(accuracy.Scores()[0].value, 0.25, 1e-12);
}

TEST(BoxesOf, ReadsRowsAndLeavesUnusedOnesOut) {
  const auto boxes = BoxesOf(Values{1, 2, 3, 4, 0.5F, 7, 0, 0, 0, 0, 0, 0, 1, 2, 3, 4, NAN, 1});
  ASSERT_TRUE(boxes);
  ASSERT_EQ(boxes->size(), 1U);
  EXPECT_EQ((*boxes)[0].label, 7);
  EXPECT_EQ((*boxes)[0].bottom, 4);
  EXPECT_FALSE(BoxesOf(Values{1, 2, 3, 4}));
}

}  // namespace
}  // namespace vorn::kit
