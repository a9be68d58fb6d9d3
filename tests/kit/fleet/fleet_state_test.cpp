#include "kit/fleet/fleet_state.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/files.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using vorn::kit::AttemptOutcome;
using vorn::kit::Blame;
using vorn::kit::BoardState;
using vorn::kit::ChunkState;
using vorn::kit::ChunkStatus;
using vorn::kit::FleetPlan;
using vorn::kit::FleetState;
using vorn::kit::Journal;
using vorn::kit::JournalEvent;
using vorn::kit::JournalRecord;

constexpr auto kDone = AttemptOutcome::kDone;
constexpr auto kPartial = AttemptOutcome::kPartial;
constexpr auto kFailed = AttemptOutcome::kFailed;

/// Chunks of ten inferences, and what is told of them, a nanosecond apart.
class State : public testing::Test {
 protected:
  State() {
    plan_.inferences = 30;
    for (uint64_t first = 0; first < plan_.inferences; first += 10) {
      plan_.chunks.push_back({.first = first, .inferences = 10, .inputsAt = 0, .pathsAt = 0});
    }
  }

  void Take(JournalRecord record) {
    record.realtimeNs = ++now_;
    TakeRecord(record, plan_, state_);
  }

  void Event(JournalEvent event, const std::string& board, std::optional<uint64_t> chunk = {},
             uint64_t attempt = 0, const std::string& reason = "") {
    JournalRecord record;
    record.event = event;
    record.board = board;
    record.chunk = chunk;
    record.attempt = attempt;
    record.reason = reason;
    Take(record);
  }

  void Begin(const std::string& board, std::optional<uint64_t> chunk, uint64_t attempt = 1) {
    Event(JournalEvent::kBegin, board, chunk, attempt);
  }

  struct End {
    AttemptOutcome outcome = kDone;
    Blame blame = Blame::kNobody;
    uint64_t done = 10;
    std::string reason{};
    std::string outputs{};
    JournalEvent event = JournalEvent::kEnd;
  };

  void Ended(const std::string& board, std::optional<uint64_t> chunk, uint64_t attempt,
             const End& end) {
    JournalRecord record;
    record.event = end.event;
    record.board = board;
    record.chunk = chunk;
    record.attempt = attempt;
    record.outcome = end.outcome;
    record.blame = end.blame;
    record.done = end.done;
    record.reason = end.reason;
    record.outputs = end.outputs;
    record.phases = {{"connect", 5}, {"launch", 1000}};
    Take(record);
  }

  void Attempt(const std::string& board, uint64_t chunk, uint64_t attempt, const End& end) {
    Begin(board, chunk, attempt);
    Ended(board, chunk, attempt, end);
  }

  void Fails(const std::string& board, uint64_t chunk, uint64_t attempt, Blame blame) {
    Attempt(board, chunk, attempt,
            {.outcome = kFailed, .blame = blame, .done = 0, .reason = board});
  }

  void Checked(const std::string& board, const std::string& outputs) {
    Ended(board, {}, 1, {.outputs = outputs});
  }

  const ChunkState& Chunk(uint64_t chunk) {
    Settle(plan_, state_);
    return state_.chunks[chunk];
  }

  ChunkStatus StatusOf(uint64_t chunk) { return Chunk(chunk).status; }
  const BoardState& Board(const std::string& name) { return state_.boards[name]; }

  FleetPlan plan_;
  FleetState state_;
  uint64_t now_ = 0;
};

// ---- Chunks -------------------------------------------------------------------------------------

TEST_F(State, OfNothingIsAllToDo) {
  Settle(plan_, state_);
  EXPECT_EQ(state_.CountOf(ChunkStatus::kToDo), 3U);
  EXPECT_EQ(state_.Done(), 0U);
}

TEST_F(State, RunsUntilItEnds) {
  Begin("b1", 1);
  EXPECT_EQ(StatusOf(1), ChunkStatus::kRunning);
  EXPECT_THAT(Chunk(1).running, ElementsAre("b1"));
  Ended("b1", 1, 1, {});
  EXPECT_EQ(StatusOf(1), ChunkStatus::kDone);
  EXPECT_THAT(Chunk(1).running, IsEmpty());
  EXPECT_EQ(Chunk(1).attempt, 1U);
  EXPECT_EQ(state_.CountOf(ChunkStatus::kDone), 1U);
  EXPECT_EQ(state_.Done(), 10U);
}

TEST_F(State, GivesAChunkUpThatTwoBoardsFail) {
  Fails("b1", 0, 1, Blame::kUnknown);
  EXPECT_EQ(StatusOf(0), ChunkStatus::kToDo);
  Fails("b1", 0, 2, Blame::kUnknown);
  EXPECT_EQ(StatusOf(0), ChunkStatus::kToDo);  // the same board again
  Fails("b2", 0, 3, Blame::kUnknown);
  EXPECT_EQ(StatusOf(0), ChunkStatus::kAside);
  EXPECT_EQ(Chunk(0).attempts, 3U);
  EXPECT_EQ(Chunk(0).reason, "b2");
  EXPECT_EQ(StatusOf(1), ChunkStatus::kToDo);
}

TEST_F(State, DoesNotHoldAgainstAChunkWhatABoardDid) {
  for (const char* board : {"b1", "b2", "b3"}) Fails(board, 0, 1, Blame::kBoard);
  for (const char* board : {"b1", "b2", "b3"}) Fails(board, 1, 1, Blame::kNobody);
  EXPECT_EQ(StatusOf(0), ChunkStatus::kToDo);
  EXPECT_EQ(Chunk(0).reason, "b3");
  EXPECT_EQ(StatusOf(1), ChunkStatus::kToDo);
}

TEST_F(State, KeepsTheMostOfAChunkWhoseSamplesEndTheirProcess) {
  Attempt("b1", 0, 1, {.outcome = kPartial, .blame = Blame::kSamples, .done = 8, .reason = "two"});
  EXPECT_EQ(StatusOf(0), ChunkStatus::kToDo);
  EXPECT_EQ(state_.Done(), 8U);
  Attempt("b2", 0, 2,
          {.outcome = kPartial, .blame = Blame::kSamples, .done = 7, .reason = "three"});
  EXPECT_EQ(StatusOf(0), ChunkStatus::kPartial);
  EXPECT_EQ(Chunk(0).attempt, 1U);
  EXPECT_EQ(Chunk(0).reason, "three");
  EXPECT_EQ(state_.Done(), 8U);
}

TEST_F(State, IsDoneByAnotherBoardThatCan) {
  Attempt("b1", 0, 1, {.outcome = kPartial, .blame = Blame::kSamples, .done = 8, .reason = "two"});
  Attempt("b2", 0, 2, {});
  EXPECT_EQ(StatusOf(0), ChunkStatus::kDone);
  EXPECT_EQ(Chunk(0).attempt, 2U);
  EXPECT_EQ(Chunk(0).reason, "");
}

TEST_F(State, StaysDoneWhenASecondAttemptComesIn) {
  Attempt("b1", 0, 1, {});
  Attempt("b2", 0, 2, {});
  Attempt("b3", 0, 3, {.outcome = kPartial, .blame = Blame::kUnknown, .done = 4});
  EXPECT_EQ(StatusOf(0), ChunkStatus::kDone);
  EXPECT_EQ(Chunk(0).attempt, 1U);
}

TEST_F(State, IsToDoAgainWhenItsOutputsAreLost) {
  Attempt("b1", 0, 1, {});
  Event(JournalEvent::kLost, "b1", 0, 1, "output 'x' has changed");
  EXPECT_EQ(StatusOf(0), ChunkStatus::kToDo);
  EXPECT_EQ(state_.Done(), 0U);
}

TEST_F(State, FallsBackOnWhatElseIsThereWhenOutputsAreLost) {
  Attempt("b1", 0, 1, {});
  Attempt("b2", 0, 2, {});
  Event(JournalEvent::kLost, "b1", 0, 1);
  EXPECT_EQ(StatusOf(0), ChunkStatus::kDone);
  EXPECT_EQ(Chunk(0).attempt, 2U);
  Attempt("b1", 1, 1, {.outcome = kPartial, .blame = Blame::kSamples, .done = 8});
  Attempt("b2", 1, 2, {.outcome = kPartial, .blame = Blame::kSamples, .done = 7});
  Event(JournalEvent::kLost, "b1", 1, 1);
  EXPECT_EQ(StatusOf(1), ChunkStatus::kPartial);
  EXPECT_EQ(Chunk(1).attempt, 2U);
  EXPECT_EQ(Chunk(1).done, 7U);
}

TEST_F(State, OfAnAttemptThatNobodyIsAtIsToDo) {
  Begin("b1", 0);
  Begin("b2", 0, 2);
  Event(JournalEvent::kLost, "b1", 0, 0);
  EXPECT_EQ(StatusOf(0), ChunkStatus::kRunning);
  Event(JournalEvent::kLost, "b2", 0, 0);
  EXPECT_EQ(StatusOf(0), ChunkStatus::kToDo);
}

TEST_F(State, TakesWhatWasFoundForDone) {
  Begin("b1", 0);
  Ended("b1", 0, 1, {.event = JournalEvent::kFound});
  EXPECT_EQ(StatusOf(0), ChunkStatus::kDone);
  EXPECT_EQ(Board("b1").done, 1U);
}

TEST_F(State, TriesAChunkAgainThatIsBack) {
  Fails("b1", 0, 1, Blame::kUnknown);
  Fails("b2", 0, 2, Blame::kUnknown);
  Event(JournalEvent::kBack, "", 0);
  EXPECT_EQ(StatusOf(0), ChunkStatus::kToDo);
  Fails("b1", 0, 3, Blame::kUnknown);
  EXPECT_EQ(StatusOf(0), ChunkStatus::kToDo);
  Fails("b2", 0, 4, Blame::kUnknown);
  EXPECT_EQ(StatusOf(0), ChunkStatus::kAside);
}

TEST_F(State, PassesOverChunksThatThePlanHasNot) {
  Attempt("b1", 3, 1, {});
  Attempt("b1", UINT64_MAX, 1, {});
  Settle(plan_, state_);
  EXPECT_EQ(state_.chunks.size(), 3U);
  EXPECT_EQ(state_.Done(), 0U);
}

// ---- Boards -------------------------------------------------------------------------------------

TEST_F(State, CountsWhatBoardsFailInARow) {
  Fails("b1", 0, 1, Blame::kBoard);
  Fails("b1", 1, 1, Blame::kUnknown);
  EXPECT_EQ(Board("b1").failuresInARow, 2U);
  Fails("b1", 2, 1, Blame::kNobody);  // somebody stopped it
  EXPECT_EQ(Board("b1").failuresInARow, 2U);
  Attempt("b1", 0, 2, {.outcome = kPartial, .blame = Blame::kSamples, .done = 8});
  EXPECT_EQ(Board("b1").failuresInARow, 2U);  // samples are no fault of the board
  EXPECT_EQ(Board("b1").failed, 3U);
  Attempt("b1", 1, 2, {});
  EXPECT_EQ(Board("b1").failuresInARow, 0U);
  EXPECT_EQ(Board("b1").samples, 18U);
  EXPECT_EQ(Board("b1").done, 1U);
}

TEST_F(State, PutsABoardAsideUntilItIsBack) {
  Fails("b1", 0, 1, Blame::kBoard);
  Event(JournalEvent::kAside, "b1", {}, 0, "no connection");
  EXPECT_TRUE(Board("b1").isAside);
  EXPECT_EQ(Board("b1").reason, "no connection");
  Event(JournalEvent::kBack, "b1");
  EXPECT_FALSE(Board("b1").isAside);
  EXPECT_EQ(Board("b1").failuresInARow, 0U);
}

TEST_F(State, KnowsHowLongBoardsTake) {
  for (int i = 0; i < 70; ++i) Attempt("b1", 0, 1, {});
  EXPECT_EQ(Board("b1").sampleNs, std::vector<double>(64, 100.0));
  EXPECT_EQ(Board("b1").busyNs, 70U * 1005);
  EXPECT_EQ(Board("b1").phases.at("launch"), 70000U);
  EXPECT_EQ(Board("b1").firstNs, 1U);
  EXPECT_EQ(Board("b1").lastNs, 140U);
}

// ---- The cross-check ----------------------------------------------------------------------------

TEST_F(State, NamesNoBoardWhereAllAgree) {
  EXPECT_THAT(DisagreeingBoards(state_), IsEmpty());
  Checked("b1", "x");
  Checked("b2", "x");
  Begin("b3", 0);  // not checked yet
  EXPECT_THAT(DisagreeingBoards(state_), IsEmpty());
  EXPECT_EQ(Board("b1").checked, 1U);
  EXPECT_EQ(Board("b1").done, 0U);  // it is no chunk
}

TEST_F(State, NamesTheBoardsThatDifferFromMost) {
  Checked("b1", "y");
  Checked("b2", "x");
  Checked("b3", "x");
  EXPECT_THAT(DisagreeingBoards(state_), ElementsAre("b1"));
}

TEST_F(State, NamesAllButTheFirstWhereNoSideHasMost) {
  Checked("b2", "y");
  Checked("b1", "x");
  EXPECT_THAT(DisagreeingBoards(state_), ElementsAre("b2"));
  Checked("b3", "z");
  Checked("b4", "z");  // two of four are not most
  EXPECT_THAT(DisagreeingBoards(state_), ElementsAre("b2", "b3", "b4"));
}

TEST_F(State, ForgetsACheckThatIsLost) {
  Checked("b1", "x");
  Checked("b2", "y");
  Event(JournalEvent::kLost, "b2", {}, 2);  // another one
  EXPECT_THAT(DisagreeingBoards(state_), ElementsAre("b2"));
  Event(JournalEvent::kLost, "b2", {}, 1);
  EXPECT_THAT(DisagreeingBoards(state_), IsEmpty());
  EXPECT_FALSE(Board("b2").checked);
}

// ---- From files ---------------------------------------------------------------------------------

// Whoever goes on with a fleet says that a board is back, in a file whose name comes behind.
TEST_F(State, IsThatOfTheLastWordWhoeverSaidIt) {
  const support::TempDir folder;
  JournalRecord aside;
  aside.event = JournalEvent::kAside;
  aside.board = "b1";
  aside.realtimeNs = 1;
  JournalRecord back = aside;
  back.event = JournalEvent::kBack;
  back.realtimeNs = 2;
  Journal(folder.Path(), "board-b1-1").Note(aside);
  Journal(folder.Path(), "control").Note(back);
  EXPECT_FALSE(ReadFleetState(folder.Path(), plan_).boards["b1"].isAside);
  aside.realtimeNs = 3;
  Journal(folder.Path(), "board-b1-1").Note(aside);
  EXPECT_TRUE(ReadFleetState(folder.Path(), plan_).boards["b1"].isAside);
}

// Its records come as it noted them, and not as its clock has it.
TEST_F(State, IsThatOfTheLastWordOfAWriterWhoseClockWasPutBack) {
  const support::TempDir folder;
  JournalRecord record;
  record.event = JournalEvent::kBegin;
  record.board = "b1";
  record.chunk = 0;
  record.attempt = 1;
  record.realtimeNs = 9;
  Journal journal(folder.Path(), "board-b1-1");
  journal.Note(record);
  record.event = JournalEvent::kEnd;
  record.outcome = AttemptOutcome::kFailed;
  record.realtimeNs = 3;
  journal.Note(record);
  const FleetState state = ReadFleetState(folder.Path(), plan_);
  EXPECT_THAT(state.chunks.at(0).running, IsEmpty());
  EXPECT_EQ(state.lastNs, 9U);
}

// A board that was put aside before the clock was put back has another chance all the same.
TEST_F(State, IsThatOfTheLastWordWhereItIsShiftedBehindTheOthers) {
  const support::TempDir folder;
  JournalRecord aside;
  aside.event = JournalEvent::kAside;
  aside.board = "b1";
  aside.realtimeNs = 1000;
  Journal(folder.Path(), "board-b1-1").Note(aside);
  JournalRecord back = aside;
  back.event = JournalEvent::kBack;
  back.realtimeNs = 20;
  Journal control(folder.Path(), "control");
  control.Shift(vorn::kit::ShiftBehind(1000, 20));
  control.Note(back);
  const FleetState state = ReadFleetState(folder.Path(), plan_);
  EXPECT_FALSE(state.boards.at("b1").isAside);
  EXPECT_EQ(state.lastNs, 1001U);
  EXPECT_EQ(vorn::kit::ShiftBehind(1000, 1000), 1U);
  EXPECT_EQ(vorn::kit::ShiftBehind(1000, 1001), 0U);
}

TEST_F(State, CountsLinesThatAreTorn) {
  const support::TempDir folder;
  support::WriteFile(folder.Path() / "journal/b.jsonl", "{\"event\":\"beg\n");
  const FleetState state = ReadFleetState(folder.Path(), plan_);
  EXPECT_EQ(state.unreadableLines, 1U);
  EXPECT_EQ(state.CountOf(ChunkStatus::kToDo), 3U);
}

}  // namespace
