#include "kit/fleet/status.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <utility>

#include "kit/fleet/made_fleet.h"
#include "kit/json/json.h"
#include "support/json_schema.h"

namespace {

using fleet_test::MadeAttempt;
using fleet_test::MadeFleet;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using vorn::kit::AttemptOutcome;
using vorn::kit::Blame;
using vorn::kit::FleetStatus;
using vorn::kit::JournalEvent;
using vorn::kit::JournalRecord;
using vorn::kit::Json;

constexpr uint64_t kSecond = 1'000'000'000;

JournalRecord Record(JournalEvent event, const std::string& board, std::optional<uint64_t> chunk,
                     uint64_t attempt, uint64_t second) {
  JournalRecord record;
  record.event = event;
  record.board = board;
  record.slot = 1;
  record.chunk = chunk;
  record.attempt = attempt;
  record.realtimeNs = second * kSecond;
  return record;
}

JournalRecord Begin(const std::string& board, uint64_t chunk, uint64_t attempt, uint64_t second) {
  return Record(JournalEvent::kBegin, board, chunk, attempt, second);
}

JournalRecord Done(const std::string& board, uint64_t chunk, uint64_t attempt, uint64_t second,
                   uint64_t done) {
  JournalRecord record = Record(JournalEvent::kEnd, board, chunk, attempt, second);
  record.outcome = AttemptOutcome::kDone;
  record.done = done;
  return record;
}

JournalRecord Failed(const std::string& board, uint64_t chunk, uint64_t attempt, uint64_t second,
                     const std::string& reason) {
  JournalRecord record = Record(JournalEvent::kEnd, board, chunk, attempt, second);
  record.outcome = AttemptOutcome::kFailed;
  record.blame = Blame::kUnknown;
  record.reason = reason;
  return record;
}

FleetStatus Read(const MadeFleet& fleet) {
  return vorn::kit::ReadFleetStatus(fleet.Folder(), fleet.Plan());
}

// As somebody sees it a second behind the last record.
std::string TextOf(const FleetStatus& status) {
  return StatusText(status, status.lastNotedNs.value_or(0) + kSecond);
}

Json JsonOf(const FleetStatus& status) {
  EXPECT_EQ(support::FaultBySchema("fleet_status", ToJson(status)), "");
  return vorn::kit::ParseJson(ToJson(status));
}

std::string Shown(const MadeFleet& fleet, bool isWatched, bool isJson) {
  testing::internal::CaptureStdout();
  EXPECT_EQ(
      vorn::kit::ShowStatus({.fleet = fleet.Folder(), .isWatched = isWatched, .isJson = isJson}),
      vorn::kit::ExitStatus::kDone);
  return testing::internal::GetCapturedStdout();
}

TEST(Status, TellsOfAFleetThatHasNotRun) {
  const MadeFleet fleet(10, 4);
  EXPECT_EQ(TextOf(Read(fleet)),
            "0 of 10 inferences (0.0 %); 0 of 3 chunks, 3 to do\nnothing has run yet\n");
  const Json status = JsonOf(Read(fleet));
  EXPECT_EQ(status.At("inferences").AsUnsigned(), 10U);
  EXPECT_EQ(status.At("chunksToDo").AsUnsigned(), 3U);
  EXPECT_EQ(status.Find("leftSeconds"), nullptr);
}

TEST(Status, TellsHowFastItIsAndWhatIsLeft) {
  const MadeFleet fleet(1000, 10);
  // b1 has two slots: 20 inferences in ten seconds. b2 takes as long for ten.
  fleet.Note(Begin("b1", 0, 1, 100));
  fleet.Note(Begin("b1", 1, 1, 100));
  fleet.Note(Begin("b2", 2, 1, 100));
  fleet.Note(Done("b1", 0, 1, 110, 10));
  fleet.Note(Done("b1", 1, 1, 110, 10));
  fleet.Note(Done("b2", 2, 1, 110, 10));
  fleet.Note(Begin("b1", 3, 1, 500));
  fleet.Note(Begin("b2", 4, 1, 500));
  const FleetStatus status = Read(fleet);
  EXPECT_EQ(status.done, 30U);
  EXPECT_DOUBLE_EQ(status.boards[0].samplesPerSecond.value_or(0), 2);
  EXPECT_DOUBLE_EQ(status.boards[1].samplesPerSecond.value_or(0), 1);
  EXPECT_DOUBLE_EQ(status.samplesPerSecond.value_or(0), 3);
  EXPECT_EQ(status.leftSeconds, 323U);  // 970 at 3 a second
  EXPECT_EQ(
      TextOf(status),
      "30 of 1000 inferences (3.0 %); 3 of 100 chunks, 2 running, 95 to do; 3.00/s, 5:23 left\n"
      "last noted 0:01 ago\n"
      "\n"
      "board  state    chunks  running  fetching  failed  inferences  a second  trouble\n"
      "b1     running       2        1         0       0          20      2.00\n"
      "b2     running       1        1         0       0          10      1.00\n");
  const Json json = JsonOf(status);
  EXPECT_EQ(json.At("leftSeconds").AsUnsigned(), 323U);
  EXPECT_EQ(json.At("boards").Items()[1].At("running").AsUnsigned(), 1U);
}

// A slot begins its next chunk while what came of the one before is on its way.
TEST(Status, TellsOfASlotThatItRunsOneChunkAtATime) {
  const MadeFleet fleet(40, 10);
  const auto beginAt = [&](uint64_t slot, uint64_t chunk, uint64_t second) {
    JournalRecord begin = Begin("b1", chunk, 1, second);
    begin.slot = slot;
    fleet.Note(begin);
  };
  beginAt(1, 0, 100);
  beginAt(1, 1, 110);
  FleetStatus status = Read(fleet);
  EXPECT_EQ(status.boards.at(0).running, 1U);
  EXPECT_EQ(status.boards.at(0).fetching, 1U);
  EXPECT_EQ(JsonOf(status).At("boards").Items()[0].At("fetching").AsUnsigned(), 1U);
  beginAt(2, 2, 111);
  status = Read(fleet);
  EXPECT_EQ(status.boards.at(0).running, 2U);
  EXPECT_EQ(status.boards.at(0).fetching, 1U);
  fleet.Note(Done("b1", 0, 1, 112, 10));
  status = Read(fleet);
  EXPECT_EQ(status.boards.at(0).running, 2U);
  EXPECT_EQ(status.boards.at(0).fetching, 0U);
}

TEST(Status, TakesABoardOfWhichNothingIsKnownForOneInTheMiddle) {
  const MadeFleet fleet(30, 10);
  fleet.Note(Begin("b1", 0, 1, 100));
  fleet.Note(Done("b1", 0, 1, 105, 10));
  fleet.Note(Begin("b2", 1, 1, 105));
  const FleetStatus status = Read(fleet);
  EXPECT_FALSE(status.boards[1].samplesPerSecond.has_value());
  EXPECT_DOUBLE_EQ(status.samplesPerSecond.value_or(0), 2);
  EXPECT_EQ(status.leftSeconds, 10U);
}

TEST(Status, TellsNoTimeWhereNothingRuns) {
  const MadeFleet fleet(30, 10);
  fleet.Note(Begin("b1", 0, 1, 100));
  fleet.Note(Done("b1", 0, 1, 105, 10));
  const FleetStatus status = Read(fleet);
  EXPECT_FALSE(status.leftSeconds.has_value());
  EXPECT_EQ(StatusLine(status), "10 of 30 inferences (33.3 %); 1 of 3 chunks, 2 to do");
}

TEST(Status, TellsWhatWasPutAsideAndWhy) {
  const MadeFleet fleet(30, 10);
  fleet.Note(Begin("b1", 1, 1, 100));
  fleet.Note(Failed("b1", 1, 1, 101, "took too long"));
  fleet.Note(Begin("b2", 1, 2, 102));
  fleet.Note(Failed("b2", 1, 2, 103, "its outputs\n\x1b[2Jdo not count"));
  fleet.Note(Begin("b1", 0, 1, 100));
  JournalRecord partial = Failed("b1", 0, 1, 101, "inference 3 ended by SIGSEGV");
  partial.outcome = AttemptOutcome::kPartial;
  partial.blame = Blame::kSamples;
  partial.done = 9;
  partial.notDone = 1;
  fleet.Note(partial);
  partial.board = "b2";
  partial.attempt = 2;
  fleet.Note(partial);
  JournalRecord aside = Record(JournalEvent::kAside, "b2", {}, 0, 104);
  aside.reason = "failed three times";
  fleet.Note(aside);
  const FleetStatus status = Read(fleet);
  EXPECT_EQ(status.aside, 11U);
  const std::string text = TextOf(status);
  EXPECT_THAT(text,
              StartsWith("9 of 30 inferences (30.0 %), 11 put aside; 0 of 3 chunks, 1 to do, 2 "
                         "put aside; 4 failed attempts\n"));
  EXPECT_THAT(text,
              AllOf(HasSubstr("b2     aside"), HasSubstr("failed three times\n"),
                    HasSubstr("chunk 0 (inferences 0 to 9) partial, 9 done on 'b1', 'b2': "
                              "inference 3 ended by SIGSEGV\n"),
                    HasSubstr("chunk 1 (inferences 10 to 19) aside on 'b1', 'b2': its outputs"),
                    Not(HasSubstr("\x1b"))));
  const Json json = JsonOf(status);
  ASSERT_EQ(json.At("left").Items().size(), 2U);
  EXPECT_EQ(json.At("left").Items()[0].At("status").AsText(), "partial");
  EXPECT_EQ(json.At("left").Items()[1].At("boards").Items().size(), 2U);
}

TEST(Status, NamesTheFirstOfManyChunksThatAreLeft) {
  const MadeFleet fleet(50, 1);
  for (uint64_t chunk = 0; chunk < 50; ++chunk) {
    fleet.Note(Failed("b1", chunk, 1, 100, "no"));
    fleet.Note(Failed("b2", chunk, 2, 100, "no"));
  }
  EXPECT_THAT(TextOf(Read(fleet)), AllOf(HasSubstr("chunk 19 "), Not(HasSubstr("chunk 20 ")),
                                         HasSubstr("\nand 30 more\n")));
  EXPECT_EQ(JsonOf(Read(fleet)).At("left").Items().size(), 50U);
}

TEST(Status, CountsLinesThatCannotBeRead) {
  const MadeFleet fleet(10, 10);
  fleet.Note(Begin("b1", 0, 1, 100));
  const std::string journal = fleet.Folder() + "/journal/writer.jsonl";
  std::string text = support::ReadFile(journal);
  text[20] ^= 1;
  support::WriteFile(journal, text);
  EXPECT_THAT(TextOf(Read(fleet)), HasSubstr("\n1 line of the journals cannot be read\n"));
}

TEST(Status, GoesByTheJournalsAlone) {
  const MadeFleet fleet(10, 5);
  fleet.AllDone();
  std::filesystem::remove_all(fleet.Folder() + "/chunks");
  std::filesystem::remove(fleet.Folder() + "/inputs.jsonl");
  EXPECT_THAT(Shown(fleet, false, false),
              StartsWith("10 of 10 inferences (100.0 %); 2 of 2 chunks\n"));
}

TEST(Status, PrintsALineWhereNobodyLooks) {
  const MadeFleet fleet(10, 5);
  fleet.AllDone();
  EXPECT_EQ(Shown(fleet, true, false), "10 of 10 inferences (100.0 %); 2 of 2 chunks\n");
  const std::string json = Shown(fleet, true, true);
  EXPECT_EQ(support::FaultBySchema("fleet_status", json), "");
  EXPECT_EQ(support::SplitLines(json).size(), 1U);
}

TEST(Status, WatchesUntilNothingRuns) {
  const MadeFleet fleet(10, 5);
  fleet.Attempt(0, 1);
  fleet.Note(Begin("b1", 1, 1, 100));
  testing::internal::CaptureStdout();
  auto watching = std::async(std::launch::async, [&] {
    return vorn::kit::ShowStatus({.fleet = fleet.Folder(), .isWatched = true, .isJson = false});
  });
  // However long this takes, it ends, and behind the last chunk.
  fleet.Note(Done("b1", 1, 1, 110, 5));
  EXPECT_EQ(watching.get(), vorn::kit::ExitStatus::kDone);
  const auto lines = support::SplitLines(testing::internal::GetCapturedStdout());
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines.back(), "10 of 10 inferences (100.0 %); 2 of 2 chunks");
}

// What stands on a terminal of 40 columns and 6 rows, as it came.
class Terminal {
 public:
  explicit Terminal(const std::string& fleet) {
    main_ = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    EXPECT_EQ(grantpt(main_), 0);
    EXPECT_EQ(unlockpt(main_), 0);
    const winsize size{.ws_row = 6, .ws_col = 40, .ws_xpixel = 0, .ws_ypixel = 0};
    const int side = open(ptsname(main_), O_RDWR | O_NOCTTY | O_CLOEXEC);
    EXPECT_EQ(ioctl(side, TIOCSWINSZ, &size), 0);
    child_ = fork();
    if (child_ == 0) {
      dup2(side, STDOUT_FILENO);
      setenv("TERM", "xterm", 1);
      (void)vorn::kit::ShowStatus({.fleet = fleet, .isWatched = true, .isJson = false});
      _exit(0);
    }
    close(side);
  }
  ~Terminal() {
    close(main_);
    if (child_ > 0) kill(child_, SIGKILL);
    waitpid(child_, nullptr, 0);
  }
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  /// Reads until that has come, or nothing comes any more.
  std::string ReadTo(const std::string& end) {
    std::array<char, 256> piece{};
    while (text_.find(end) == text_.npos) {
      const ssize_t got = read(main_, piece.data(), piece.size());
      if (got <= 0) break;
      text_.append(piece.data(), static_cast<size_t>(got));
    }
    return std::exchange(text_, "");
  }

 private:
  int main_ = -1;
  pid_t child_ = -1;
  std::string text_;
};

TEST(Status, IsDrawnInItsPlaceOnATerminal) {
  const MadeFleet fleet(1000, 500);
  for (const char* board : {"b1", "b2", "b\xc3\xa4r", "b4", "b5"}) {
    fleet.Note(Begin(board, 0, 1, 100));
    fleet.Note(Failed(board, 0, 1, 101, "a very long reason that goes beyond its line"));
  }
  fleet.Note(Begin("b1", 1, 1, 100));
  Terminal terminal(fleet.Folder());
  // Five lines of six, cut to 39 columns.
  const std::string first = terminal.ReadTo("\nb1 ");
  EXPECT_THAT(first, StartsWith("0 of 1000 inferences (0.0 %), 500 put a\r\nlast noted "));
  EXPECT_THAT(first, Not(HasSubstr("\x1b")));
  fleet.Note(Done("b1", 1, 1, 110, 500));
  const std::string next = terminal.ReadTo("500 of 1000");
  EXPECT_THAT(next, HasSubstr("\x1b[5A\r\x1b[J"));
  EXPECT_THAT(next, Not(HasSubstr("b4")));
  EXPECT_THAT(next + terminal.ReadTo("what never comes"), HasSubstr("\nlast noted"));  // it ends
}

TEST(Status, SaysThatThereIsNoFleet) {
  const support::TempDir folder;
  try {
    (void)vorn::kit::ShowStatus(
        {.fleet = folder.Path() / "fleet", .isWatched = false, .isJson = false});
    FAIL();
  } catch (const vorn::kit::Fault& fault) {
    EXPECT_EQ(fault.Status(), vorn::kit::ExitStatus::kInput);
    EXPECT_THAT(fault.what(), HasSubstr("is no folder of a fleet: there is no plan.json in it"));
  }
}

}  // namespace
