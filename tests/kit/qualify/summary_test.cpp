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

TEST(SummaryText, IsNothingWithoutAStep) { EXPECT_EQ(SummaryText(Qualification{}, {}), ""); }

}  // namespace
}  // namespace vorn::kit
