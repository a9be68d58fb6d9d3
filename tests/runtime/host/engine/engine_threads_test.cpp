#include "host/engine/engine_threads.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>

#include "runtime/host/few_threads.h"
#include "runtime/host/refusal.h"

namespace vorn::host {
namespace {

TEST(EngineThreads, StartsOneLessThanTheSessionHas) {
  const int before = ThreadCount();
  const EngineThreads threads(5);
  EXPECT_EQ(ThreadCount(), before + 4);
}

TEST(EngineThreads, StartsNoneForTheCallersAlone) {
  const int before = ThreadCount();
  const EngineThreads threads(1);
  EXPECT_EQ(ThreadCount(), before);
}

TEST(EngineThreads, LeavesNoneWhereOneCannotBeStarted) {
  if (!CanLimitThreads()) GTEST_SKIP() << kWhyThreadsAreNotLimited;
  const auto start = [] {
    const int before = ThreadCount();
    LimitThreadsTo(2);
    const std::string reason = ReasonOf(VORN_ERROR_INTERNAL, [] { const EngineThreads none(9); });
    std::fputs(reason.c_str(), stderr);
    const EngineThreads some(3);  // there is room for their stacks again
    _exit(ThreadCount() == before + 2 ? 0 : 1);
  };
  EXPECT_EXIT(start(), testing::ExitedWithCode(0),
              "^'threads' is 9, but one of them cannot be started \\(.+\\); give a smaller number, "
              "or the process more threads and memory$");
}

}  // namespace
}  // namespace vorn::host
