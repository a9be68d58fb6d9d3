#include "kit/report/trace_facts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "kit/common/fault.h"
#include "support/files.h"

namespace vorn::kit {
namespace {

using testing::HasSubstr;
using testing::SizeIs;

TraceFile EmptyTrace() {
  TraceFile file;
  file.monotonicNs = 1000;
  file.operations = {"vorn_mdl_execute", "vorn_rt_malloc", "vorn_rt_free"};
  return file;
}

TracedCall Call(uint16_t operation, uint32_t thread, uint64_t began, uint64_t took) {
  TracedCall call;
  call.operation = operation;
  call.thread = thread;
  call.beganNs = began;
  call.endedNs = began + took;
  call.results = {0};
  return call;
}

TEST(FactsOfTrace, DrawsEachCallWhereThereIsRoom) {
  TraceFile file = EmptyTrace();
  file.calls = {Call(1, 40, 1100, 10), Call(0, 41, 1200, 50)};
  file.calls[1].results = {7};
  file.calls.push_back(Call(0, 40, 1300, 0));
  file.calls[2].endedNs.reset();
  file.endedNs = 1500;
  file.dropped = 2;
  file.cut = 3;
  const ReportTrace trace = FactsOfTrace(file, "t");
  ASSERT_THAT(trace.spans, SizeIs(3));
  EXPECT_EQ(trace.spans[0].beginNs, 100U);
  EXPECT_EQ(trace.spans[0].durationNs, 10U);
  EXPECT_EQ(trace.spans[0].lane, 0U);
  EXPECT_EQ(trace.spans[1].lane, 1U);
  EXPECT_TRUE(trace.spans[1].isFailed);
  EXPECT_TRUE(trace.spans[2].isOpen);
  EXPECT_EQ(trace.spans[2].durationNs, 200U);
  EXPECT_EQ(trace.wholeNs, 500U);
  EXPECT_EQ(trace.dropped, 5U);
  EXPECT_EQ(trace.calls, 3U);
}

TEST(FactsOfTrace, StandsOnTheLineOfTimeOfItsRun) {
  constexpr uint64_t kStart = 1'000'000'000'000;
  TraceFile file = EmptyTrace();
  file.realtimeNs = kStart + 400;
  file.endedNs = 1500;
  const ReportTrace trace = FactsOfTrace(file, "t");
  RunFacts run;
  run.startRealtimeNs = kStart;
  EXPECT_EQ(SinceStartOf(run, trace), 400U);
  run.endRealtimeNs = kStart + 1000;
  EXPECT_EQ(SinceStartOf(run, trace), 400U);
  // A clock that was set, a trace of another run, one behind a rest of hours.
  run.startRealtimeNs = kStart + 500;
  EXPECT_EQ(SinceStartOf(run, trace), std::nullopt);
  run.startRealtimeNs = kStart;
  run.endRealtimeNs = kStart + 300;
  EXPECT_EQ(SinceStartOf(run, trace), std::nullopt);
  run.endRealtimeNs.reset();
  run.startRealtimeNs = kStart - 1'000'000;
  EXPECT_EQ(SinceStartOf(run, trace), std::nullopt);
  EXPECT_EQ(SinceStartOf({}, trace), std::nullopt);
}

// Long calls stay as they are; every call is in some span, and none lies outside of its own.
TEST(FactsOfTrace, PutsShortCallsTogether) {
  TraceFile file = EmptyTrace();
  uint64_t now = 1000;
  for (int i = 0; i < 5000; ++i) {
    const bool isLong = i % 500 == 250;
    file.calls.push_back(Call(isLong ? 0 : 1, 1, now, isLong ? 1000000 : 20));
    now += (isLong ? 1000000 : 20) + 5;
  }
  file.endedNs = now;
  const ReportTrace trace = FactsOfTrace(file, "t", 100);
  EXPECT_LE(trace.spans.size(), 100U);
  uint64_t calls = 0;
  uint64_t longOnes = 0;
  uint64_t end = 0;
  for (const ReportSpan& span : trace.spans) {
    calls += span.calls;
    if (span.operation == 0) {
      ++longOnes;
      EXPECT_EQ(span.durationNs, 1000000U);
    }
    EXPECT_GE(span.beginNs, end);
    end = span.beginNs + span.durationNs;
  }
  EXPECT_EQ(calls, 5000U);
  EXPECT_EQ(longOnes, 10U);
}

TEST(FactsOfTrace, KeepsTheLongestOfTooManyThreads) {
  TraceFile file = EmptyTrace();
  for (uint32_t thread = 0; thread < 50; ++thread) {
    file.calls.push_back(Call(0, thread, 1000 + thread, 10 + thread));
  }
  const ReportTrace trace = FactsOfTrace(file, "t", 10);
  ASSERT_THAT(trace.spans, SizeIs(10));
  for (const ReportSpan& span : trace.spans) EXPECT_GE(span.durationNs, 50U);
}

// A damaged trace may tell any moments.
TEST(FactsOfTrace, EndsForTimesThatCannotBe) {
  TraceFile file = EmptyTrace();
  file.monotonicNs = 0;
  for (uint64_t i = 0; i < 100; ++i) file.calls.push_back(Call(0, 1, i, UINT64_MAX - i));
  file.calls.push_back(Call(0, 1, UINT64_MAX, 0));
  const ReportTrace trace = FactsOfTrace(file, "t", 10);
  EXPECT_LE(trace.spans.size(), 10U);
}

TEST(FactsOfTrace, FollowsTheMemory) {
  TraceFile file = EmptyTrace();
  for (uint64_t i = 0; i < 10000; ++i) {
    TracedCall call = Call(1, 1, 1000 + 10 * i, 5);
    call.arguments = {0, i == 5000 ? 1000000U : 1U};
    call.results = {0, i};
    file.calls.push_back(call);
    if (i != 5000) continue;
    TracedCall back = Call(2, 1, 1007 + 10 * i, 1);
    back.arguments = {i};
    file.calls.push_back(back);
  }
  const ReportTrace trace = FactsOfTrace(file, "t");
  EXPECT_LE(trace.memory.size(), kMostReportMoments);
  uint64_t most = 0;
  for (const MemoryMoment& moment : trace.memory) most = std::max(most, moment.bytes);
  EXPECT_EQ(most, 1005000U);
  EXPECT_EQ(trace.peakBytes, 1005000U);
  EXPECT_EQ(trace.memory.back().bytes, trace.leftBytes);
}

TEST(ReadTraceFacts, NamesAFileThatIsNone) {
  const support::TempDir folder;
  const std::string path = (folder.Path() / "trace.vtrace").string();
  support::WriteFile(path, "no trace");
  try {
    (void)ReadTraceFacts(path);
    FAIL();
  } catch (const Fault& fault) {
    EXPECT_EQ(fault.Status(), ExitStatus::kInput);
    EXPECT_THAT(fault.what(), HasSubstr("trace.vtrace"));
  }
  support::WriteSparseFile(path, uint64_t{1} << 30);
  try {
    (void)ReadTraceFacts(path);
    FAIL();
  } catch (const Fault& fault) {
    EXPECT_EQ(fault.Status(), ExitStatus::kLimit);
    EXPECT_THAT(fault.what(), HasSubstr("1.0 GiB"));
  }
}

}  // namespace
}  // namespace vorn::kit
