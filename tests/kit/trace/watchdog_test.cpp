#include "kit/trace/watchdog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kit/trace/trace_bytes.h"
#include "support/files.h"

namespace vorn::kit {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Stuck : public testing::Test {
 protected:
  std::vector<StuckCall> Look(const TraceBytes& bytes, uint64_t nowNs) {
    support::WriteFile(path_, bytes.Text());
    return finder_.Look(path_, nowNs);
  }

  support::TempDir folder_;
  std::string path_ = (folder_.Path() / "t").string();
  StuckFinder finder_{100};
};

TEST_F(Stuck, IsACallThatHasBeenInsideForTheLimit) {
  TraceBytes bytes({"first", "second"});
  bytes.Call({.operation = 0, .beganNs = 1000, .endedNs = 1500});
  bytes.Call({.operation = 1, .beganNs = 2000, .endedNs = 0, .thread = 9});
  EXPECT_THAT(Look(bytes, 2099), IsEmpty());
  EXPECT_THAT(Look(bytes, 2150),
              ElementsAre(StuckCall{
                  .pid = 42, .thread = 9, .number = 2, .operation = "second", .insideNs = 150}));
  EXPECT_THAT(Look(bytes, 3000), IsEmpty());  // once
}

TEST_F(Stuck, IsLookedForInWhatCameSince) {
  TraceBytes bytes({"first"});
  bytes.Call({.operation = 0, .beganNs = 1000, .endedNs = 0});
  EXPECT_THAT(Look(bytes, 1050), IsEmpty());
  bytes.Call({.operation = 0, .beganNs = 1060, .endedNs = 0});
  EXPECT_EQ(Look(bytes, 1160).size(), 2U);
  TraceBytes returned({"first"});
  returned.Call({.operation = 0, .beganNs = 1000, .endedNs = 1001});
  EXPECT_THAT(Look(returned, 5000), IsEmpty());
}

TEST_F(Stuck, IsNothingInWhatIsNoTrace) {
  EXPECT_THAT(finder_.Look(path_ + "missing", 1), IsEmpty());
  support::WriteFile(path_, "no trace");
  EXPECT_THAT(finder_.Look(path_, 1), IsEmpty());
  TraceBytes bytes({"first"});
  bytes.Put64(48, 900);  // begun, and not in the file yet
  EXPECT_THAT(Look(bytes, 5000), IsEmpty());
  bytes.Put64(40, UINT64_MAX);
  bytes.Put64(48, UINT64_MAX);
  EXPECT_THAT(Look(bytes, 5000), IsEmpty());
}

}  // namespace
}  // namespace vorn::kit
