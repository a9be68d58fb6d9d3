#include "kit/history/history_page.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "history/simulation.h"
#include "kit/history/made_run.h"
#include "support/files.h"

namespace vorn::kit {
namespace {

using support::MadeEntry;
using testing::HasSubstr;
using testing::Not;

class HistoryPageTest : public testing::Test {
 protected:
  // Runs of a board, whose time steps by the factor with the 31st.
  void Add(const std::string& board, double factor) {
    RunSeriesPoints points;
    points.key = {"digits.onnx", board, ""};
    const auto times = bench::MakeRuns(bench::RunNoise::kLogNormal, 50, 30, factor, 5);
    for (unsigned i = 0; i < times.size(); ++i) {
      RunEntry run = MadeEntry(i + 1, times[i]);
      run.id = static_cast<int64_t>(runs_.size() + 1);
      run.path = folder_.Path() / "runs" / std::to_string(run.id);
      RunPoint point;
      point.id = run.id;
      point.startRealtimeNs = run.startRealtimeNs;
      point.medianNs = times[i];
      points.runs.push_back(point);
      runs_.push_back(run);
    }
    all_.push_back(HistoryOf(std::move(points), KeyPartsOf("model,board"), {}));
  }

  // The run that began then, into the folder; its identity is that of the entry from then on.
  static void Lay(RunEntry& run, const std::string& folder) {
    RunFacts facts = support::MadeFacts(1);
    facts.startRealtimeNs = run.startRealtimeNs;
    support::MakeRun(folder, facts, {});
    run.identity = EntryOf(facts, "").identity;
  }

  std::string Page() const {
    return HistoryPage({.all = all_,
                        .find = [&](int64_t id) { return runs_[static_cast<size_t>(id - 1)]; },
                        .sinceNs = 0,
                        .ledger = "/data/history.sqlite",
                        .folder = folder_.Path() / "pages",
                        .nowNs = support::kNovemberNs});
  }

  support::TempDir folder_;
  std::vector<RunEntry> runs_;
  std::vector<SeriesHistory> all_;
};

TEST_F(HistoryPageTest, SaysTheWorstOnTop) {
  Add("board6", 1);
  Add("board7", 1.1);
  Add("board8", 1.5);
  Add("board9", 0.8);
  const std::string page = Page();
  EXPECT_THAT(page, HasSubstr("2 of 4 series with 200 runs stand worse than before; the worst: "
                              "digits.onnx, board8 since 2026-12-01 00:00"));
  EXPECT_THAT(page, HasSubstr("What got worse"));
  EXPECT_THAT(page, HasSubstr("What got better"));
  EXPECT_THAT(page, HasSubstr("Content-Security-Policy"));
  EXPECT_EQ(page, Page());
}

TEST_F(HistoryPageTest, SaysThatNothingChanged) {
  Add("board6", 1);
  EXPECT_THAT(Page(), HasSubstr("Nothing stands worse than before, of 1 series with 50 runs."));
  EXPECT_THAT(Page(), Not(HasSubstr("What got worse")));
}

TEST_F(HistoryPageTest, LinksToRunsThatAreThere) {
  Add("board7", 1.2);
  Lay(runs_[29], runs_[29].path);
  support::WriteFile(runs_[30].path + "/report.html", "");
  const std::string page = Page();
  EXPECT_THAT(page, HasSubstr(R"(href="./../runs/30")"));
  EXPECT_THAT(page, HasSubstr(R"(href="./../runs/31/report.html")"));
  EXPECT_THAT(page, Not(HasSubstr(R"(href="./../runs/29")")));
}

// Folders are used again, and what lies there by now is not what the page tells of.
TEST_F(HistoryPageTest, LinksToNoOtherRun) {
  Add("board7", 1.2);
  for (size_t i : {29, 30}) {
    runs_[i].path = folder_.Path() / "runs/latest";
    Lay(runs_[i], runs_[i].path);
  }
  EXPECT_THAT(Page(), HasSubstr(R"(href="./../runs/latest">run 31<)"));
  EXPECT_THAT(Page(), Not(HasSubstr(R"(href="./../runs/latest">run 30<)")));
  support::WriteFile(runs_[30].path + "/report.html", "");
  EXPECT_THAT(Page(), HasSubstr(R"(href="./../runs/latest/report.html">run 31<)"));
  EXPECT_THAT(Page(), Not(HasSubstr(R"(href="./../runs/latest/report.html">run 30<)")));
}

TEST_F(HistoryPageTest, LetsNoNameBecomeMarkup) {
  Add("<script>alert(1)</script>", 1.2);
  for (RunEntry& run : runs_) run.governor = "\"><img src=x>";
  runs_[29].governor = "</li></ul>";
  const std::string page = Page();
  EXPECT_THAT(page, Not(HasSubstr("<script>alert")));
  EXPECT_THAT(page, Not(HasSubstr("<img src=x>")));
}

// Once, not once by each that hands it on.
TEST_F(HistoryPageTest, TellsNamesThatCannotBePrinted) {
  Add("\x1b[31mboard", 1.2);
  const std::string page = Page();
  EXPECT_THAT(page, HasSubstr(R"(digits.onnx, \x1B[31mboard since)"));
  EXPECT_THAT(page, Not(HasSubstr(R"(\\x1B)")));
  EXPECT_THAT(page, Not(HasSubstr("\x1b")));
}

TEST_F(HistoryPageTest, TellsOfNoRunAtAll) {
  EXPECT_THAT(Page(), HasSubstr("No run was timed or judged, of 0 series with 0 runs."));
}

TEST_F(HistoryPageTest, IsNotOverlongWithManySeries) {
  for (int i = 0; i < 300; ++i) Add("board" + std::to_string(i), i % 3 == 0 ? 1.2 : 1);
  const std::string page = Page();
  EXPECT_LT(page.size(), size_t{3} << 20);
  EXPECT_THAT(page, HasSubstr("The other 276 series are in the table of all"));
}

TEST_F(HistoryPageTest, IsNotOverlongWithManyChanges) {
  RunSeriesPoints points;
  points.key = {"digits.onnx", "board1", ""};
  for (unsigned i = 0; i < 1001; ++i) {
    RunEntry run = MadeEntry(i + 1, 1e6);
    run.id = i + 1;
    points.runs.push_back({.id = run.id,
                           .startRealtimeNs = run.startRealtimeNs,
                           .outcome = i % 2 == 0 ? RunOutcome::kRight : RunOutcome::kWrong});
    runs_.push_back(run);
  }
  all_.push_back(HistoryOf(std::move(points), KeyPartsOf("model,board"), {}));
  const std::string page = Page();
  EXPECT_LT(page.size(), size_t{256} << 10);
  EXPECT_THAT(page, HasSubstr("The other 900 changes of the series are told by"));
  EXPECT_THAT(page, HasSubstr("What got better"));  // the last of them, at which it stands
}

// What comes first by its key takes no room of what is worst.
TEST_F(HistoryPageTest, TellsTheWorstHoweverManyChangesThereAre) {
  for (int i = 0; i < 600; ++i) Add("board" + std::to_string(1000 + i), 0.8);
  Add("worst", 1.5);
  const std::string page = Page();
  EXPECT_THAT(page, HasSubstr("What got worse"));
}

}  // namespace
}  // namespace vorn::kit
