#include "kit/ledger/base.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kit/common/fault.h"
#include "kit/history/made_run.h"
#include "kit/ledger/ledger.h"
#include "support/files.h"

namespace vorn::kit {
namespace {

using support::MadeFacts;
using support::MakeRun;
using testing::HasSubstr;

class Base : public testing::Test {
 protected:
  std::string Path() const { return folder_.Path() / "history.sqlite"; }
  std::string Run(unsigned day) const { return folder_.Path() / std::to_string(day); }

  // A run of that day, in its folder and in the history.
  int64_t Add(unsigned day, const std::string& verdict = "", uint64_t executions = 2) const {
    MakeRun(Run(day), MadeFacts(day), {});
    RunEntry run = support::MadeEntry(day, 1e6);
    run.path = Run(day);
    run.verdict = verdict;
    run.executions = executions;
    (void)Ledger::ForWriting(Path()).Add(std::span(&run, 1));
    return run.id;
  }

  std::string WhyNot(unsigned day, BaseUse use) const {
    try {
      return "run " + std::to_string(FindBase(Path(), Run(day), use).id);
    } catch (const Fault& fault) {
      EXPECT_EQ(fault.Status(), ExitStatus::kNothing);
      return fault.what();
    }
  }

  support::TempDir folder_;
};

TEST(LedgerOfWith, TakesTheWordAndAFile) {
  EXPECT_EQ(LedgerOfWith("history=/a=b"), "/a=b");
  setenv("VORN_HISTORY", "/usual", 1);
  EXPECT_EQ(LedgerOfWith("history"), "/usual");
  for (const char* word : {"", "histories", "history=", "/a/file"}) {
    EXPECT_THROW((void)LedgerOfWith(word), Fault) << word;
  }
}

TEST_F(Base, IsTheLastRunThatServes) {
  const int64_t first = Add(1, "right");
  const int64_t second = Add(2, "wrong");
  const int64_t third = Add(3, "", 0);
  MakeRun(Run(4), MadeFacts(4), {});
  EXPECT_EQ(FindBase(Path(), Run(4), BaseUse::kTimes).id, second);
  EXPECT_EQ(FindBase(Path(), Run(4), BaseUse::kOutputs).id, third);
  EXPECT_EQ(FindBase(Path(), Run(3), BaseUse::kOutputs).id, first);
  EXPECT_EQ(FindBase(Path(), Run(4), BaseUse::kTimes).times.timesNs.size(), 2U);
}

TEST_F(Base, IsMissingAtFirst) {
  Add(2);
  MakeRun(Run(1), MadeFacts(1), {});
  EXPECT_THAT(WhyNot(1, BaseUse::kTimes),
              HasSubstr("in its level of the series 'digits.onnx, device.json, list.txt, -b 2, "
                        "board7' that was timed; nothing is compared"));
}

TEST_F(Base, OfOutputsHasToBeThereAsItWas) {
  Add(1);
  MakeRun(Run(4), MadeFacts(4), {});
  EXPECT_EQ(WhyNot(4, BaseUse::kOutputs), "run 1");
  MakeRun(Run(1), MadeFacts(9), {});
  EXPECT_THAT(WhyNot(4, BaseUse::kOutputs), HasSubstr("holds another run by now"));
  std::filesystem::remove_all(Run(1));
  EXPECT_THAT(WhyNot(4, BaseUse::kOutputs), HasSubstr("is gone"));
  EXPECT_EQ(WhyNot(4, BaseUse::kTimes), "run 1");
}

TEST_F(Base, GoesByTheBoardThatTheRunWasAddedAs) {
  const int64_t first = Add(1);
  RunEntry run = support::MadeEntry(2, 1e6);
  MakeRun(Run(2), MadeFacts(2), {});
  run.board = "container";
  (void)Ledger::ForWriting(Path()).Add(std::span(&run, 1));
  EXPECT_THAT(WhyNot(2, BaseUse::kTimes), HasSubstr("container"));
  MakeRun(Run(3), MadeFacts(3), {});
  EXPECT_EQ(FindBase(Path(), Run(3), BaseUse::kTimes).id, first);
}

}  // namespace
}  // namespace vorn::kit
