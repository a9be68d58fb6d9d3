#include "kit/ledger/schema.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <barrier>
#include <string>
#include <thread>
#include <vector>

#include "kit/common/fault.h"
#include "kit/ledger/ledger.h"
#include "support/files.h"

namespace vorn::kit {
namespace {

using testing::HasSubstr;

class Schema : public testing::Test {
 protected:
  std::string Path() const { return folder_.Path() / "history.sqlite"; }

  // A file of that version as its program left it, by the text that is kept of it.
  void Make(int version) const {
    Database database(Path(), DatabaseUse::kMake);
    database.Run(support::ReadFile(std::string(VORN_SCHEMAS_FOLDER) + "/version_" +
                                   std::to_string(version) + ".sql"));
  }

  std::string Refusal() const {
    try {
      (void)Ledger::ForReading(Path());
    } catch (const Fault& fault) {
      EXPECT_EQ(fault.Status(), ExitStatus::kInput);
      return fault.what();
    }
    return "none";
  }

  support::TempDir folder_;
};

class EarlierSchema : public Schema, public testing::WithParamInterface<int> {};

// Each of them holds the same run 3, but for what it had no place for.
TEST_P(EarlierSchema, IsBroughtUpToDateWithWhatItHolds) {
  Make(GetParam());
  Ledger ledger = Ledger::ForReading(Path());
  const RunEntry run = ledger.Get(3);
  EXPECT_EQ(run.identity, "0123456789abcdef0123456789abcdef");
  EXPECT_EQ(run.path, "/runs/first");
  EXPECT_EQ(run.board, "board7");
  EXPECT_EQ(run.startRealtimeNs, 1793491200000000000U);
  EXPECT_EQ(run.medianNs, 1250000.5);
  EXPECT_EQ(run.cores, 4U);
  EXPECT_EQ(run.loadAverage, std::nullopt);
  EXPECT_EQ(run.times.timesNs, (std::vector<uint64_t>{5, 300}));
  EXPECT_EQ(run.times.firstNs, (std::vector<uint64_t>{7}));
  ASSERT_EQ(run.metrics.size(), 1U);
  EXPECT_EQ(run.metrics[0].value, 0.97);
  EXPECT_EQ(run.level.has_value(), GetParam() >= 2);
  ledger = Ledger::ForChanging(Path());
  ledger.SetLevel(3, {.reason = "why", .setRealtimeNs = 5});
  EXPECT_EQ(ledger.Get(3).level->reason, "why");
  EXPECT_EQ(Database(Path(), DatabaseUse::kRead).Integer("PRAGMA user_version"), kSchemaVersion);
}

INSTANTIATE_TEST_SUITE_P(Each, EarlierSchema, testing::Range(1, int{kSchemaVersion} + 1));

TEST_F(Schema, IsAsItIsKeptOfEachVersion) {
  for (int version = 1; version <= kSchemaVersion; ++version) {
    Make(version);
    Database kept(Path(), DatabaseUse::kRead);
    EXPECT_NO_THROW((void)IsUpToDate(kept)) << version;
    std::filesystem::remove(Path());
  }
}

TEST_F(Schema, OfALaterProgramIsRefused) {
  Make(kSchemaVersion);
  Database(Path(), DatabaseUse::kWrite).Run("PRAGMA user_version = 99");
  EXPECT_THAT(Refusal(), HasSubstr("is of version 99, and this program knows up to 2"));
}

TEST_F(Schema, OfAnotherProgramIsRefused) {
  Database(Path(), DatabaseUse::kMake).Run("CREATE TABLE bookmarks(a)");
  EXPECT_THAT(Refusal(), HasSubstr("is a database of another program"));
  EXPECT_THROW((void)Ledger::ForWriting(Path()), Fault);
}

TEST_F(Schema, ThatWasChangedIsRefused) {
  Make(kSchemaVersion);
  Database(Path(), DatabaseUse::kWrite).Run("ALTER TABLE runs ADD COLUMN mood TEXT");
  EXPECT_THAT(Refusal(), HasSubstr("is damaged: its tables are not those of version 2"));
}

// Somebody's file may want to run something of its own.
TEST_F(Schema, WithATriggerIsRefused) {
  Make(kSchemaVersion);
  Database(Path(), DatabaseUse::kWrite)
      .Run("CREATE TRIGGER t AFTER INSERT ON runs BEGIN DELETE FROM runs; END");
  EXPECT_THAT(Refusal(), HasSubstr("is damaged: its tables"));
}

TEST_F(Schema, StaysTheOneThatItWasAfterAnalyze) {
  Make(kSchemaVersion);
  Database(Path(), DatabaseUse::kWrite).Run("ANALYZE");
  EXPECT_EQ(Refusal(), "none");
}

TEST_F(Schema, OfAnEmptyFileIsMadeByWhoWrites) {
  support::WriteFile(Path(), "");
  EXPECT_THAT(Refusal(), HasSubstr("is empty; vorn history add RUN... puts runs there"));
  (void)Ledger::ForWriting(Path());
  EXPECT_EQ(Refusal(), "none");
}

TEST_F(Schema, IsBroughtUpToDateWhollyOrNot) {
  Make(1);
  // The table that version 2 makes is there already, so that bringing it there fails.
  Database(Path(), DatabaseUse::kWrite).Run("CREATE TABLE levels(a)");
  EXPECT_THAT(Refusal(), HasSubstr("is damaged"));
  EXPECT_EQ(Database(Path(), DatabaseUse::kRead).Integer("PRAGMA user_version"), 1);
}

// Those that come second look at the file while its tables are made.
TEST_F(Schema, IsMadeByOneOfManyAtOnce) {
  constexpr int kRounds = 60;
  constexpr int kAtOnce = 4;
  for (int round = 0; round < kRounds; ++round) {
    const std::string path = Path() + std::to_string(round);
    std::barrier start(kAtOnce);
    std::array<std::string, kAtOnce> refusals;
    std::vector<std::jthread> threads;
    for (std::string& refusal : refusals) {
      threads.emplace_back([&] {
        start.arrive_and_wait();
        try {
          (void)Ledger::ForWriting(path);
        } catch (const Fault& fault) {
          refusal = fault.what();
        }
      });
    }
    threads.clear();
    EXPECT_THAT(refusals, testing::Each("")) << round;
  }
}

}  // namespace
}  // namespace vorn::kit
