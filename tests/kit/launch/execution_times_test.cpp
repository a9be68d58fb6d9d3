#include "kit/launch/execution_times.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kit/common/fault.h"
#include "kit/trace/trace_bytes.h"
#include "support/files.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using vorn::kit::ExecutionTimes;
using vorn::kit::OperationInside;

// Operations by their place in the file.
constexpr uint16_t kDataset = 0;
constexpr uint16_t kExecute = 1;
constexpr uint16_t kOther = 2;
const std::vector<std::string> kNames{"vorn_mdl_create_dataset", "vorn_mdl_execute",
                                      "vorn_rt_free"};

class Times : public testing::Test {
 protected:
  std::string Path() const { return (folder_.Path() / "trace").string(); }

  ExecutionTimes Read(const TraceBytes& trace) {
    support::WriteFile(Path(), trace.Text());
    return vorn::kit::ReadExecutionTimes(Path());
  }

  support::TempDir folder_;
};

TEST(CallsOfRun, GrowWithTensorsInferencesAndExecutions) {
  const uint64_t calls = vorn::kit::CallsOfRun(1, 1, 10, 1);
  EXPECT_GT(vorn::kit::CallsOfRun(2, 1, 10, 1), calls);
  EXPECT_GT(vorn::kit::CallsOfRun(1, 2, 10, 1), calls);
  EXPECT_GT(vorn::kit::CallsOfRun(1, 1, 11, 1), calls);
  EXPECT_EQ(vorn::kit::CallsOfRun(1, 1, 10, 21), calls + 200);
}

TEST_F(Times, DividesExecutionsByTheDatasetsBeforeThem) {
  TraceBytes trace(kNames);
  trace
      .Call({.operation = kDataset, .beganNs = 1100, .endedNs = 1110})  // of the outputs
      .Call({.operation = kDataset, .beganNs = 1200, .endedNs = 1210})
      .Call({.operation = kExecute, .beganNs = 1300, .endedNs = 1350})
      .Call({.operation = kExecute, .beganNs = 1400, .endedNs = 1407})
      .Call({.operation = kOther, .beganNs = 1500, .endedNs = 1501})
      .Call({.operation = kDataset, .beganNs = 1600, .endedNs = 1610})
      .Call({.operation = kExecute, .beganNs = 1700, .endedNs = 1703});
  const ExecutionTimes times = Read(trace);
  EXPECT_EQ(times.host, "board");
  ASSERT_THAT(times.inferences, SizeIs(2));
  EXPECT_EQ(times.inferences[0].startRealtimeNs, 5300U);  // 1000 is 5000 by the other clock
  EXPECT_THAT(times.inferences[0].executeNs, ElementsAre(50, 7));
  EXPECT_EQ(times.inferences[1].startRealtimeNs, 5700U);
  EXPECT_THAT(times.inferences[1].executeNs, ElementsAre(3));
  EXPECT_EQ(times.phases.at("execute"), 60U);
  EXPECT_EQ(times.phases.at("start"), 100U);
  EXPECT_EQ(times.phases.at("whole"), 703U);
}

TEST_F(Times, LeavesOutAnExecutionThatDidNotComeBack) {
  TraceBytes trace(kNames);
  trace.Call({.operation = kDataset, .beganNs = 1100, .endedNs = 1110})
      .Call({.operation = kExecute, .beganNs = 1300, .endedNs = 0});
  EXPECT_THAT(Read(trace).inferences, IsEmpty());
  EXPECT_EQ(OperationInside(Path()), "vorn_mdl_execute");
}

TEST_F(Times, LeavesOutAnInferenceWhoseExecutionsMayBeLost) {
  TraceBytes trace(kNames, 3);
  trace.Call({.operation = kDataset, .beganNs = 1, .endedNs = 2})
      .Call({.operation = kExecute, .beganNs = 3, .endedNs = 4})
      .Call({.operation = kDataset, .beganNs = 5, .endedNs = 6});
  trace.Put64(48, 5);
  EXPECT_EQ(Read(trace).dropped, 2U);
  EXPECT_THAT(Read(trace).inferences, IsEmpty());
}

TEST_F(Times, IsInsideOfNothingBetweenCalls) {
  TraceBytes trace(kNames);
  EXPECT_THAT(Read(trace).inferences, IsEmpty());
  EXPECT_EQ(OperationInside(Path()), "");
  trace.Call({.operation = kOther, .beganNs = 1300, .endedNs = 1400});
  (void)Read(trace);
  EXPECT_EQ(OperationInside(Path()), "");
  EXPECT_EQ(OperationInside(""), "");
  EXPECT_EQ(OperationInside("/no/trace"), "");
}

TEST_F(Times, RefusesWhatIsNoTrace) {
  support::WriteFile(Path(), "");
  EXPECT_THROW((void)vorn::kit::ReadExecutionTimes(Path()), vorn::kit::Fault);
  support::WriteFile(Path(), std::string(10000, '\xFF'));
  EXPECT_THROW((void)vorn::kit::ReadExecutionTimes(Path()), vorn::kit::Fault);
}

// More calls than are read at once, and a file that ends within one.
TEST_F(Times, ReadsLongTraces) {
  TraceBytes trace(kNames, 5000);
  for (uint64_t i = 0; i < 2000; ++i) {
    trace.Call({.operation = kDataset, .beganNs = 1000 + 10 * i, .endedNs = 1001 + 10 * i});
    trace.Call({.operation = kExecute, .beganNs = 1002 + 10 * i, .endedNs = 1005 + 10 * i});
  }
  EXPECT_THAT(Read(trace).inferences, SizeIs(2000));
  support::WriteFile(Path(), trace.Text().substr(0, 8192 + 128 * 1999 + 100));
  EXPECT_THAT(vorn::kit::ReadExecutionTimes(Path()).inferences, SizeIs(999));
}

}  // namespace
