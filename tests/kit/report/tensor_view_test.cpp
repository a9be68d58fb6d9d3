#include "kit/report/tensor_view.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

namespace vorn::kit {
namespace {

using testing::ElementsAre;
using testing::SizeIs;

std::vector<float> Random(size_t count, unsigned seed) {
  std::mt19937 random(seed);
  std::vector<float> values(count);
  for (float& value : values) value = static_cast<float>(random() % 2001) / 1000 - 1;
  return values;
}

TEST(MeasurePair, CountsWhatIsOutsideAndOdd) {
  const std::vector<float> actual{1, 2, 3, NAN, INFINITY, NAN};
  const std::vector<float> expected{1, 2.5, 3.01F, 4, INFINITY, NAN};
  const PairMeasures measures = MeasurePair({actual, expected}, 0.02, 0);
  EXPECT_EQ(measures.outside, 2U);  // 2 and the NaN on one side alone
  EXPECT_DOUBLE_EQ(measures.maxAbs, 0.5);
  const double third = 3.0 - static_cast<double>(3.01F);
  EXPECT_DOUBLE_EQ(measures.rmse, std::sqrt((0.25 + third * third) / 3));
}

TEST(MeasurePair, MeasuresNothingWhereNothingIsFinite) {
  const std::vector<float> actual{NAN};
  const PairMeasures measures = MeasurePair({actual, actual}, 0, 0);
  EXPECT_EQ(measures.outside, 0U);
  EXPECT_TRUE(std::isnan(measures.rmse));
  EXPECT_TRUE(std::isnan(measures.cosine));
}

TEST(HistogramOf, SharesItsBinsBetweenTheSides) {
  const std::vector<float> actual{0, 1, 2, NAN};
  const std::vector<float> expected{4, 4, 3, 0};
  const ReportHistogram histogram = HistogramOf({actual, expected}, 4);
  EXPECT_EQ(histogram.low, 0);
  EXPECT_EQ(histogram.high, 4);
  EXPECT_THAT(histogram.actual, ElementsAre(1, 1, 1, 0));
  EXPECT_THAT(histogram.expected, ElementsAre(1, 0, 0, 3));
  EXPECT_EQ(histogram.actualNotFinite, 1U);
  EXPECT_EQ(histogram.expectedNotFinite, 0U);
}

TEST(HistogramOf, HasOneBinForOneValueAndForNone) {
  const std::vector<float> same{3, 3};
  EXPECT_THAT(HistogramOf({same, same}).actual, ElementsAre(2));
  const std::vector<float> odd{NAN};
  const ReportHistogram none = HistogramOf({odd, odd});
  EXPECT_THAT(none.actual, ElementsAre(0));
  EXPECT_EQ(none.low, 0);
  EXPECT_EQ(none.actualNotFinite, 1U);
}

// Every element lies in the bin that its share of the whole says.
TEST(EnvelopeOf, HoldsEachDifferenceInItsBin) {
  const std::vector<float> actual = Random(1000, 1);
  const std::vector<float> expected = Random(1000, 2);
  const ReportEnvelope envelope = EnvelopeOf({actual, expected}, 7);
  ASSERT_THAT(envelope.least, SizeIs(7));
  std::vector<double> least(7, INFINITY);
  std::vector<double> most(7, -INFINITY);
  for (size_t bin = 0; bin < 7; ++bin) {
    for (size_t i = bin * 1000 / 7; i < (bin + 1) * 1000 / 7; ++i) {
      const double difference = static_cast<double>(actual[i]) - static_cast<double>(expected[i]);
      least[bin] = std::min(least[bin], difference);
      most[bin] = std::max(most[bin], difference);
    }
  }
  EXPECT_EQ(envelope.least, least);
  EXPECT_EQ(envelope.most, most);
}

TEST(EnvelopeOf, HasNoMoreBinsThanElementsAndTellsOddOnes) {
  const std::vector<float> actual{1, NAN};
  const std::vector<float> expected{3, 1};
  const ReportEnvelope envelope = EnvelopeOf({actual, expected}, 10);
  ASSERT_THAT(envelope.least, SizeIs(2));
  EXPECT_EQ(envelope.least[0], -2);
  EXPECT_TRUE(std::isnan(envelope.least[1]));
  EXPECT_THAT(envelope.hasNotFinite, ElementsAre(0, 1));
  EXPECT_THAT(EnvelopeOf({{}, {}}).least, SizeIs(0));
}

TEST(WorstElements, AreTheFarthestAndOddOnesFirst) {
  const std::vector<float> actual{1, 5, NAN, 0, 2};
  const std::vector<float> expected{1, 1, 1, 1, 2.5F};
  const auto worst = WorstElements({actual, expected}, {1, 5}, 7, 3);
  ASSERT_THAT(worst, SizeIs(3));
  EXPECT_EQ(worst[0].index, 2U);
  EXPECT_EQ(worst[1].index, 1U);
  EXPECT_EQ(worst[1].place, "[0, 1]");
  EXPECT_EQ(worst[1].sample, 7U);
  EXPECT_EQ(worst[2].index, 3U);
  EXPECT_THAT(WorstElements({expected, expected}, {5}, 0), SizeIs(0));
}

TEST(LayoutOf, FindsRowsAndColumns) {
  const ChannelLayout nchw = LayoutOf({2, 3, 4, 5}, false);
  EXPECT_EQ(nchw.channels, 6U);
  EXPECT_EQ(nchw.rows, 4U);
  EXPECT_EQ(nchw.columns, 5U);
  const ChannelLayout nhwc = LayoutOf({2, 4, 5, 3}, true);
  EXPECT_EQ(nhwc.channels, 6U);
  EXPECT_EQ(nhwc.rows, 4U);
  EXPECT_EQ(nhwc.columns, 5U);
  EXPECT_EQ(LayoutOf({6, 7}, false).channels, 1U);
}

TEST(LayoutOf, FindsNothingToDrawInRowsAndSingleElements) {
  EXPECT_EQ(LayoutOf({10}, false).rows, 0U);
  EXPECT_EQ(LayoutOf({1, 10}, false).rows, 0U);
  EXPECT_EQ(LayoutOf({1, 10, 1, 1}, false).rows, 0U);
  EXPECT_EQ(LayoutOf({0, 4, 4}, false).rows, 0U);
  EXPECT_EQ(LayoutOf({}, false).rows, 0U);
}

// The same tensor in both layouts looks the same.
TEST(HeatmapsOf, DrawTheWorstChannelsOfBothLayouts) {
  constexpr size_t kChannels = 3;
  constexpr size_t kPlaces = 20;
  std::vector<float> expected = Random(2 * kChannels * kPlaces, 3);
  std::vector<float> actual = expected;
  actual[(1 * kChannels + 2) * kPlaces + 7] += 2;  // item 1, channel 2
  actual[1 * kPlaces + 3] += 1;                    // item 0, channel 1
  const auto maps = HeatmapsOf({actual, expected}, LayoutOf({2, 3, 4, 5}, false), 2);
  ASSERT_THAT(maps, SizeIs(2));
  EXPECT_EQ(maps[0].channel, 5U);
  EXPECT_EQ(maps[0].place, "[1, 2, :, :]");
  EXPECT_EQ(maps[0].rows, 4U);
  EXPECT_EQ(maps[0].columns, 5U);
  EXPECT_NEAR(maps[0].difference[7], 2, 1e-6);
  EXPECT_NEAR(maps[0].mostDifference, 2, 1e-6);
  EXPECT_EQ(maps[1].place, "[0, 1, :, :]");

  const auto last = [&](const std::vector<float>& from) {
    std::vector<float> to(from.size());
    for (size_t item = 0; item < 2; ++item) {
      for (size_t channel = 0; channel < kChannels; ++channel) {
        for (size_t place = 0; place < kPlaces; ++place) {
          to[(item * kPlaces + place) * kChannels + channel] =
              from[(item * kChannels + channel) * kPlaces + place];
        }
      }
    }
    return to;
  };
  const std::vector<float> actualLast = last(actual);
  const std::vector<float> expectedLast = last(expected);
  const auto lastMaps = HeatmapsOf({actualLast, expectedLast}, LayoutOf({2, 4, 5, 3}, true), 2);
  ASSERT_THAT(lastMaps, SizeIs(2));
  EXPECT_EQ(lastMaps[0].place, "[1, :, :, 2]");
  EXPECT_EQ(lastMaps[0].actual, maps[0].actual);
  EXPECT_EQ(lastMaps[0].expected, maps[0].expected);
  EXPECT_EQ(lastMaps[0].difference, maps[0].difference);
}

TEST(HeatmapsOf, DrawTogetherWhatIsTooLarge) {
  // 4 x 4 on 2 x 2: each place of the drawing is four.
  std::vector<float> expected(16, 1);
  std::vector<float> actual = expected;
  actual[0] = 3;
  actual[5] = -4;  // of the same place, and farther
  actual[10] = NAN;
  const auto maps = HeatmapsOf({actual, expected}, LayoutOf({4, 4}, false), 1, 2);
  ASSERT_THAT(maps, SizeIs(1));
  const ReportHeatmap& map = maps[0];
  EXPECT_EQ(map.sourceRows, 4U);
  EXPECT_DOUBLE_EQ(map.actual[0], 0.25);  // of 3, 1, 1 and -4
  EXPECT_DOUBLE_EQ(map.difference[0], -5);
  EXPECT_TRUE(std::isnan(map.difference[3]));
  EXPECT_DOUBLE_EQ(map.actual[3], 1);
  EXPECT_DOUBLE_EQ(map.mostDifference, 5);
  EXPECT_EQ(map.place, "[:, :]");
}

TEST(HeatmapsOf, RefuseAShapeOfOtherElements) {
  const std::vector<float> values(10, 1);
  EXPECT_THAT(HeatmapsOf({values, values}, LayoutOf({4, 4}, false)), SizeIs(0));
}

}  // namespace
}  // namespace vorn::kit
