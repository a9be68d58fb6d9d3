#include "kit/trace/trace_summary.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kit/trace/trace_bytes.h"

namespace vorn::kit {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

enum : uint16_t { kMalloc, kFree, kLoad, kCreateDataset, kExecute, kCount, kUnload };
const std::vector<std::string> kNames{"vorn_rt_malloc",         "vorn_rt_free",
                                      "vorn_mdl_load_from_mem", "vorn_mdl_create_dataset",
                                      "vorn_mdl_execute",       "vorn_mdl_get_num_inputs",
                                      "vorn_mdl_unload"};

// What a thread is about, as a run has it; the layer was loaded at 1000.
TraceBytes Whole() {
  TraceBytes bytes(kNames);
  bytes.Call({.operation = kMalloc,
              .beganNs = 1010,
              .endedNs = 1012,
              .arguments = {1, 100, 2},
              .results = {0, 0xA0}});
  bytes.Call({.operation = kLoad, .beganNs = 1020, .endedNs = 1120});
  bytes.Call({.operation = kCreateDataset, .beganNs = 1130, .endedNs = 1131, .results = {5}});
  bytes.Call({.operation = kMalloc,
              .beganNs = 1140,
              .endedNs = 1143,
              .arguments = {1, 50, 2},
              .results = {0, 0xB0}});
  bytes.Call({.operation = kExecute, .beganNs = 1150, .endedNs = 1650});
  bytes.Call({.operation = kCount, .beganNs = 1660, .endedNs = 1664, .results = {3}});
  bytes.Call({.operation = kFree, .beganNs = 1700, .endedNs = 1701, .arguments = {0xB0}});
  bytes.Call({.operation = kCreateDataset, .beganNs = 1710, .endedNs = 1712, .results = {6}});
  bytes.Call({.operation = kExecute, .beganNs = 1720, .endedNs = 1920, .results = {7}});
  bytes.Call({.operation = kUnload, .beganNs = 1930, .endedNs = 1935});
  return bytes;
}

TEST(TimesByOperation, CountsAndOrdersByTotal) {
  const auto all = TimesByOperation(ParseTrace(Whole().Text()));
  ASSERT_EQ(all.size(), 7U);
  EXPECT_EQ(all[0].name, "vorn_mdl_execute");
  EXPECT_EQ(all[0].count, 2U);
  EXPECT_EQ(all[0].failed, 1U);
  EXPECT_EQ(all[0].totalNs, 700U);
  EXPECT_EQ(all[0].medianNs, 350U);
  EXPECT_EQ(all[0].mostNs, 500U);
  EXPECT_EQ(all[0].p99Ns, std::nullopt);
  EXPECT_EQ(all[1].name, "vorn_mdl_load_from_mem");
  for (const OperationTimes& times : all) {
    // Handles and counts are no statuses.
    EXPECT_EQ(times.failed, times.name == "vorn_mdl_execute" ? 1U : 0U) << times.name;
  }
}

TEST(TimesByOperation, HasAPercentileFromAHundredCallsOn) {
  TraceBytes bytes(kNames);
  for (uint64_t i = 0; i < 100; ++i) {
    bytes.Call({.operation = kExecute, .beganNs = 2000, .endedNs = 2001 + (i * 37) % 100});
  }
  auto times = TimesByOperation(ParseTrace(bytes.Text())).at(0);
  EXPECT_EQ(times.p99Ns, 100U);  // 1 to 100: one of them is not below
  EXPECT_EQ(times.medianNs, 50U);
  EXPECT_EQ(times.mostNs, 100U);
}

TEST(TimesByOperation, LeavesOutWhatDidNotReturn) {
  TraceBytes bytes(kNames);
  bytes.Call({.operation = kExecute, .beganNs = 2000, .endedNs = 0});
  EXPECT_TRUE(TimesByOperation(ParseTrace(bytes.Text())).empty());
}

TEST(DivideIntoPhases, AddsUpToTheWhole) {
  const Phases phases = DivideIntoPhases(ParseTrace(Whole().Ended(2000).Text()));
  EXPECT_EQ(phases.wholeNs, 1000U);
  EXPECT_EQ(phases.startNs, 10U);
  EXPECT_EQ(phases.loadNs, 100U);
  EXPECT_EQ(phases.executeNs, 700U);
  EXPECT_EQ(phases.copyInNs, (1140 - 1131) + (1150 - 1143) + (1720 - 1712));
  EXPECT_EQ(phases.writeNs, (1660 - 1650) + (1700 - 1664) + (1710 - 1701) + (1930 - 1920));
  EXPECT_EQ(phases.otherCallsNs, 2 + 1 + 3 + 4 + 1 + 2 + 5);
  EXPECT_EQ(phases.otherNs, (1020 - 1012) + (1130 - 1120) + (2000 - 1935));
  EXPECT_EQ(phases.startNs + phases.loadNs + phases.copyInNs + phases.executeNs + phases.writeNs +
                phases.otherCallsNs + phases.otherNs,
            phases.wholeNs);
}

TEST(DivideIntoPhases, CountsTheCallThatDidNotReturnUpToTheEnd) {
  TraceBytes bytes(kNames);
  bytes.Call({.operation = kExecute, .beganNs = 1100, .endedNs = 0});
  const Phases phases = DivideIntoPhases(ParseTrace(bytes.Ended(1500).Text()));
  EXPECT_EQ(phases.startNs, 100U);
  EXPECT_EQ(phases.executeNs, 400U);
}

TEST(DivideIntoPhases, FollowsTheThreadThatExecutes) {
  TraceBytes bytes(kNames);
  bytes.Call({.operation = kCount, .beganNs = 1001, .endedNs = 1900, .thread = 1});
  bytes.Call({.operation = kExecute, .beganNs = 1100, .endedNs = 1200, .thread = 2});
  const Phases phases = DivideIntoPhases(ParseTrace(bytes.Ended(2000).Text()));
  EXPECT_EQ(phases.executeNs, 100U);
  EXPECT_EQ(phases.otherCallsNs, 0U);
  EXPECT_EQ(phases.writeNs, 800U);
}

TEST(DivideIntoPhases, BearsATraceWithoutCalls) {
  const Phases phases = DivideIntoPhases(ParseTrace(TraceBytes(kNames).Ended(1300).Text()));
  EXPECT_EQ(phases.wholeNs, 300U);
  EXPECT_EQ(phases.startNs, 300U);
}

TEST(FollowMemory, KnowsThePeakAndWhatIsLeft) {
  const DeviceMemory memory = FollowMemory(ParseTrace(Whole().Text()));
  EXPECT_EQ(memory.peakBytes, 150U);
  EXPECT_EQ(memory.leftBytes, 100U);
}

TEST(FollowMemory, PassesOverWhatFailedAndWhatItNeverSaw) {
  TraceBytes bytes(kNames);
  bytes.Call(
      {.operation = kMalloc, .beganNs = 1, .endedNs = 2, .arguments = {1, 100, 2}, .results = {5}});
  bytes.Call({.operation = kFree, .beganNs = 3, .endedNs = 4, .arguments = {0}});
  bytes.Call({.operation = kFree, .beganNs = 5, .endedNs = 6, .arguments = {0xC0}});
  const DeviceMemory memory = FollowMemory(ParseTrace(bytes.Text()));
  EXPECT_EQ(memory.peakBytes, 0U);
  EXPECT_EQ(memory.leftBytes, 0U);
}

TEST(TraceReport, ShowsAllOfIt) {
  const std::string report = TraceReport(ParseTrace(Whole().Ended(2000).Text()));
  EXPECT_THAT(report, HasSubstr("program  /bin/program, process 42 on board\n"
                                "runtime  /lib/libvorn.so\n"));
  EXPECT_THAT(report, HasSubstr("vorn_mdl_execute             2       1     0.001      0.000"));
  EXPECT_THAT(report, HasSubstr("70.0 %  inside vorn_mdl_execute\n"));
  EXPECT_THAT(report, HasSubstr("device memory 150 bytes at the peak, 100 bytes not freed\n"));
  EXPECT_THAT(report, Not(HasSubstr("no room")));
  EXPECT_THAT(report, Not(HasSubstr("returned")));
}

TEST(TraceReport, NamesTheCallThatDidNotReturn) {
  TraceBytes bytes(kNames);
  bytes.Call({.operation = kMalloc, .beganNs = 1100, .endedNs = 1200});
  bytes.Call({.operation = kExecute, .beganNs = 2001000, .endedNs = 0});
  bytes.Call({.operation = kCount, .beganNs = 5001000, .endedNs = 5001000, .thread = 9});
  bytes.Put64(48, 1003);
  const std::string report = TraceReport(ParseTrace(bytes.Text()));
  EXPECT_THAT(report, HasSubstr("call 2, vorn_mdl_execute, had not returned after 3.000 ms: the "
                                "process ended inside of it, or runs still\n"));
  EXPECT_THAT(report, HasSubstr("3 later calls are not in the trace: there was no room"));
}

TEST(MemoryOverTime, FollowsBlocksInTheOrderInWhichCallsEnded) {
  TraceBytes bytes({"vorn_rt_malloc", "vorn_rt_free", "vorn_init"});
  bytes.Call({.operation = 0,
              .beganNs = 10,
              .endedNs = 90,
              .arguments = {1, 100, 2},
              .results = {0, 0xA}});
  bytes.Call(
      {.operation = 0, .beganNs = 20, .endedNs = 30, .arguments = {1, 50, 2}, .results = {0, 0xB}});
  bytes.Call({.operation = 2, .beganNs = 31, .endedNs = 32});
  bytes.Call({.operation = 1, .beganNs = 40, .endedNs = 41, .arguments = {0xB}});
  bytes.Call({.operation = 1, .beganNs = 95, .endedNs = 96, .arguments = {0xC}});
  bytes.Call(
      {.operation = 0, .beganNs = 97, .endedNs = 98, .arguments = {1, 7, 2}, .results = {5}});
  bytes.Call({.operation = 1, .beganNs = 99, .endedNs = 0, .arguments = {0xA}});
  EXPECT_THAT(MemoryOverTime(ParseTrace(bytes.Text())),
              ElementsAre(MemoryMoment{30, 50}, MemoryMoment{41, 0}, MemoryMoment{90, 100}));
}

}  // namespace
TEST(TraceReport, ShowsNoControlBytesOfADamagedTrace) {
  TraceBytes bytes({"vorn_\x1B[2J"});
  bytes.Call({.operation = 0, .beganNs = 1100, .endedNs = 1200});
  bytes.Call({.operation = 0, .beganNs = 1300, .endedNs = 0});
  const std::string report = TraceReport(ParseTrace(bytes.Text()));
  EXPECT_EQ(report.find('\x1B'), report.npos) << report;
  EXPECT_THAT(report, testing::HasSubstr("vorn_\\x1B[2J"));
}

}  // namespace vorn::kit
