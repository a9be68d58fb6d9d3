#include "kit/qualify/summary.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/files.h"

namespace vorn::kit {
namespace {

using testing::ContainsRegex;
using testing::StartsWith;

// Its step was taken, and has left no run that could be read.
TEST(SummaryText, SaysThatASideDidNotRunWhereNoRunIsLeft) {
  const support::TempDir folder;
  Qualification qualification;
  qualification.run = folder.Path();
  const QualifyStep step{"run the device", {}, ExitStatus::kRuntime, ""};
  const std::string text = SummaryText(qualification, {step});
  EXPECT_THAT(text, StartsWith("NOT JUDGED: could not run the device (status 5)\n\n"));
  EXPECT_THAT(text, ContainsRegex("\n +model +runtime +samples +median +deviation +first\n"
                                  "device +did not run\n"));
  EXPECT_THAT(text, testing::EndsWith("\nTo open: " + qualification.run +
                                      "/qualify.json (each step as a command)\n"));
}

// The status says first that samples are missing: what is there may be wrong all the same.
TEST(SummaryText, CallsNothingRightThatIsNot) {
  const support::TempDir folder;
  Qualification qualification;
  qualification.run = folder.Path();
  QualifyStep step{"judge", {}, ExitStatus::kPartial, ""};
  step.call.verb = "judge";
  const auto headline = [&](const std::string& verdict, int samples) {
    support::WriteFile(folder.Path() / "verdict.json",
                       R"({"outputs": [{"verdict": "right", "samples": 0}, {"verdict": ")" +
                           verdict + R"(", "samples": )" + std::to_string(samples) + "}]}");
    const std::string text = SummaryText(qualification, {step});
    return text.substr(0, text.find('\n'));
  };
  EXPECT_EQ(headline("wrong", 7), "NOT QUALIFIED: outputs differ, and some samples are missing");
  EXPECT_EQ(headline("right", 7),
            "NOT WHOLE: what is there is right, and some samples are missing");
  EXPECT_EQ(headline("right", 0), "NOT JUDGED: all samples are missing");
}

TEST(SummaryText, TellsHowToMakeAPageOfWhatWasJudged) {
  Qualification qualification;
  qualification.run = "my run";
  QualifyStep step{"judge", {}, ExitStatus::kDone, ""};
  step.call.verb = "judge";
  EXPECT_THAT(SummaryText(qualification, {step}),
              testing::HasSubstr("\nA page of it: vorn report 'my run' -o report.html\n"));
  step.call.verb = "launch";
  EXPECT_THAT(SummaryText(qualification, {step}), testing::Not(testing::HasSubstr("vorn report")));
}

TEST(SummaryText, SaysWhereItWasStopped) {
  QualifyStep step{"run the device", {}, ExitStatus::kPartial, ""};
  step.wasStopped = true;
  EXPECT_THAT(SummaryText(Qualification{}, {step}),
              StartsWith("STOPPED: could not run the device; the same command goes on\n"));
}

TEST(SummaryText, IsNothingWithoutAStep) { EXPECT_EQ(SummaryText(Qualification{}, {}), ""); }

}  // namespace
}  // namespace vorn::kit
