#include "kit/fleet/lost_attempts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "kit/fleet/fleet_state.h"
#include "support/files.h"

namespace {

namespace fs = std::filesystem;

using testing::ElementsAre;
using testing::IsEmpty;
using vorn::kit::AttemptOutcome;
using vorn::kit::Blame;
using vorn::kit::Journal;
using vorn::kit::JournalEvent;
using vorn::kit::JournalRecord;
using vorn::kit::NoteLostAttempts;
using vorn::kit::ReadJournals;

class LostAttempts : public testing::Test {
 protected:
  std::string Fleet() const { return folder_.Path(); }

  void Note(JournalEvent event, const std::string& board, std::optional<uint64_t> chunk,
            uint64_t attempt) const {
    JournalRecord record;
    record.event = event;
    record.realtimeNs = 1;
    record.board = board;
    record.chunk = chunk;
    record.attempt = attempt;
    Journal(Fleet(), "board-" + board).Note(record);
  }

  /// "b1 0/1" of each end that was noted: its board, chunk or "cross", and attempt.
  std::vector<std::string> NoteLost(const std::function<bool(const JournalRecord&)>& isLost) const {
    Journal journal(Fleet(), "control");
    NoteLostAttempts(Fleet(), "gone", isLost, journal);
    std::vector<std::string> lost;
    ReadJournals(Fleet(), [&](const JournalRecord& record) {
      if (record.reason != "gone") return;
      EXPECT_EQ(record.event, JournalEvent::kEnd);
      EXPECT_EQ(record.outcome, AttemptOutcome::kFailed);
      EXPECT_EQ(record.blame, Blame::kUnknown);
      EXPECT_GT(record.realtimeNs, 1U);
      lost.push_back(record.board + " " +
                     (record.chunk ? std::to_string(*record.chunk) : std::string("cross")) + "/" +
                     std::to_string(record.attempt));
    });
    return lost;
  }

 private:
  support::TempDir folder_;
};

TEST_F(LostAttempts, AreThoseThatBeganAndDidNotEnd) {
  Note(JournalEvent::kBegin, "b1", 0, 1);
  Note(JournalEvent::kEnd, "b1", 0, 1);
  Note(JournalEvent::kBegin, "b1", 0, 2);
  Note(JournalEvent::kBegin, "b2", 3, 1);
  Note(JournalEvent::kBegin, "b2", {}, 1);
  EXPECT_THAT(NoteLost([](const JournalRecord&) { return true; }),
              ElementsAre("b1 0/2", "b2 3/1", "b2 cross/1"));
  // They have their end now.
  Journal journal(Fleet(), "control");
  NoteLostAttempts(
      Fleet(), "once more", [](const JournalRecord&) { return true; }, journal);
  ReadJournals(Fleet(), [](const JournalRecord& record) { EXPECT_NE(record.reason, "once more"); });
}

TEST_F(LostAttempts, AreThoseAloneThatNobodyIsAt) {
  Note(JournalEvent::kBegin, "b1", 0, 1);
  Note(JournalEvent::kBegin, "b2", 1, 1);
  EXPECT_THAT(NoteLost([](const JournalRecord& begin) { return begin.chunk == 1U; }),
              ElementsAre("b2 1/1"));
}

TEST_F(LostAttempts, AreNotThoseThatWereFoundOrLostBefore) {
  Note(JournalEvent::kBegin, "b1", 0, 1);
  Note(JournalEvent::kFound, "b1", 0, 1);
  Note(JournalEvent::kBegin, "b1", 0, 2);
  Note(JournalEvent::kLost, "b1", 0, 2);
  EXPECT_THAT(NoteLost([](const JournalRecord&) { return true; }), IsEmpty());
}

TEST_F(LostAttempts, LeaveNothingBehindThatIsNotWhole) {
  Note(JournalEvent::kBegin, "b1", 0, 1);
  const std::string folder = vorn::kit::ChunkFolder(Fleet(), 0);
  support::WriteFile(folder + "/1.part/run/run.json", "{}");
  support::WriteFile(folder + "/2.part/run/run.json", "{}");
  support::WriteFile(folder + "/1/run.json", "{}");
  EXPECT_THAT(NoteLost([](const JournalRecord&) { return true; }), ElementsAre("b1 0/1"));
  EXPECT_FALSE(fs::exists(folder + "/1.part"));
  EXPECT_TRUE(fs::exists(folder + "/2.part"));  // of one that nobody knows of here
  EXPECT_TRUE(fs::exists(folder + "/1"));
}

}  // namespace
