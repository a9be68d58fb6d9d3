#include "app/standard_streams.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <initializer_list>

namespace vorn::run {
namespace {

bool AreOpen(std::initializer_list<int> descriptors) {
  for (const int fd : descriptors) {
    if (fcntl(fd, F_GETFD) == -1) return false;
  }
  return true;
}

// In a process of its own: closes these, holds the streams, and exits with 0 if all three are open
// and no other descriptor has been taken.
void HoldWithout(std::initializer_list<int> closed) {
  const int next = dup(STDIN_FILENO);
  close(next);
  for (const int fd : closed) close(fd);
  HoldStandardStreams();
  const bool open = AreOpen({0, 1, 2});
  const bool another = fcntl(next, F_GETFD) != -1;
  _exit(open && !another ? 0 : 1);
}

TEST(HoldStandardStreamsDeathTest, OpensWhicheverIsClosed) {
  EXPECT_EXIT(HoldWithout({}), testing::ExitedWithCode(0), "");
  EXPECT_EXIT(HoldWithout({0}), testing::ExitedWithCode(0), "");
  EXPECT_EXIT(HoldWithout({1}), testing::ExitedWithCode(0), "");
  EXPECT_EXIT(HoldWithout({2}), testing::ExitedWithCode(0), "");
  EXPECT_EXIT(HoldWithout({0, 1}), testing::ExitedWithCode(0), "");
  EXPECT_EXIT(HoldWithout({1, 2}), testing::ExitedWithCode(0), "");
  EXPECT_EXIT(HoldWithout({0, 2}), testing::ExitedWithCode(0), "");
  EXPECT_EXIT(HoldWithout({0, 1, 2}), testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace vorn::run
