#include "kit/history/levels.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "history/simulation.h"

namespace vorn::kit {
namespace {

using testing::ElementsAre;

std::vector<size_t> FirstsOf(const std::vector<FigureLevel>& levels) {
  std::vector<size_t> firsts;
  for (const FigureLevel& level : levels) firsts.push_back(level.first);
  return firsts;
}

std::vector<double> Stepped(size_t before, size_t behind, double factor) {
  return bench::MakeRuns(bench::RunNoise::kLogNormal, before + behind, before, factor, 5);
}

TEST(Counts, HoldsTimesToBothGates) {
  const LevelGates gates;
  EXPECT_TRUE(Counts(FigureKind::kTime, 1e6, 1.03e6, gates));
  EXPECT_TRUE(Counts(FigureKind::kTime, 1.03e6, 1e6, gates));
  EXPECT_FALSE(Counts(FigureKind::kTime, 1e6, 1.02e6, gates));
  EXPECT_FALSE(Counts(FigureKind::kTime, 1e5, 1.05e5, gates));  // 5 us
}

TEST(Counts, HoldsSharesToADifferenceAndErrorsToARatio) {
  const LevelGates gates;
  EXPECT_TRUE(Counts(FigureKind::kShare, 0.97, 0.968, gates));
  EXPECT_FALSE(Counts(FigureKind::kShare, 0.97, 0.9695, gates));
  EXPECT_TRUE(Counts(FigureKind::kError, 1e-9, 2e-9, gates));
  EXPECT_FALSE(Counts(FigureKind::kError, 1e-9, 1.01e-9, gates));
  EXPECT_TRUE(Counts(FigureKind::kError, 0, 1e-12, gates));
  EXPECT_FALSE(Counts(FigureKind::kError, 0, 0, gates));
}

TEST(IsWorse, GoesByWhatIsGood) {
  EXPECT_TRUE(IsWorse(FigureKind::kTime, 1, 2));
  EXPECT_TRUE(IsWorse(FigureKind::kError, 1, 2));
  EXPECT_TRUE(IsWorse(FigureKind::kShare, 2, 1));
  EXPECT_FALSE(IsWorse(FigureKind::kShare, 1, 2));
}

TEST(LevelsOf, FindsStepsAndWhatLiesBetween) {
  std::vector<double> values = Stepped(30, 20, 1.1);
  const std::vector<double> more = Stepped(0, 25, 1.02);
  values.insert(values.end(), more.begin(), more.end());
  const auto levels = LevelsOf(FigureKind::kTime, values, {}, {});
  ASSERT_THAT(FirstsOf(levels), ElementsAre(0, 30, 50));
  EXPECT_EQ(levels[1].count, 20U);
  EXPECT_NEAR(levels[0].median, 10e6, 0.1e6);
  EXPECT_NEAR(levels[1].median, 11e6, 0.1e6);
  EXPECT_GT(levels[1].toldAt, 31U);
  EXPECT_LT(levels[1].toldAt, 38U);
  EXPECT_FALSE(levels[1].isByHand);
}

TEST(LevelsOf, LeavesOutWhatDoesNotCount) {
  const std::vector<double> values = Stepped(100, 100, 1.02);
  EXPECT_EQ(LevelsOf(FigureKind::kTime, values, {}, {}).size(), 1U);
  LevelGates open;
  open.ratio = 1.01;
  EXPECT_EQ(LevelsOf(FigureKind::kTime, values, {}, open).size(), 2U);
  open = {};
  open.absoluteNs = 2e6;
  EXPECT_EQ(LevelsOf(FigureKind::kTime, Stepped(100, 100, 1.1), {}, open).size(), 1U);
}

TEST(LevelsOf, BeginsWhereAPersonSays) {
  const std::vector<double> values = Stepped(30, 30, 1.1);
  const std::vector<size_t> begins{30, 45};
  const auto levels = LevelsOf(FigureKind::kTime, values, begins, {});
  ASSERT_THAT(FirstsOf(levels), ElementsAre(0, 30, 45));
  EXPECT_TRUE(levels[1].isByHand);
  EXPECT_TRUE(levels[2].isByHand);  // though nothing differs
}

TEST(LevelsOf, TellsAtOnceWhatNeverVaried) {
  const std::vector<double> values{0.97, 0.97, 0.97, 0.97, 0.97, 0.95, 0.95};
  const auto levels = LevelsOf(FigureKind::kShare, values, {}, {});
  ASSERT_THAT(FirstsOf(levels), ElementsAre(0, 5));
  EXPECT_EQ(levels[1].toldAt, 5U);
  EXPECT_EQ(LevelsOf(FigureKind::kShare, std::span(values).subspan(1), {}, {}).size(), 1U);
  const std::vector<double> times{5e6, 5e6, 5e6, 5e6, 5e6, 9e6, 9e6};
  EXPECT_EQ(LevelsOf(FigureKind::kTime, times, {}, {}).size(), 1U);
}

// One run of another accuracy among steady ones is no level of its own.
TEST(LevelsOf, DoesNotStayWithASingleValue) {
  std::vector<double> values(10, 0.97);
  values.push_back(0.9);
  values.insert(values.end(), 10, 0.97);
  EXPECT_EQ(LevelsOf(FigureKind::kShare, values, {}, {}).size(), 1U);
}

TEST(LevelsOf, OfNothingIsNothing) { EXPECT_TRUE(LevelsOf(FigureKind::kTime, {}, {}, {}).empty()); }

TEST(SuspicionOf, NamesTheLastValuesBeyondAllOthers) {
  const std::vector<double> level{1e6, 1.01e6, 0.99e6, 1e6, 1.2e6, 1.21e6, 1.19e6};
  const auto suspicion = SuspicionOf(FigureKind::kTime, level, {});
  ASSERT_TRUE(suspicion.has_value());
  EXPECT_EQ(suspicion->count, 3U);
  EXPECT_EQ(suspicion->before, 1e6);
  EXPECT_EQ(suspicion->after, 1.2e6);
}

TEST(SuspicionOf, IsNoneOfOneValueOrOfSmallDifferences) {
  EXPECT_EQ(SuspicionOf(FigureKind::kTime, std::vector<double>{1e6, 1e6, 1e6, 2e6}, {}),
            std::nullopt);
  EXPECT_EQ(SuspicionOf(FigureKind::kTime, std::vector<double>{1e6, 1e6, 1e6, 1.01e6, 1.01e6}, {}),
            std::nullopt);
  EXPECT_EQ(SuspicionOf(FigureKind::kTime, std::vector<double>{}, {}), std::nullopt);
}

}  // namespace
}  // namespace vorn::kit
