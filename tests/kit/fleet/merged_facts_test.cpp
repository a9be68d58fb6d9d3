#include "kit/fleet/merged_facts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using vorn::kit::FleetPlan;
using vorn::kit::MergedFacts;
using vorn::kit::RunFacts;

RunFacts Part(const std::string& host) {
  RunFacts part;
  part.machine.host = host;
  part.startRealtimeNs = 10;
  return part;
}

TEST(MergedFacts, HasTheOptionsOfALaunch) {
  FleetPlan plan;
  plan.options = {.batch = 2,
                  .totalT = 7,
                  .isProfiled = true,
                  .isTextKept = true,
                  .areArrays = false,
                  .isTraced = true,
                  .sampleLimitS = {}};
  plan.thresholds = {{.path = "a.bin", .sizeBytes = {}, .xxh3 = {}},
                     {.path = "b\n", .sizeBytes = {}, .xxh3 = {}}};
  EXPECT_THAT(MergedFacts(plan).Facts().options.value(),
              ElementsAre("-b", "2", "-t", "7", "-r", "a.bin,b\\x0A", "-p", "1"));
}

TEST(MergedFacts, KeepsOfMachinesWhatTheyHaveInCommon) {
  MergedFacts facts{FleetPlan{}};
  RunFacts one = Part("a");
  one.machine.kernel = "Linux 5";
  one.machine.processor = "P";
  one.machine.loadAverage = 1;
  one.machine.memoryAvailableBytes = 1;
  RunFacts other = one;
  other.machine.kernel = "Linux 6";
  RunFacts third = one;
  facts.Take(one, "", true);
  facts.Take(other, "", true);
  facts.Take(third, "", true);  // is as the first one, and the kernels still differ
  facts.Finish(true);
  EXPECT_EQ(facts.Facts().machine.kernel, "");
  EXPECT_EQ(facts.Facts().machine.processor, "P");
  EXPECT_EQ(facts.Facts().machine.loadAverage, std::nullopt);
  EXPECT_EQ(facts.Facts().machine.memoryAvailableBytes, std::nullopt);
}

TEST(MergedFacts, NamesTheFirstOfManyHosts) {
  MergedFacts facts{FleetPlan{}};
  for (int i = 10; i < 30; ++i) facts.Take(Part("h" + std::to_string(i)), "", true);
  facts.Finish(true);
  EXPECT_EQ(facts.Facts().machine.host, "h10, h11, h12, h13, h14, h15, h16, h17 and 12 more");
}

TEST(MergedFacts, ForgetsWhatAnotherAttemptMadeUntrue) {
  const auto warnings = [](bool isWhole, bool areAllTimed) {
    RunFacts part = Part("a");
    for (const char* id : {"program-end", "output-repeated", "not-traced", "calls-dropped", "x"}) {
      part.warnings.push_back({.id = id, .count = 1, .message = "m"});
    }
    part.signal = "SIGSEGV";
    MergedFacts facts{FleetPlan{}};
    facts.Take(part, "here", isWhole);
    facts.Finish(areAllTimed);
    EXPECT_EQ(facts.Facts().signal.has_value(), !isWhole);
    std::vector<std::string> ids;
    for (const auto& warning : facts.Facts().warnings) ids.push_back(warning.id);
    return ids;
  };
  EXPECT_THAT(warnings(true, true), ElementsAre("x"));
  EXPECT_THAT(warnings(false, true), ElementsAre("program-end", "x"));
  EXPECT_THAT(warnings(true, false), ElementsAre("not-traced", "calls-dropped", "x"));
}

TEST(MergedFacts, HasNoMachineWhereNothingRan) {
  MergedFacts facts{FleetPlan{}};
  facts.Facts().machine.host = "here";
  facts.Finish(true);
  EXPECT_EQ(facts.Facts().machine.host, "here");
  EXPECT_THAT(facts.Facts().warnings, IsEmpty());
}

}  // namespace
