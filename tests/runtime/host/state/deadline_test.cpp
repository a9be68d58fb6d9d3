#include "host/state/deadline.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <string>

#include "runtime/host/few_threads.h"
#include "runtime/host/refusal.h"

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

TEST(Deadline, WaitsForACallThatHasBegunWhenItIsLifted) {
  std::atomic<bool> hasBegun = false;
  std::atomic<bool> isThrough = false;
  Deadline deadline(0, [&] {
    hasBegun = true;
    hasBegun.notify_all();
    usleep(50'000);  // so that whoever does not wait comes too early
    isThrough = true;
  });
  hasBegun.wait(false);
  EXPECT_TRUE(deadline.Lift());
  EXPECT_TRUE(isThrough);
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

TEST(Deadline, SaysThatThereIsNoThreadForIt) {
  if (!CanLimitThreads()) GTEST_SKIP() << kWhyThreadsAreNotLimited;
  const auto start = [] {
    LimitThreadsTo(0);
    const std::string reason =
        ReasonOf(VORN_ERROR_INTERNAL, [] { const Deadline deadline(3, [] {}); });
    std::fputs(reason.c_str(), stderr);
    _exit(0);
  };
  EXPECT_EXIT(start(), testing::ExitedWithCode(0),
              "^there is no thread to watch the time-out of 3 s \\(.+\\)$");
}

}  // namespace
}  // namespace vorn::host
