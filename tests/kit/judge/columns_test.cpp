#include "kit/judge/columns.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

namespace vorn::kit {
namespace {

SampleSketch Sketch(uint64_t sample, bool isRight, double rmse) {
  return {sample, isRight, isRight ? 0U : 2U, 2 * rmse, rmse, 0.5, sample};
}

std::vector<uint64_t> Samples(const Json& columns) {
  std::vector<uint64_t> samples;
  for (const Json& sample : columns.At("sample").Items()) samples.push_back(sample.AsUnsigned());
  return samples;
}

TEST(ColumnsJson, HasARowForEachSample) {
  const Json columns = ColumnsJson({Sketch(3, true, 0), Sketch(9, false, 0.123456789)}, 2);
  EXPECT_EQ(ToText(columns),
            R"({"samplesPerRow":1,"sample":[3,9],"isRight":[1,0],"outside":[0,2],)"
            R"("maxAbs":[0.0,0.246914],"rmse":[0.0,0.123457],"cosine":[0.5,0.5]})");
}

TEST(ColumnsJson, IsEmptyOfNoSamples) {
  const Json columns = ColumnsJson({}, 10);
  EXPECT_TRUE(Samples(columns).empty());
  EXPECT_EQ(columns.At("samplesPerRow").AsUnsigned(), 1U);
}

TEST(ColumnsJson, DrawsNeighboursTogetherToTheWorst) {
  // Three rows of seven samples: stretches of three, three and one.
  const Json columns =
      ColumnsJson({Sketch(0, true, 5), Sketch(1, false, 1), Sketch(2, false, 2), Sketch(3, true, 1),
                   Sketch(4, true, NAN), Sketch(5, true, 7), Sketch(6, true, 0)},
                  3);
  EXPECT_EQ(columns.At("samplesPerRow").AsUnsigned(), 3U);
  EXPECT_EQ(Samples(columns), (std::vector<uint64_t>{2, 4, 6}));
}

TEST(ColumnsJson, TellsSamplesThatHaveAnotherNumberOnTheExpectedSide) {
  SampleSketch moved = Sketch(4, true, 0);
  EXPECT_EQ(ColumnsJson({moved}, 10).Find("expectedSample"), nullptr);
  moved.expectedSample = 9;
  EXPECT_EQ(ToText(ColumnsJson({moved}, 10).At("expectedSample")), "[9]");
}

// Its finite elements may be right to the bit, so that no measure tells of it.
TEST(ColumnsJson, TakesASampleWithNanForTheWorst) {
  SampleSketch nan = Sketch(1, false, 0);
  EXPECT_EQ(ColumnsJson({nan}, 10).Find("notFinite"), nullptr);
  nan.notFinite = 2;
  const Json columns = ColumnsJson({Sketch(0, false, 9), nan}, 1);
  EXPECT_EQ(Samples(columns), (std::vector<uint64_t>{1}));
  EXPECT_EQ(ToText(columns.At("notFinite")), "[2]");
}

TEST(PairsJson, TellsTheMostFrequentPairs) {
  TopAgreement agreement;
  for (uint64_t i = 0; i < kMostPairsTold + 3; ++i) agreement.TakePair({i, i + 1}, i + 1);
  agreement.pairsLeftOut = 100;
  uint64_t leftOut = 0;
  const Json pairs = PairsJson(agreement, leftOut);
  ASSERT_EQ(pairs.Items().size(), kMostPairsTold);
  const uint64_t last = kMostPairsTold + 2;
  EXPECT_EQ(ToText(pairs.Items()[0]), "[" + std::to_string(last) + "," + std::to_string(last + 1) +
                                          "," + std::to_string(last + 1) + "]");
  EXPECT_EQ(leftOut, 100U + 1 + 2 + 3);
}

TEST(RowsAnOutput, KeepsAVerdictOfManyTensorsSmall) {
  EXPECT_EQ(RowsAnOutput(0), kMostRows);
  EXPECT_EQ(RowsAnOutput(1), kMostRows);
  EXPECT_EQ(RowsAnOutput(100), kMostRowsOfAll / 100);
  EXPECT_EQ(RowsAnOutput(1000000), 100U);
}

}  // namespace
}  // namespace vorn::kit
