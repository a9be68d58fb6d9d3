#include "kit/history/history_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "history/simulation.h"
#include "kit/history/made_run.h"
#include "support/json_schema.h"

namespace vorn::kit {
namespace {

using support::MadeEntry;
using testing::HasSubstr;
using testing::Not;

// Runs 1 to 50, a day each, whose runtime changes with run 31 and with it the time.
class HistoryText : public testing::Test {
 protected:
  HistoryText() : parts_(KeyPartsOf("model,board")) {
    RunSeriesPoints points;
    points.key = {"digits.onnx", "board7", ""};
    const auto times = bench::MakeRuns(bench::RunNoise::kLogNormal, 50, 30, 1.2, 5);
    for (unsigned i = 0; i < 50; ++i) {
      RunEntry run = MadeEntry(i + 1, times[i]);
      run.id = i + 1;
      if (i >= 30) run.runtimeXxh3 = std::string(32, 'f');
      RunPoint point;
      point.id = run.id;
      point.startRealtimeNs = run.startRealtimeNs;
      point.medianNs = times[i];
      points.runs.push_back(point);
      runs_.push_back(run);
    }
    series_ = HistoryOf(std::move(points), parts_, {});
  }

  std::vector<ToldChange> Told() const {
    return TellChanges(series_, 0, [&](int64_t id) { return runs_[static_cast<size_t>(id - 1)]; });
  }

  std::vector<KeyPart> parts_;
  std::vector<RunEntry> runs_;
  SeriesHistory series_;
};

TEST_F(HistoryText, TellsAChangeInWords) {
  const std::string text = ChangesText(series_, Told());
  EXPECT_THAT(text, HasSubstr("digits.onnx, board7 (series "));
  EXPECT_THAT(text, HasSubstr("2026-12-01 00:00  time: "));
  EXPECT_THAT(text, HasSubstr("30 runs before, 20 since; told with run 3"));
  EXPECT_THAT(text, HasSubstr("from run 30 of 2026-11-30 00:00, /runs/30\n"));
  EXPECT_THAT(text, HasSubstr("what is in the runtime libvorn.so: 44444444 -> ffffffff\n"));
}

TEST_F(HistoryText, SaysThatNothingDiffers) {
  for (RunEntry& run : runs_) run.runtimeXxh3 = "same";
  EXPECT_THAT(ChangesText(series_, Told()), HasSubstr("nothing that a run notes differs"));
}

TEST_F(HistoryText, PassesOverWhatIsOlder) {
  EXPECT_EQ(TellChanges(series_, runs_[31].startRealtimeNs, {}).size(), 0U);
  EXPECT_EQ(ChangesText(series_, {}), "");
}

TEST_F(HistoryText, TellsASuspicion) {
  series_.figures[0].suspicion = Suspicion{.count = 3, .before = 1e6, .after = 2e6};
  EXPECT_THAT(ChangesText(series_, {}),
              HasSubstr("perhaps           time: the last 3 runs all lie above all others of their "
                        "level, 1.000 ms -> 2.000 ms; too few"));
}

TEST_F(HistoryText, HoldsItsLinesToTheirSchemas) {
  const auto told = Told();
  ASSERT_EQ(told.size(), 1U);
  EXPECT_EQ(support::FaultBySchema("history_change", ChangeLine(series_, told[0])), "");
  EXPECT_EQ(support::FaultBySchema("history_series", SeriesLine(series_, parts_)), "");
  EXPECT_THAT(SeriesLine(series_, parts_), HasSubstr(R"("key":{"model":"digits.onnx")"));
  series_.figures[0].suspicion = Suspicion{.count = 3, .before = 1e6, .after = 2e6};
  EXPECT_EQ(support::FaultBySchema("history_series", SeriesLine(series_, parts_)), "");
}

TEST_F(HistoryText, HoldsTheLineOfATurnToItsSchema) {
  series_.runs[5].outcome = RunOutcome::kFailed;
  RunSeriesPoints points;
  points.key = series_.key;
  points.runs = series_.runs;
  for (RunPoint& run : points.runs) run.medianNs = 0;
  points.runs[6].beginsLevel = true;
  runs_[6].level = RunLevel{.reason = "mended", .setRealtimeNs = 1};
  series_ = HistoryOf(std::move(points), parts_, {});
  const auto told = Told();
  ASSERT_EQ(told.size(), 2U);
  EXPECT_EQ(support::FaultBySchema("history_change", ChangeLine(series_, told[0])), "");
  EXPECT_EQ(support::FaultBySchema("history_change", ChangeLine(series_, told[1])), "");
  EXPECT_THAT(ChangeLine(series_, told[1]), HasSubstr(R"("reason":"mended")"));
  EXPECT_THAT(ChangesText(series_, told), HasSubstr("a new level, set by hand: mended"));
}

TEST_F(HistoryText, ShowsARunAndATableOfRuns) {
  RunEntry run = MadeEntry(3, 1.25e6);
  run.id = 12;
  run.verdict = "wrong";
  run.path = "/runs/a\nb";
  run.metrics = {{.output = "p", .metric = "top 1", .value = 0.5, .expected = 0.75}};
  RunTable table;
  table.Add(run);
  EXPECT_THAT(table.Text(), HasSubstr("12  2026-11-03 00:00  board7  digits.onnx  device.json"));
  EXPECT_THAT(table.Text(), HasSubstr("/runs/a\\x0Ab\n"));
  const std::string text = RunText(run);
  EXPECT_THAT(text, HasSubstr("p, top 1"));
  EXPECT_THAT(text, HasSubstr("0.5, expected side 0.75"));
  EXPECT_THAT(text, HasSubstr("2 executions, median 1.250 ms"));
  EXPECT_THAT(text, Not(HasSubstr("a\nb")));
}

TEST_F(HistoryText, CutsNamesThatWouldWidenEveryRow) {
  RunEntry run = MadeEntry(3, 1e6);
  RunTable table;
  table.Add(run);
  run.model = std::string(119, 'm') + "\xc3\xa4" + std::string(100000, 'm');
  run.options = std::string(100000, 'o');
  table.Add(run);
  EXPECT_LT(table.Text().size(), 2000U);
  EXPECT_THAT(table.Text(), HasSubstr("  " + std::string(119, 'm') + "...  "));
}

TEST_F(HistoryText, ShowsATableOfSeries) {
  const std::string text = SeriesText(std::span(&series_, 1));
  EXPECT_THAT(text, HasSubstr(series_.name));
  EXPECT_THAT(text, HasSubstr("digits.onnx, board7"));
}

}  // namespace
}  // namespace vorn::kit
