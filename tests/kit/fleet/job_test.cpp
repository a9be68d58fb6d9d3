#include "kit/fleet/job.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "kit/common/fault.h"
#include "kit/fleet/made_fleet.h"
#include "support/files.h"

namespace {

namespace fs = std::filesystem;

using fleet_test::MadeAttempt;
using fleet_test::MadeFleet;
using std::chrono::seconds;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSupersetOf;
using vorn::kit::AttemptEnd;
using vorn::kit::AttemptOutcome;
using vorn::kit::AttemptRequest;
using vorn::kit::Blame;
using vorn::kit::BoardEnd;
using vorn::kit::BoardWork;
using vorn::kit::FilesOnBoard;
using vorn::kit::Journal;
using vorn::kit::JournalEvent;
using vorn::kit::JournalRecord;
using vorn::kit::LimitOf;

/// Attempts at chunks of three inferences, with an engine that a test makes.
class Attempt : public testing::Test {
 protected:
  Attempt() : fleet_(6, 3, {0, 4}), plan_(fleet_.Plan()) {
    support::WriteFile(fleet_.Folder() + "/paths.txt", "/in/0\n/in/1\n/in/2\n");
  }

  AttemptRequest Request(std::optional<uint64_t> chunk) const {
    return {.fleet = fleet_.Folder(),
            .chunk = chunk,
            .board = "b1",
            .slot = 2,
            .config = {},
            .limit = seconds(9)};
  }

  /// A board that leaves these outputs.
  BoardEnd Leave(const BoardWork& work, const std::string& outputs) const {
    MadeAttempt attempt;
    attempt.outputs = outputs;
    attempt.isNoted = false;
    fs::rename(fleet_.Attempt(0, 77777, attempt), work.folder + "/run");
    support::WriteFile(work.folder + "/run.err", "it said so");
    support::WriteFile(work.folder + "/run.tar", "large");
    BoardEnd end;
    end.hasRun = true;
    end.host = "host";
    end.bootId = "boot";
    end.phases = {{"launch", 5}};
    end.sentBytes = 3;
    return end;
  }

  AttemptEnd Run(const vorn::kit::Engine& engine, std::optional<uint64_t> chunk = 0) {
    Journal journal(fleet_.Folder(), "b1");
    return RunAttempt(plan_, Request(chunk), FilesOnBoard::kByHash, engine, journal);
  }

  AttemptEnd RunLeaving(const std::string& outputs) {
    return Run([&](const BoardWork& work) { return Leave(work, outputs); });
  }

  std::vector<JournalRecord> Noted() const {
    std::vector<JournalRecord> records;
    (void)vorn::kit::ReadJournals(fleet_.Folder(),
                                  [&](const JournalRecord& record) { records.push_back(record); });
    return records;
  }

  std::vector<std::string> In(const std::string& folder) const {
    std::vector<std::string> names;
    for (const auto& [name, bytes] : support::ReadTree(fleet_.Folder() + "/" + folder)) {
      names.push_back(name);
    }
    return names;
  }

  MadeFleet fleet_;
  vorn::kit::FleetPlan plan_;
};

// ---- How it ends --------------------------------------------------------------------------------

TEST_F(Attempt, ThatIsDoneIsMovedToItsPlace) {
  const AttemptEnd end = RunLeaving("abc");
  EXPECT_EQ(end.record.outcome, AttemptOutcome::kDone);
  EXPECT_EQ(end.record.blame, Blame::kNobody);
  EXPECT_EQ(end.record.done, 3U);
  EXPECT_EQ(end.record.attempt, 1U);
  EXPECT_EQ(end.record.outputs.size(), 32U);
  const std::vector<JournalRecord> noted = Noted();
  ASSERT_EQ(noted.size(), 2U);
  EXPECT_EQ(noted[0].event, JournalEvent::kBegin);
  EXPECT_EQ(noted[1], end.record);
  EXPECT_EQ(noted[1].host, "host");
  EXPECT_EQ(noted[1].slot, 2U);
  EXPECT_EQ(noted[1].sentBytes, 3U);
  EXPECT_THAT(vorn::kit::AttemptsIn(fleet_.Folder() + "/chunks/0"), ElementsAre(1));
  EXPECT_FALSE(fs::exists(fleet_.Folder() + "/chunks/0/1.part"));
  EXPECT_FALSE(fs::exists(fleet_.Folder() + "/chunks/0/1.said"));
}

TEST_F(Attempt, ThatIsDoneInPartIsKeptWithWhatWasSaid) {
  const AttemptEnd end = RunLeaving("aAc");
  EXPECT_EQ(end.record.outcome, AttemptOutcome::kPartial);
  EXPECT_EQ(end.record.blame, Blame::kSamples);
  EXPECT_EQ(end.record.done, 2U);
  EXPECT_EQ(end.record.notDone, 1U);
  EXPECT_EQ(end.record.reason, "1 inference not done, first 1: ended by SIGSEGV");
  EXPECT_THAT(vorn::kit::AttemptsIn(fleet_.Folder() + "/chunks/0"), ElementsAre(1));
  EXPECT_THAT(In("chunks/0/1.said"), ElementsAre("run.err"));
}

TEST_F(Attempt, ThatWasCutShortIsNotTheSamplesFault) {
  const AttemptEnd end = RunLeaving("aA.");
  EXPECT_EQ(end.record.outcome, AttemptOutcome::kPartial);
  EXPECT_EQ(end.record.blame, Blame::kUnknown);
}

TEST_F(Attempt, OfWhichNothingIsDoneFails) {
  AttemptEnd end = RunLeaving("AFA");
  EXPECT_EQ(end.record.outcome, AttemptOutcome::kFailed);
  EXPECT_EQ(end.record.blame, Blame::kUnknown);
  EXPECT_EQ(end.record.done, 0U);
  end = RunLeaving("...");
  EXPECT_EQ(end.record.blame, Blame::kBoard);
  EXPECT_THAT(vorn::kit::AttemptsIn(fleet_.Folder() + "/chunks/0"), IsEmpty());
  EXPECT_THAT(In("chunks/0"), ElementsAre("1.said/run.err", "2.said/run.err"));
}

TEST_F(Attempt, WhoseOutputsDoNotVerifyFails) {
  const AttemptEnd end = Run([&](const BoardWork& work) {
    BoardEnd left = Leave(work, "abc");
    support::WriteFile(work.folder + "/run/dumps/1/same.0.17.bin", "????");
    return left;
  });
  EXPECT_EQ(end.record.outcome, AttemptOutcome::kFailed);
  EXPECT_EQ(end.record.blame, Blame::kUnknown);
  EXPECT_THAT(end.record.reason,
              AllOf(HasSubstr("its outputs do not count"), HasSubstr("has not the size and hash")));
  EXPECT_FALSE(end.hasOtherFiles);
}

TEST_F(Attempt, OfOtherInputsTellsSo) {
  const AttemptEnd end = Run([&](const BoardWork& work) { return Leave(work, "abc"); }, 1);
  EXPECT_EQ(end.record.outcome, AttemptOutcome::kFailed);
  EXPECT_EQ(end.record.blame, Blame::kBoard);  // the chunk may be right
  EXPECT_TRUE(end.hasOtherFiles);
  EXPECT_THAT(end.files, testing::SizeIs(5));  // model, configuration, inputs
}

TEST_F(Attempt, WithAnotherConfigurationTellsSo) {
  const auto leaveWith = [&](const std::function<void(vorn::kit::RunFacts&)>& change) {
    return Run([&](const BoardWork& work) {
      BoardEnd left = Leave(work, "abc");
      vorn::kit::RunFacts facts = vorn::kit::ReadRun(work.folder + "/run");
      change(facts);
      support::WriteFile(work.folder + "/run/run.json", ToJson(facts));
      return left;
    });
  };
  AttemptEnd end = leaveWith([](auto& facts) { facts.configuration->xxh3 = std::string(32, '0'); });
  EXPECT_EQ(end.record.outcome, AttemptOutcome::kFailed);
  EXPECT_THAT(end.record.reason, HasSubstr("it ran with another configuration"));
  EXPECT_TRUE(end.hasOtherFiles);

  const auto file = [](const char* path, char digit) {
    return vorn::kit::FileIdentity{.path = path, .sizeBytes = 3, .xxh3 = std::string(32, digit)};
  };
  plan_.configurationFiles = {file("dims.txt", '1'), file("/etc/own.txt", '1')};
  end = leaveWith([&](auto& facts) {
    facts.configurationFiles = {file("dims.txt", '2'), file("/etc/own.txt", '1')};
  });
  EXPECT_THAT(end.record.reason, HasSubstr("it ran with another 'dims.txt' than planned"));
  EXPECT_TRUE(end.hasOtherFiles);
  // One from the root on is the board's own.
  end = leaveWith([&](auto& facts) {
    facts.configurationFiles = {file("dims.txt", '1'), file("/etc/own.txt", '2')};
  });
  EXPECT_EQ(end.record.outcome, AttemptOutcome::kDone) << end.record.reason;
}

TEST_F(Attempt, SaysWhatTheBoardFailedBy) {
  const AttemptEnd end = Run([](const BoardWork&) {
    BoardEnd failed;
    failed.blame = Blame::kBoard;
    failed.reason = "no connection";
    return failed;
  });
  EXPECT_EQ(end.record.outcome, AttemptOutcome::kFailed);
  EXPECT_EQ(end.record.blame, Blame::kBoard);
  EXPECT_EQ(end.record.reason, "no connection");
}

TEST_F(Attempt, ThatWasStoppedIsNobodysFault) {
  const AttemptEnd end = Run([&](const BoardWork& work) {
    BoardEnd left = Leave(work, "abc");
    left.wasStopped = true;
    // Of a launch that the same signal ended first.
    left.blame = Blame::kUnknown;
    left.reason = "the launch ended by SIGTERM";
    return left;
  });
  EXPECT_TRUE(end.wasStopped);
  EXPECT_EQ(end.record.reason, "was stopped");
  EXPECT_EQ(end.record.outcome, AttemptOutcome::kFailed);
  EXPECT_EQ(end.record.blame, Blame::kNobody);
  EXPECT_THAT(vorn::kit::AttemptsIn(fleet_.Folder() + "/chunks/0"), IsEmpty());
}

TEST_F(Attempt, HasItsEndInTheJournalWhereThisMachineFails) {
  EXPECT_THROW((void)Run([](const BoardWork&) -> BoardEnd {
                 throw vorn::kit::Fault(vorn::kit::ExitStatus::kLimit, "the disk is full");
               }),
               vorn::kit::Fault);
  ASSERT_EQ(Noted().size(), 2U);
  EXPECT_EQ(Noted()[1].event, JournalEvent::kEnd);
  EXPECT_EQ(Noted()[1].reason, "the disk is full");
  EXPECT_EQ(Noted()[1].blame, Blame::kNobody);
}

// ---- Numbers ------------------------------------------------------------------------------------

TEST_F(Attempt, IsNumberedBehindAllThatWereMade) {
  fs::create_directories(fleet_.Folder() + "/chunks/0/3.part");
  fs::create_directories(fleet_.Folder() + "/chunks/0/12.said");
  fs::create_directories(fleet_.Folder() + "/chunks/0/7");
  EXPECT_EQ(RunLeaving("abc").record.attempt, 13U);
}

TEST_F(Attempt, HasANumberOfItsOwnWhoeverElseMakesOne) {
  constexpr int kProcesses = 4;
  constexpr int kEach = 100;
  std::vector<pid_t> children;
  for (int i = 0; i < kProcesses; ++i) {
    const pid_t child = fork();
    if (child != 0) {
      children.push_back(child);
      continue;
    }
    int made = 0;
    try {
      Journal journal(fleet_.Folder(), std::to_string(i));
      while (made < kEach) {
        (void)RunAttempt(
            plan_, Request(1), FilesOnBoard::kByHash, [](const BoardWork&) { return BoardEnd{}; },
            journal);
        ++made;
      }
    } catch (...) {
    }
    _exit(made == kEach ? 0 : 1);
  }
  for (const pid_t child : children) {
    int status = 1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
  }
  std::vector<uint64_t> numbers;
  for (const JournalRecord& record : Noted()) {
    if (record.event == JournalEvent::kBegin) numbers.push_back(record.attempt);
  }
  std::sort(numbers.begin(), numbers.end());
  EXPECT_EQ(numbers.size(), size_t{kProcesses * kEach});
  EXPECT_EQ(std::adjacent_find(numbers.begin(), numbers.end()), numbers.end());
}

// ---- What is asked for --------------------------------------------------------------------------

TEST_F(Attempt, NamesFilesByTheirHashes) {
  plan_.configurationFiles = {{.path = "t/a b.tab", .sizeBytes = 1, .xxh3 = "aabb"},
                              {.path = "/opt/there", .sizeBytes = 1, .xxh3 = "ccdd"}};
  plan_.thresholds = {{.path = "x", .sizeBytes = 1, .xxh3 = "1122"},
                      {.path = "y", .sizeBytes = 1, .xxh3 = "3344"}};
  plan_.options = {.batch = 2,
                   .totalT = 5,
                   .isProfiled = true,
                   .isTextKept = false,
                   .areArrays = true,
                   .isTraced = false,
                   .sampleLimitS = 7};
  BoardWork asked;
  (void)Run([&](const BoardWork& work) {
    asked = work;
    return BoardEnd{};
  });
  const std::string model = *plan_.model.xxh3;
  EXPECT_EQ(asked.words[1], "../../files/" + model);
  EXPECT_THAT(asked.words,
              IsSupersetOf({"-b", "2", "-t", "5", "-r", "../../files/1122,../../files/3344", "-p",
                            "--no-text", "--npy", "--no-trace", "--sample-timeout", "7", "--chunk",
                            "3", "--quiet"}));
  EXPECT_EQ(asked.list.size(), 3U);
  EXPECT_THAT(asked.list[0], HasSubstr("../../files/"));
  EXPECT_THAT(asked.links, ElementsAre(testing::Pair("t/a b.tab", "aabb")));
  EXPECT_EQ(asked.limit, seconds(9));
  std::vector<std::string> sent;
  for (const auto& file : asked.files) sent.push_back(file.path);
  EXPECT_THAT(sent, IsSupersetOf({"/in/0", "/in/1", "/in/2"}));
  EXPECT_THAT(sent, testing::Not(Contains("/opt/there")));  // has to be on the board
}

TEST_F(Attempt, AtTheCrossCheckIsOfItsInferences) {
  std::string list;
  const AttemptEnd end = Run(
      [&](const BoardWork& work) {
        for (const std::string& line : work.list) list += line + "\n";
        return BoardEnd{};
      },
      std::nullopt);
  EXPECT_FALSE(end.record.chunk);
  std::string expected;
  for (const uint64_t index : {0, 4}) {
    expected += vorn::kit::FileInJob(vorn::kit::Xxh3Of("input " + std::to_string(index))) + "\n";
  }
  EXPECT_EQ(list, expected);
  EXPECT_TRUE(fs::exists(fleet_.Folder() + "/cross/b1/1.said"));
}

// ---- Time limits --------------------------------------------------------------------------------

TEST(LimitOfTest, IsTenTimesTheMedianAndTwoMinutes) {
  EXPECT_FALSE(LimitOf({}, 100));
  EXPECT_EQ(LimitOf({1'000'000'000}, 100), seconds(1120));
  EXPECT_EQ(LimitOf({9'000'000'000, 1'000'000'000, 2'000'000'000}, 10), seconds(320));
  EXPECT_EQ(LimitOf({1}, 1), seconds(121));  // rounded up
  EXPECT_EQ(LimitOf({UINT64_MAX}, UINT64_MAX), seconds(30 * 24 * 3600));
}

}  // namespace
