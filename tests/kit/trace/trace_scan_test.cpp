#include "kit/trace/trace_scan.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kit/trace/trace_bytes.h"
#include "support/files.h"

namespace vorn::kit {
namespace {

using testing::ElementsAre;

class Scan : public testing::Test {
 protected:
  std::vector<std::string> OperationsOf(const TraceBytes& trace) const {
    const std::string path = folder_.Path() / "trace";
    support::WriteFile(path, trace.Text());
    TraceScan scan(path);
    std::vector<std::string> operations;
    while (const auto call = scan.Next()) operations.emplace_back(call->operation);
    return operations;
  }

  support::TempDir folder_;
};

TEST_F(Scan, PassesOverOperationsThatTheFileDoesNotName) {
  TraceBytes trace({"first", "second"});
  for (const uint16_t operation : std::initializer_list<uint16_t>{1, 2, 0, 65535}) {
    trace.Call({.operation = operation, .beganNs = 1100, .endedNs = 1200});
  }
  EXPECT_THAT(OperationsOf(trace), ElementsAre("second", "first"));
}

}  // namespace
}  // namespace vorn::kit
