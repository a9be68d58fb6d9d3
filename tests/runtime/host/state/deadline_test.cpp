#include "host/state/deadline.h"

#include <gtest/gtest.h>

#include <atomic>

namespace vorn::host {
namespace {

TEST(Deadline, CallsOnceItsTimeHasCome) {
  std::atomic<int> calls = 0;
  Deadline deadline(0, [&] {
    ++calls;
    calls.notify_all();
  });
  calls.wait(0);
  EXPECT_TRUE(deadline.Lift());
  EXPECT_EQ(calls, 1);
  EXPECT_TRUE(deadline.Lift());
}

TEST(Deadline, CallsNothingOnceItIsLifted) {
  std::atomic<int> calls = 0;
  Deadline deadline(UINT32_MAX, [&] { ++calls; });
  EXPECT_FALSE(deadline.Lift());
  EXPECT_FALSE(deadline.Lift());
  EXPECT_EQ(calls, 0);
}

TEST(Deadline, IsLiftedByItsEnd) {
  std::atomic<int> calls = 0;
  {
    const Deadline deadline(3600, [&] { ++calls; });
  }
  EXPECT_EQ(calls, 0);
}

}  // namespace
}  // namespace vorn::host
