#include "kit/report/terminal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "kit/report/full_facts.h"

namespace vorn::kit {
namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

TEST(BarText, IsAsLongAsItsShare) {
  EXPECT_EQ(BarText(0.5, 8, false), "####");
  EXPECT_EQ(BarText(1, 8, false), "########");
  EXPECT_EQ(BarText(7, 8, false), "########");
  EXPECT_EQ(BarText(1e-9, 8, false), "#");
  EXPECT_EQ(BarText(0, 8, false), "");
  EXPECT_EQ(BarText(0.0 / 0.0, 8, false), "");
  EXPECT_EQ(BarText(0.5, 3, true), "█▌");
  EXPECT_EQ(BarText(1, 2, true), "██");
  EXPECT_EQ(BarText(1e-9, 2, true), "▏");
}

TEST(TerminalText, ShowsNothingThatSteersATerminal) {
  for (const bool isUnicode : {false, true}) {
    const std::string text = TerminalText(FullFacts(), {.isUnicode = isUnicode});
    EXPECT_THAT(text, Not(HasSubstr("\x1b")));
    EXPECT_THAT(text, Not(HasSubstr("\xff")));
    EXPECT_THAT(text, StartsWith("WRONG  the answer of "));
  }
}

TEST(TerminalText, HasColoursOnlyWhereTheyAreWanted) {
  EXPECT_THAT(TerminalText(FullFacts(), {.isColoured = true}),
              StartsWith("\x1b[1;31mWRONG\x1b[0m"));
}

TEST(TerminalText, TellsOneRunFromItsAnswerToItsWarnings) {
  ReportFacts facts = FullFacts();
  facts.runs.resize(1);
  facts.comparisons.clear();
  const std::string text = TerminalText(facts, {});
  for (const char* part :
       {"WRONG", "SNR dB", "the worst", "3 of 24", "sample 3 aside", "board", "executions",
        "50 ns |", "| 150 ns", "load", "75 %", "##################", "memory at most 5.0 MiB",
        "54 °C", "1 finding", "warning: ", "(3 times)", "note: "}) {
    EXPECT_THAT(text, HasSubstr(part));
  }
  EXPECT_THAT(text, Not(HasSubstr("no trace")));
}

TEST(TerminalText, NamesARunOfSeveralWhereThereIsMoreToTellOfIt) {
  ReportFacts facts = FullFacts();
  ASSERT_EQ(facts.runs.size(), 2U);
  facts.runs[0].name = "first";
  facts.runs[1] = {};
  facts.runs[1].name = "second";
  facts.runs[1].judgement.emplace();  // of no output
  const std::string text = TerminalText(facts, {});
  EXPECT_THAT(text, HasSubstr("\n== first\n"));
  EXPECT_THAT(text, Not(HasSubstr("== second")));
  EXPECT_THAT(text, Not(HasSubstr("\n\n\n")));
}

}  // namespace
}  // namespace vorn::kit
