#include "kit/fleet/slurm_task.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>

#include "kit/fleet/fleet_state.h"
#include "kit/fleet/made_fleet.h"

namespace {

using fleet_test::MadeFleet;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using vorn::kit::ArrayChunksFile;
using vorn::kit::Blame;
using vorn::kit::ExitStatus;
using vorn::kit::Fault;
using vorn::kit::JournalEvent;
using vorn::kit::JournalRecord;
using vorn::kit::ReadArrayChunks;
using vorn::kit::ReadJournals;
using vorn::kit::RunSlurmTask;

class SlurmTaskTest : public testing::Test {
 protected:
  SlurmTaskTest() { AsSlurm("1", "b2"); }
  ~SlurmTaskTest() override { AsSlurm(nullptr, nullptr); }

  /// What Slurm tells a task.
  static void AsSlurm(const char* task, const char* node) {
    task != nullptr ? setenv("SLURM_ARRAY_TASK_ID", task, 1) : unsetenv("SLURM_ARRAY_TASK_ID");
    node != nullptr ? setenv("SLURMD_NODENAME", node, 1) : unsetenv("SLURMD_NODENAME");
  }

  void Chunks(const std::string& lines) const {
    support::WriteFile(ArrayChunksFile(fleet_.Folder(), 1, 0), lines);
  }

  ExitStatus RunTask() const {
    return RunSlurmTask({.fleet = fleet_.Folder(), .round = 1, .array = 0, .tasks = 2});
  }

  std::string Refusal() const {
    try {
      (void)RunTask();
    } catch (const Fault& fault) {
      return fault.what();
    }
    return "";
  }

  std::vector<JournalRecord> Records() const {
    std::vector<JournalRecord> records;
    ReadJournals(fleet_.Folder(), [&](const JournalRecord& record) { records.push_back(record); });
    return records;
  }

  MadeFleet fleet_{8, 2};
};

TEST_F(SlurmTaskTest, IsStartedBySlurmAlone) {
  Chunks("0\n1\n");
  AsSlurm(nullptr, "b1");
  EXPECT_THAT(Refusal(), HasSubstr("SLURM_ARRAY_TASK_ID is ''"));
  AsSlurm("1x", "b1");
  EXPECT_THAT(Refusal(), HasSubstr("SLURM_ARRAY_TASK_ID is '1x'"));
  AsSlurm("1", nullptr);
  EXPECT_THAT(Refusal(), HasSubstr("SLURMD_NODENAME is ''"));
  AsSlurm("1", "../b1");
  EXPECT_THAT(Refusal(), HasSubstr("SLURMD_NODENAME is '../b1'"));
}

TEST_F(SlurmTaskTest, DoesNothingAgainThatIsDone) {
  Chunks("0\n1\n2\n3\n");
  fleet_.AllDone();
  const std::vector<JournalRecord> before = Records();
  EXPECT_EQ(RunTask(), ExitStatus::kDone);
  EXPECT_EQ(Records(), before);
}

// It is queued again: what it was at when it was cut off has an end now, and goes to another node.
TEST_F(SlurmTaskTest, NotesWhatItWasAtWhenItWasCutOff) {
  Chunks("0\n1\n2\n3\n");
  for (const uint64_t chunk : {0, 2}) fleet_.Attempt(chunk, 1);
  fleet_.Attempt(3, 1);
  JournalRecord begin;
  begin.event = JournalEvent::kBegin;
  begin.realtimeNs = 5'000'000'000;
  begin.board = "b2";
  begin.slot = 1;
  begin.chunk = 1;
  begin.attempt = 1;
  fleet_.Note(begin);
  begin.chunk = 2;  // another task is at it
  begin.attempt = 2;
  fleet_.Note(begin);
  EXPECT_EQ(RunTask(), ExitStatus::kDone);
  std::vector<uint64_t> lost;
  for (const JournalRecord& record : Records()) {
    if (record.event != JournalEvent::kEnd || record.blame != Blame::kUnknown) continue;
    EXPECT_THAT(record.reason, HasSubstr("Slurm started its job again"));
    lost.push_back(record.chunk.value_or(99));
  }
  EXPECT_THAT(lost, ElementsAre(1U));
  const auto state = vorn::kit::ReadFleetState(fleet_.Folder(), fleet_.Plan());
  EXPECT_THAT(state.chunks[1].failed, ElementsAre("b2"));
}

TEST_F(SlurmTaskTest, HasTheLastWordWhereTheClockOfItsNodeIsBehind) {
  Chunks("0\n1\n");
  JournalRecord record;
  record.event = JournalEvent::kBegin;
  record.realtimeNs = uint64_t{1} << 62;
  record.board = "b2";
  record.chunk = 1;
  record.attempt = 1;
  fleet_.Note(record);
  record.event = JournalEvent::kBack;
  record.attempt = 0;
  fleet_.Note(record);
  fleet_.Attempt(1, 2);
  EXPECT_EQ(RunTask(), ExitStatus::kDone);
  EXPECT_THAT(Records().back().reason, HasSubstr("Slurm started its job again"));
  EXPECT_GT(Records().back().realtimeNs, uint64_t{1} << 62);
  const auto state = vorn::kit::ReadFleetState(fleet_.Folder(), fleet_.Plan());
  EXPECT_THAT(state.chunks[1].failed, ElementsAre("b2"));
}

TEST_F(SlurmTaskTest, GivesNothingToANodeThatIsAside) {
  Chunks("0\n1\n2\n3\n");
  JournalRecord aside;
  aside.event = JournalEvent::kAside;
  aside.realtimeNs = 1;
  aside.board = "b2";
  fleet_.Note(aside);
  EXPECT_EQ(RunTask(), ExitStatus::kDone);
  EXPECT_EQ(Records().size(), 1U);
}

TEST_F(SlurmTaskTest, HasAListOfChunks) {
  EXPECT_THAT(Refusal(), HasSubstr("chunks.0.txt"));
  Chunks("0\n-1\n");
  EXPECT_THAT(Refusal(), HasSubstr("holds what is no chunk"));
  Chunks("3\n1\n");
  EXPECT_THAT(ReadArrayChunks(ArrayChunksFile(fleet_.Folder(), 1, 0)), ElementsAre(3U, 1U));
  Chunks("");
  EXPECT_THAT(ReadArrayChunks(ArrayChunksFile(fleet_.Folder(), 1, 0)), IsEmpty());
}

}  // namespace
