#include "kit/ledger/ledger.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cmath>
#include <csignal>
#include <filesystem>

#include "kit/common/fault.h"
#include "kit/history/made_run.h"
#include "support/files.h"

namespace vorn::kit {
namespace {

using support::MadeEntry;
using testing::ElementsAre;
using testing::HasSubstr;

class LedgerTest : public testing::Test {
 protected:
  LedgerTest() : parts_(KeyPartsOf(kUsualParts)) {}

  std::string Path() const { return folder_.Path() / "history.sqlite"; }

  Addition Add(RunEntry& run) const {
    return Ledger::ForWriting(Path()).Add(std::span(&run, 1)).front();
  }

  int64_t AddOne(RunEntry run) const {
    EXPECT_EQ(Add(run), Addition::kAdded);
    return run.id;
  }

  Ledger Read() const { return Ledger::ForReading(Path()); }

  std::optional<int64_t> LastBefore(const RunEntry& run) const {
    const auto found =
        Read().LastBefore(run, parts_, [](const RunEntry& entry) { return entry.state == "done"; });
    return found ? std::optional(found->id) : std::nullopt;
  }

  support::TempDir folder_;
  std::vector<KeyPart> parts_;
};

TEST_F(LedgerTest, GivesBackWhatWasAdded) {
  RunEntry run = MadeEntry(3, 1.25e6);
  run.loadAverage = 0.5;
  run.frequencyKhz = 1800000;
  run.temperatureMilliC = -4;
  run.board = "b\xff\x01";
  run.metrics = {{.output = "p", .metric = "RMSE", .value = 0.5, .expected = {}},
                 {.output = "p", .metric = "top 1", .value = 0.5, .expected = 0.75}};
  run.level = RunLevel{.reason = "why", .setRealtimeNs = 9};
  EXPECT_EQ(Add(run), Addition::kAdded);
  EXPECT_GT(run.id, 0);
  EXPECT_EQ(Read().Get(run.id), run);
  EXPECT_EQ(Read().Find(run.identity), run);
  EXPECT_EQ(Read().Find("another"), std::nullopt);
}

TEST_F(LedgerTest, KnowsWhatItHas) {
  RunEntry run = MadeEntry(3, 1e6);
  const int64_t id = AddOne(run);
  EXPECT_EQ(Add(run), Addition::kKnown);
  EXPECT_EQ(run.id, id);
}

TEST_F(LedgerTest, BringsUpToDateWhatWentOn) {
  RunEntry run = MadeEntry(3, 1e6);
  run.state = "interrupted";
  run.done = 7;
  run.metrics = {{.output = "p", .metric = "old", .value = 1, .expected = {}}};
  const int64_t id = AddOne(run);
  RunEntry further = MadeEntry(3, 2e6);
  further.content = "another";
  further.metrics = {{.output = "p", .metric = "new", .value = 2, .expected = {}}};
  EXPECT_EQ(Add(further), Addition::kUpdated);
  EXPECT_EQ(further.id, id);
  EXPECT_EQ(Read().Get(id), further);
  run.content = "a copy from before";
  EXPECT_EQ(Add(run), Addition::kOlder);
  EXPECT_EQ(Read().Get(id), further);
}

// Judged again, a run of the same times has another verdict.
TEST_F(LedgerTest, TakesTheLaterVerdict) {
  RunEntry run = MadeEntry(3, 1e6);
  run.verdict = "wrong";
  const int64_t id = AddOne(run);
  run.verdict = "right";
  run.content = "judged again";
  EXPECT_EQ(Add(run), Addition::kUpdated);
  EXPECT_EQ(Read().Get(id).verdict, "right");
}

TEST_F(LedgerTest, FollowsARunThatWasMovedAndNotItsCopy) {
  RunEntry run = MadeEntry(3, 1e6);
  run.path = folder_.Path() / "here";
  support::MakeRun(run.path, support::MadeFacts(3), {});
  const std::string here = run.path;
  const int64_t id = AddOne(run);
  run.path = folder_.Path() / "there";
  EXPECT_EQ(Add(run), Addition::kKnown);
  EXPECT_EQ(Read().Get(id).path, here);
  std::filesystem::remove_all(here);
  EXPECT_EQ(Add(run), Addition::kKnown);
  EXPECT_EQ(Read().Get(id).path, run.path);
  // Where it was another one lies by now.
  support::MakeRun(run.path, support::MadeFacts(4), {});
  run.path = here;
  support::MakeRun(here, support::MadeFacts(3), {});
  EXPECT_EQ(Add(run), Addition::kKnown);
  EXPECT_EQ(Read().Get(id).path, here);
}

TEST_F(LedgerTest, AddsAllOrNone) {
  std::vector<RunEntry> runs{MadeEntry(3, 1e6), MadeEntry(4, 1e6)};
  runs[1].startRealtimeNs = UINT64_MAX;
  Ledger ledger = Ledger::ForWriting(Path());
  try {
    (void)ledger.Add(runs);
    FAIL() << "a number that cannot be kept was taken";
  } catch (const Fault& fault) {
    EXPECT_EQ(fault.Status(), ExitStatus::kInput);
    EXPECT_THAT(fault.what(), HasSubstr("18446744073709551615"));
  }
  EXPECT_EQ(ledger.Find(runs[0].identity), std::nullopt);
  runs.pop_back();
  EXPECT_THAT(ledger.Add(runs), ElementsAre(Addition::kAdded));
}

TEST_F(LedgerTest, KeepsNoFigureThatIsNoNumber) {
  RunEntry run = MadeEntry(3, NAN);
  run.metrics = {{.output = "p", .metric = "RMSE", .value = NAN, .expected = {}}};
  const int64_t id = AddOne(run);
  const RunEntry kept = Read().Get(id);
  EXPECT_EQ(kept.medianNs, std::nullopt);
  EXPECT_TRUE(kept.metrics.empty());
}

TEST_F(LedgerTest, TellsRunsByTheirStart) {
  const int64_t later = AddOne(MadeEntry(5, 1e6));
  const int64_t first = AddOne(MadeEntry(3, 1e6));
  RunEntry judged = MadeEntry(4, 1e6);
  judged.metrics = {{.output = "p", .metric = "top 1", .value = 1, .expected = {}}};
  const int64_t middle = AddOne(judged);
  std::vector<int64_t> ids;
  std::vector<size_t> metrics;
  const auto take = [&](const RunEntry& run) {
    ids.push_back(run.id);
    metrics.push_back(run.metrics.size());
  };
  Read().ForEach({}, RunDetail::kAll, take);
  EXPECT_THAT(ids, ElementsAre(first, middle, later));
  EXPECT_THAT(metrics, ElementsAre(0, 1, 0));
  ids.clear();
  Read().ForEach({.sinceNs = judged.startRealtimeNs, .beforeNs = judged.startRealtimeNs + 1},
                 RunDetail::kAll, take);
  EXPECT_THAT(ids, ElementsAre(middle));
}

TEST_F(LedgerTest, TellsForATableWhatItShows) {
  RunEntry run = MadeEntry(3, 1.5e6);
  run.verdict = "wrong";
  run.metrics = {{.output = "p", .metric = "top 1", .value = 1, .expected = {}}};
  run.level = RunLevel{.reason = "why", .setRealtimeNs = 9};
  AddOne(run);
  size_t count = 0;
  Read().ForEach({}, RunDetail::kTable, [&](const RunEntry& told) {
    ++count;
    EXPECT_EQ(told.path, run.path);
    EXPECT_EQ(told.board, run.board);
    EXPECT_EQ(told.model, run.model);
    EXPECT_EQ(told.options, run.options);
    EXPECT_EQ(told.verdict, "wrong");
    EXPECT_EQ(told.done, 41U);
    EXPECT_EQ(told.inferences, 41U);
    EXPECT_EQ(told.medianNs, 1.5e6);
    EXPECT_EQ(told.startRealtimeNs, run.startRealtimeNs);
    EXPECT_EQ(told.level->reason, "why");
    EXPECT_EQ(told.runtimeXxh3, "");
    EXPECT_TRUE(told.metrics.empty());
  });
  EXPECT_EQ(count, 1U);
}

TEST_F(LedgerTest, PutsLikeRunsIntoSeries) {
  const int64_t first = AddOne(MadeEntry(3, 1e6));
  RunEntry wrong = MadeEntry(5, 3e6);
  wrong.verdict = "wrong";
  wrong.runtimeXxh3 = "another runtime is no other series";
  wrong.metrics = {{.output = "p", .metric = "top 1", .value = 0.5, .expected = {}}};
  const int64_t third = AddOne(wrong);
  RunEntry interrupted = MadeEntry(4, 2e6);
  interrupted.state = "interrupted";
  AddOne(interrupted);
  RunEntry other = MadeEntry(6, 1e6);
  other.board = "board8";
  AddOne(other);
  const auto series = Read().Series(parts_, {});
  ASSERT_EQ(series.size(), 2U);
  EXPECT_THAT(series[0].key,
              ElementsAre("digits.onnx", "device.json", "list.txt", "-b 2", "board7", ""));
  ASSERT_EQ(series[0].runs.size(), 3U);
  EXPECT_EQ(series[0].runs[0].id, first);
  EXPECT_EQ(series[0].runs[0].medianNs, 1e6);
  EXPECT_EQ(series[0].runs[0].outcome, RunOutcome::kNotJudged);
  EXPECT_TRUE(std::isnan(series[0].runs[1].medianNs));
  EXPECT_EQ(series[0].runs[1].outcome, RunOutcome::kUnfinished);
  EXPECT_EQ(series[0].runs[2].id, third);
  EXPECT_EQ(series[0].runs[2].outcome, RunOutcome::kWrong);
  ASSERT_EQ(series[0].metrics.size(), 1U);
  EXPECT_THAT(series[0].metrics[0].runs, ElementsAre(2));
  EXPECT_THAT(series[0].metrics[0].values, ElementsAre(0.5));
  EXPECT_EQ(Read().Series(KeyPartsOf("model"), {}).size(), 1U);
  EXPECT_EQ(Read().Series(KeyPartsOf("model,runtime"), {}).size(), 2U);
}

TEST_F(LedgerTest, CountsNoFigureOfARunThatIsNotDone) {
  unsigned day = 3;
  for (const char* state : {"failed", "interrupted", "running"}) {
    RunEntry run = MadeEntry(day++, 1e6);
    run.state = state;
    run.metrics = {{.output = "p", .metric = "top 1", .value = 0.5, .expected = {}}};
    AddOne(run);
  }
  const auto series = Read().Series(parts_, {});
  ASSERT_EQ(series.size(), 1U);
  ASSERT_EQ(series[0].runs.size(), 3U);
  EXPECT_EQ(series[0].runs[0].outcome, RunOutcome::kFailed);
  EXPECT_TRUE(std::isnan(series[0].runs[0].medianNs));
  EXPECT_TRUE(series[0].metrics.empty());
}

TEST_F(LedgerTest, FindsTheLastRunOfTheSeriesBefore) {
  const int64_t first = AddOne(MadeEntry(3, 1e6));
  RunEntry failed = MadeEntry(4, 1e6);
  failed.state = "failed";
  AddOne(failed);
  RunEntry elsewhere = MadeEntry(5, 1e6);
  elsewhere.board = "board8";
  AddOne(elsewhere);
  AddOne(MadeEntry(8, 1e6));
  EXPECT_EQ(LastBefore(MadeEntry(7, 1e6)), first);
  EXPECT_EQ(LastBefore(MadeEntry(3, 1e6)), std::nullopt);  // it is the first itself
}

// On a board whose clock stands still, or by the same clock on two.
TEST_F(LedgerTest, PutsRunsOfOneMomentInTheOrderInWhichTheyCame) {
  std::vector<RunEntry> runs(3, MadeEntry(3, 1e6));
  for (size_t i = 0; i < runs.size(); ++i) {
    runs[i].identity = std::string(32, static_cast<char>('a' + i));
    runs[i].id = AddOne(runs[i]);
  }
  EXPECT_EQ(LastBefore(runs[0]), std::nullopt);
  EXPECT_EQ(LastBefore(runs[1]), runs[0].id);
  EXPECT_EQ(LastBefore(runs[2]), runs[1].id);
  RunEntry next = MadeEntry(3, 1e6);  // not added yet
  next.identity = std::string(32, 'd');
  EXPECT_EQ(LastBefore(next), runs[2].id);
}

TEST_F(LedgerTest, FindsNoRunBeyondTheLevel) {
  const int64_t first = AddOne(MadeEntry(3, 1e6));
  const int64_t second = AddOne(MadeEntry(4, 2e6));
  const int64_t third = AddOne(MadeEntry(5, 2e6));
  Ledger ledger = Ledger::ForChanging(Path());
  ledger.SetLevel(second, {.reason = "new firmware", .setRealtimeNs = 5});
  EXPECT_EQ(LastBefore(MadeEntry(6, 2e6)), third);
  EXPECT_EQ(LastBefore(MadeEntry(5, 2e6)), second);
  EXPECT_EQ(LastBefore(MadeEntry(4, 2e6)), std::nullopt);
  EXPECT_TRUE(ledger.RemoveLevel(second));
  EXPECT_FALSE(ledger.RemoveLevel(second));
  EXPECT_EQ(LastBefore(MadeEntry(4, 2e6)), first);
}

TEST_F(LedgerTest, ForgetsARunWithAllThatHangsOnIt) {
  RunEntry run = MadeEntry(3, 1e6);
  run.metrics = {{.output = "p", .metric = "top 1", .value = 1, .expected = {}}};
  run.level = RunLevel{.reason = "why", .setRealtimeNs = 9};
  const int64_t id = AddOne(run);
  const int64_t stays = AddOne(MadeEntry(4, 1e6));
  Ledger ledger = Ledger::ForChanging(Path());
  ledger.Remove(std::vector<int64_t>{id});
  EXPECT_TRUE(ledger.Shrink());
  EXPECT_THROW((void)ledger.Get(id), Fault);
  EXPECT_EQ(ledger.Get(stays).id, stays);
  const Database database(Path(), DatabaseUse::kRead);
  EXPECT_EQ(database.Integer("SELECT count(*) FROM metrics"), 0);
  EXPECT_EQ(database.Integer("SELECT count(*) FROM times"), 1);
  EXPECT_EQ(database.Integer("SELECT count(*) FROM levels"), 0);
  // A number that a person noted never means another run.
  EXPECT_GT(AddOne(run), stays);
}

// As on a full disk: no file can grow beyond so many bytes, and to make one smaller all of it is
// written anew.
TEST_F(LedgerTest, StaysAsLargeAsItIsWhereThereIsNoRoom) {
  std::vector<int64_t> ids;
  for (unsigned day = 1; day <= 60; ++day) ids.push_back(AddOne(MadeEntry(day, 1e6)));
  Ledger ledger = Ledger::ForChanging(Path());
  ledger.Remove(std::span(ids).first(40));
  const auto size = std::filesystem::file_size(Path());
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  const rlimit little{4096, before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &little), 0);
  const bool isSmaller = ledger.Shrink();
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
  (void)std::signal(SIGXFSZ, handler);
  EXPECT_FALSE(isSmaller);
  EXPECT_EQ(std::filesystem::file_size(Path()), size);
  EXPECT_TRUE(ledger.Shrink());
  EXPECT_LT(std::filesystem::file_size(Path()), size);
  EXPECT_EQ(ledger.Get(ids.back()).id, ids.back());
}

TEST_F(LedgerTest, SaysThatThereIsNone) {
  for (const auto open : {Ledger::ForReading, Ledger::ForChanging}) {
    try {
      (void)open(Path());
      FAIL();
    } catch (const Fault& fault) {
      EXPECT_EQ(fault.Status(), ExitStatus::kInput);
      EXPECT_THAT(fault.what(), HasSubstr("there is no history at"));
    }
  }
  EXPECT_FALSE(std::filesystem::exists(Path()));
}

TEST_F(LedgerTest, SaysWhatIsCutShort) {
  for (unsigned day = 1; day <= 30; ++day) AddOne(MadeEntry(day, 1e6));
  const std::string whole = support::ReadFile(Path());
  for (size_t size = 1; size < whole.size(); size += 977) {
    support::WriteFile(Path(), whole.substr(0, size));
    try {
      size_t runs = 0;
      Read().ForEach({}, RunDetail::kAll, [&](const RunEntry&) { ++runs; });
      FAIL() << "of " << size << " bytes " << runs << " runs came";
    } catch (const Fault& fault) {
      EXPECT_EQ(fault.Status(), ExitStatus::kInput) << size;
      EXPECT_THAT(fault.what(),
                  testing::AnyOf(HasSubstr("is damaged"), HasSubstr("is no database")));
    }
  }
}

TEST_F(LedgerTest, SaysWhatWasPutIntoAFile) {
  const int64_t id = AddOne(MadeEntry(3, 1e6));
  Database(Path(), DatabaseUse::kWrite).Run("UPDATE times SET later = x'80'");
  try {
    (void)Read().Get(id);
    FAIL();
  } catch (const Fault& fault) {
    EXPECT_THAT(fault.what(), HasSubstr("the times of run 1 cannot be read"));
  }
}

TEST(OutcomeOf, GoesByStateThenByVerdict) {
  EXPECT_EQ(OutcomeOf("done", "right"), RunOutcome::kRight);
  EXPECT_EQ(OutcomeOf("done", "wrong"), RunOutcome::kWrong);
  EXPECT_EQ(OutcomeOf("done", ""), RunOutcome::kNotJudged);
  EXPECT_EQ(OutcomeOf("done", "partial"), RunOutcome::kNotJudged);
  EXPECT_EQ(OutcomeOf("failed", "right"), RunOutcome::kFailed);
  EXPECT_EQ(OutcomeOf("running", "right"), RunOutcome::kUnfinished);
  EXPECT_EQ(OutcomeOf("interrupted", ""), RunOutcome::kUnfinished);
  EXPECT_EQ(OutcomeOf("", ""), RunOutcome::kUnfinished);
}

}  // namespace
}  // namespace vorn::kit
