#include "kit/history/changes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "history/simulation.h"
#include "kit/ledger/series_key.h"

namespace vorn::kit {
namespace {

using testing::ElementsAre;

// A series of runs 1, 2, ... that began a nanosecond apart and were done, with those times.
RunSeriesPoints Points(const std::vector<double>& times) {
  RunSeriesPoints points;
  points.key = {"digits.onnx", "board7", ""};
  for (size_t i = 0; i < times.size(); ++i) {
    RunPoint point;
    point.id = static_cast<int64_t>(i + 1);
    point.startRealtimeNs = 1000 + i;
    point.medianNs = times[i];
    points.runs.push_back(point);
  }
  return points;
}

SeriesHistory History(RunSeriesPoints points) {
  return HistoryOf(std::move(points), KeyPartsOf("model,board"), {});
}

std::vector<double> Stepped(double factor) {
  return bench::MakeRuns(bench::RunNoise::kLogNormal, 50, 30, factor, 5);
}

ExitStatus Status(const SeriesHistory& series, uint64_t sinceNs = 0) {
  return StatusOf(std::span(&series, 1), sinceNs);
}

RunSeriesPoints Outcomes(const std::vector<RunOutcome>& outcomes) {
  RunSeriesPoints points = Points(std::vector<double>(outcomes.size(), 0));
  for (size_t i = 0; i < outcomes.size(); ++i) points.runs[i].outcome = outcomes[i];
  return points;
}

std::vector<std::string> Texts(const SeriesHistory& series) {
  std::vector<std::string> texts;
  for (const HistoryChange& change : ChangesOf(series)) {
    texts.push_back(TextOf(change) + (change.isWorse ? " !" : ""));
  }
  return texts;
}

TEST(ChangesOf, NamesTheRunsOnBothSides) {
  const SeriesHistory series = History(Points(Stepped(1.2)));
  EXPECT_EQ(series.text, "digits.onnx, board7");
  const auto changes = ChangesOf(series);
  ASSERT_EQ(changes.size(), 1U);
  EXPECT_EQ(series.runs[changes[0].before].id, 30);
  EXPECT_EQ(series.runs[changes[0].after].id, 31);
  EXPECT_GT(changes[0].toldAt, 31U);
  EXPECT_TRUE(changes[0].isWorse);
  EXPECT_TRUE(changes[0].isLast);
  EXPECT_THAT(TextOf(changes[0]),
              testing::MatchesRegex("time: [0-9.]+ ms -> 1[0-9.]+ ms, \\+[0-9.]+ %, slower"));
  EXPECT_EQ(Status(series), ExitStatus::kSlower);
}

TEST(ChangesOf, PassesOverRunsWithoutTheFigure) {
  RunSeriesPoints points = Points(Stepped(1.2));
  RunPoint failed;
  failed.outcome = RunOutcome::kUnfinished;
  points.runs.insert(points.runs.begin() + 30, failed);
  const SeriesHistory series = History(std::move(points));
  const auto changes = ChangesOf(series);
  ASSERT_EQ(changes.size(), 1U);
  EXPECT_EQ(changes[0].before, 29U);
  EXPECT_EQ(changes[0].after, 31U);
}

TEST(ChangesOf, AcceptsWhatAPersonAccepted) {
  RunSeriesPoints points = Points(Stepped(1.2));
  points.runs[30].beginsLevel = true;
  const SeriesHistory series = History(std::move(points));
  const auto changes = ChangesOf(series);
  ASSERT_EQ(changes.size(), 1U);
  EXPECT_TRUE(changes[0].isByHand);
  EXPECT_EQ(Status(series), ExitStatus::kDone);
}

TEST(ChangesOf, PutsALevelToTheNextRunThatHasTheFigure) {
  RunSeriesPoints points = Points(std::vector<double>(9, 5e6));
  points.runs[4].medianNs = std::numeric_limits<double>::quiet_NaN();
  points.runs[4].beginsLevel = true;
  const SeriesHistory series = History(std::move(points));
  ASSERT_EQ(ChangesOf(series).size(), 1U);
  EXPECT_EQ(ChangesOf(series)[0].after, 5U);
}

TEST(ChangesOf, TellsOfAccuracies) {
  RunSeriesPoints points = Points({0, 0, 0, 0, 0, 0, 0});
  points.metrics = {{.output = "p",
                     .metric = "top 1",
                     .runs = {0, 1, 2, 3, 4, 5, 6},
                     .values = {0.97, 0.97, 0.97, 0.97, 0.97, 0.95, 0.95}},
                    {.output = "p",
                     .metric = "RMSE",
                     .runs = {0, 1, 2, 3, 4, 5, 6},
                     .values = {0, 0, 0, 0, 0, 0, 0.5}}};
  const SeriesHistory series = History(std::move(points));
  EXPECT_THAT(Texts(series), ElementsAre("p, top 1: 0.97 -> 0.95, -0.02, worse !",
                                         "p, RMSE: 0 -> 0.5, +0.5, worse !"));
  EXPECT_EQ(Status(series), ExitStatus::kDiffers);
}

TEST(ChangesOf, TellsOfVerdictsAndOfFailures) {
  using enum RunOutcome;
  const SeriesHistory series = History(Outcomes(
      {kRight, kUnfinished, kNotJudged, kWrong, kFailed, kFailed, kWrong, kRight, kFailed}));
  EXPECT_THAT(Texts(series), ElementsAre("verdict: right -> wrong !", "runs: done -> failed !",
                                         "runs: failed -> done", "verdict: wrong -> right",
                                         "runs: done -> failed !"));
  const auto changes = ChangesOf(series);
  EXPECT_EQ(changes[0].before, 0U);
  EXPECT_EQ(changes[0].after, 3U);
  EXPECT_FALSE(changes[0].isLast);
  EXPECT_TRUE(changes[3].isLast);
  EXPECT_TRUE(changes[4].isLast);
  EXPECT_EQ(Status(series), ExitStatus::kDiffers);
}

TEST(ChangesOf, TakesATurnAsAcceptedToo) {
  using enum RunOutcome;
  RunSeriesPoints points = Outcomes({kRight, kRight, kWrong, kWrong});
  points.runs[2].beginsLevel = true;
  const SeriesHistory series = History(std::move(points));
  ASSERT_EQ(ChangesOf(series).size(), 1U);
  EXPECT_TRUE(ChangesOf(series)[0].isByHand);
  EXPECT_EQ(Status(series), ExitStatus::kDone);
}

// As a step of a figure is.
TEST(ChangesOf, TakesATurnBeforeALevelByHandAsAccepted) {
  using enum RunOutcome;
  RunSeriesPoints points = Outcomes({kRight, kWrong, kWrong, kFailed, kFailed, kWrong});
  points.runs[2].beginsLevel = true;
  const SeriesHistory series = History(points);
  ASSERT_EQ(ChangesOf(series).size(), 3U);
  EXPECT_FALSE(ChangesOf(series)[0].isLast);
  EXPECT_TRUE(ChangesOf(series)[2].isLast);
  EXPECT_EQ(Status(series), ExitStatus::kDone);
  points.runs[2].beginsLevel = false;
  EXPECT_EQ(Status(History(std::move(points))), ExitStatus::kDiffers);
}

TEST(StatusOf, LooksAtHowTheSeriesStandNow) {
  std::vector<double> back = Stepped(1.2);
  const std::vector<double> more = bench::MakeRuns(bench::RunNoise::kLogNormal, 20, 0, 1, 8);
  back.insert(back.end(), more.begin(), more.end());
  const SeriesHistory series = History(Points(back));
  EXPECT_EQ(ChangesOf(series).size(), 2U);
  EXPECT_EQ(Status(series), ExitStatus::kDone);
  EXPECT_EQ(Status(History(Points(Stepped(0.8)))), ExitStatus::kDone);  // faster
}

TEST(StatusOf, PassesOverOldNews) {
  const SeriesHistory series = History(Points(Stepped(1.2)));
  EXPECT_EQ(Status(series, 1030), ExitStatus::kSlower);
  EXPECT_EQ(Status(series, 1031), ExitStatus::kDone);
}

TEST(StatusOf, SaysWhereThereIsTooLittle) {
  EXPECT_EQ(StatusOf({}, 0), ExitStatus::kNothing);
  EXPECT_EQ(Status(History(Points({0, 0, 0}))), ExitStatus::kNothing);
  EXPECT_EQ(Status(History(Points(std::vector<double>(10, 5e6)))), ExitStatus::kCannotTell);
  EXPECT_EQ(Status(History(Points(std::vector<double>(11, 5e6)))), ExitStatus::kDone);
  EXPECT_EQ(Status(History(Outcomes({RunOutcome::kRight, RunOutcome::kRight}))), ExitStatus::kDone);
}

}  // namespace
}  // namespace vorn::kit
