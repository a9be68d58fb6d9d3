#include "kit/fleet/journal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "kit/common/fault.h"
#include "kit/common/file_identity.h"
#include "kit/json/json.h"
#include "support/files.h"
#include "support/json_schema.h"

namespace {

namespace fs = std::filesystem;

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using vorn::kit::AttemptOutcome;
using vorn::kit::Blame;
using vorn::kit::Journal;
using vorn::kit::JournalEvent;
using vorn::kit::JournalFromLine;
using vorn::kit::JournalRecord;

JournalRecord Full() {
  return {.event = JournalEvent::kEnd,
          .realtimeNs = 1'700'000'000'000'000'001,
          .board = "b1",
          .slot = 2,
          .chunk = 7,
          .attempt = 3,
          .host = "rack \"1\"",
          .machineId = "0123",
          .bootId = "4567",
          .outcome = AttemptOutcome::kPartial,
          .blame = Blame::kSamples,
          .reason = "2 inferences not done",
          .done = 198,
          .notDone = 2,
          .outputs = "00112233445566778899aabbccddeeff",
          .phases = {{"connect", 1}, {"launch", 2}},
          .sentBytes = 11,
          .fetchedBytes = 12};
}

JournalRecord At(uint64_t ns, const std::string& board) {
  JournalRecord record;
  record.realtimeNs = ns;
  record.board = board;
  record.slot = 1;
  return record;
}

// Without the line's end, as readers of lines give it.
std::string Line(const JournalRecord& record) {
  std::string line = ToLine(record);
  line.pop_back();
  return line;
}

class Journals : public testing::Test {
 protected:
  std::string Fleet() const { return folder_.Path() / "fleet"; }
  std::string File(const std::string& name) const { return Fleet() + "/journal/" + name; }

  std::vector<std::string> Read() {
    std::vector<std::string> told;
    unreadable_ = vorn::kit::ReadJournals(Fleet(), [&](const JournalRecord& record) {
      told.push_back(record.board + std::to_string(record.realtimeNs));
    });
    return told;
  }

  support::TempDir folder_;
  uint64_t unreadable_ = 0;
};

// ---- Lines --------------------------------------------------------------------------------------

TEST(JournalLine, ComesBackAsItWas) {
  EXPECT_EQ(JournalFromLine(Line(Full())), Full());
  EXPECT_EQ(JournalFromLine(Line({})), JournalRecord{});
  for (const JournalEvent event :
       {JournalEvent::kBegin, JournalEvent::kEnd, JournalEvent::kFound, JournalEvent::kLost,
        JournalEvent::kAside, JournalEvent::kBack}) {
    JournalRecord record = At(5, "b");
    record.event = event;
    record.reason = "why";
    EXPECT_EQ(JournalFromLine(Line(record)), record);
  }
  for (const Blame blame : {Blame::kNobody, Blame::kBoard, Blame::kUnknown, Blame::kSamples}) {
    JournalRecord record = Full();
    record.blame = blame;
    EXPECT_EQ(JournalFromLine(Line(record)), record);
  }
}

TEST(JournalLine, IsWhatTheSchemaSays) {
  for (const JournalEvent event :
       {JournalEvent::kBegin, JournalEvent::kEnd, JournalEvent::kFound, JournalEvent::kLost,
        JournalEvent::kAside, JournalEvent::kBack}) {
    for (JournalRecord record : {JournalRecord{}, Full()}) {
      record.event = event;
      EXPECT_EQ(support::FaultBySchema("journal", Line(record)), "") << Line(record);
    }
  }
  // So that it can fail.
  EXPECT_NE(support::FaultBySchema("journal", "{}"), "");
  std::string other = Line(Full());
  other.replace(other.find("\"end\""), 5, "\"dne\"");
  EXPECT_THAT(support::FaultBySchema("journal", other), HasSubstr("event"));
}

TEST(JournalLine, IsOneLineWhateverIsSaid) {
  JournalRecord record = Full();
  record.reason = "first\nsecond\x1B[1m\xFF";
  const std::string line = ToLine(record);
  EXPECT_EQ(line.find('\n'), line.size() - 1);
  EXPECT_EQ(JournalFromLine(Line(record))->reason, "first\\x0Asecond\\x1B[1m\\xFF");
}

TEST(JournalLine, DoesNotVerifyWhereAByteWasLostOrChanged) {
  const std::string line = Line(Full());
  for (size_t at = 0; at < line.size(); ++at) {
    std::string changed = line;
    changed[at] = static_cast<char>(changed[at] ^ 1);
    EXPECT_FALSE(JournalFromLine(changed)) << changed;
    EXPECT_FALSE(JournalFromLine(line.substr(0, at))) << at;
    EXPECT_FALSE(JournalFromLine(line.substr(at + 1))) << at;
  }
  EXPECT_FALSE(JournalFromLine(line + line));
}

TEST(JournalLine, ThatVerifiesAndIsOfALaterVersionIsAFault) {
  std::string text =
      R"({"schema":1,"event":"paused","realtimeNs":1,"board":"","slot":0,"attempt":0)";
  const std::string check = vorn::kit::Xxh3Of(text + "}");
  EXPECT_THROW((void)JournalFromLine(text + R"(,"check":")" + check + "\"}"), vorn::kit::JsonError);
}

// ---- Files --------------------------------------------------------------------------------------

TEST_F(Journals, AreNoneWhereThereIsNoFolder) {
  EXPECT_THAT(Read(), IsEmpty());
  EXPECT_EQ(unreadable_, 0U);
}

TEST_F(Journals, AreReadTogether) {
  Journal(Fleet(), "two").Note(At(1, "b"));
  Journal(Fleet(), "one").Note(At(2, "a"));
  Journal(Fleet(), "one").Note(At(3, "a"));
  support::WriteFile(File("note.txt"), "not a journal\n");
  EXPECT_THAT(Read(), ElementsAre("b1", "a2", "a3"));
  EXPECT_EQ(unreadable_, 0U);
}

// The control's word that a board is back, and that board's later one that it is aside.
TEST_F(Journals, OfTwoWritersComeInTheOrderOfTheirTimes) {
  Journal(Fleet(), "board").Note(At(1, "board"));
  Journal(Fleet(), "control").Note(At(2, "control"));
  Journal(Fleet(), "board").Note(At(3, "board"));
  Journal(Fleet(), "control").Note(At(4, "control"));
  EXPECT_THAT(Read(), ElementsAre("board1", "control2", "board3", "control4"));
}

// Where a clock was put back, what a writer says first still comes first.
TEST_F(Journals, KeepTheOrderOfEachWriter) {
  for (const uint64_t ns : {5, 3, 9}) Journal(Fleet(), "a").Note(At(ns, "a"));
  for (const uint64_t ns : {4, 8}) Journal(Fleet(), "b").Note(At(ns, "b"));
  EXPECT_THAT(Read(), ElementsAre("b4", "a5", "a3", "b8", "a9"));
}

TEST_F(Journals, PassOverWhatWasTornAndCountIt) {
  const std::string torn = ToLine(At(2, "b")).substr(0, 40);
  support::WriteFile(File("a.jsonl"), ToLine(At(1, "a")) + torn + "\n" + std::string(100, '\0') +
                                          "\n" + ToLine(At(3, "a")));
  EXPECT_THAT(Read(), ElementsAre("a1", "a3"));
  EXPECT_EQ(unreadable_, 2U);
}

TEST_F(Journals, GoOnBehindALineWithoutItsEnd) {
  support::WriteFile(File("a.jsonl"), ToLine(At(1, "a")) + ToLine(At(2, "a")).substr(0, 40));
  EXPECT_THAT(Read(), ElementsAre("a1"));
  EXPECT_EQ(unreadable_, 0U);  // somebody may be writing it
  Journal(Fleet(), "a").Note(At(3, "a"));
  EXPECT_THAT(Read(), ElementsAre("a1", "a3"));
}

TEST_F(Journals, ThatCannotBeReadAreNamed) {
  fs::create_directories(File("a.jsonl"));
  try {
    Read();
    FAIL() << "it was read";
  } catch (const vorn::kit::Fault& fault) {
    EXPECT_EQ(fault.Status(), vorn::kit::ExitStatus::kInput);
    EXPECT_THAT(fault.what(), HasSubstr("a.jsonl"));
  }
}

TEST_F(Journals, SayWhereNothingCanBeWritten) {
  support::WriteFile(Fleet() + "/journal", "a file");
  try {
    const Journal journal(Fleet(), "a");
    FAIL() << "it was opened";
  } catch (const vorn::kit::Fault& fault) {
    EXPECT_EQ(fault.Status(), vorn::kit::ExitStatus::kLimit);
  }
}

}  // namespace
