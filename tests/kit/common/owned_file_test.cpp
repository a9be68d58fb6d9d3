#include "kit/common/owned_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <utility>

namespace {

using vorn::kit::OwnedFile;

bool IsOpen(int fd) { return fcntl(fd, F_GETFD) != -1; }

OwnedFile OpenNull() { return OwnedFile(open("/dev/null", O_RDONLY | O_CLOEXEC)); }

TEST(OwnedFileTest, IsClosedByWhoeverHasItLast) {
  int number = -1;
  {
    OwnedFile first = OpenNull();
    number = first.Get();
    ASSERT_TRUE(first.IsOpen());
    const OwnedFile second = std::move(first);
    EXPECT_FALSE(first.IsOpen());  // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(second.Get(), number);
    EXPECT_TRUE(IsOpen(number));
  }
  EXPECT_FALSE(IsOpen(number));
}

TEST(OwnedFileTest, ClosesWhatAnotherTakesThePlaceOf) {
  OwnedFile file = OpenNull();
  OwnedFile other = OpenNull();
  const int before = file.Get();
  const int behind = other.Get();
  file = std::move(other);
  EXPECT_FALSE(IsOpen(before));
  EXPECT_EQ(file.Get(), behind);
  file.Close();
  EXPECT_FALSE(IsOpen(behind));
  EXPECT_FALSE(file.IsOpen());
  file.Close();
}

TEST(OwnedFileTest, IsNoneWhereOpenFailed) {
  const OwnedFile none(open("/no/such/file", O_RDONLY | O_CLOEXEC));
  EXPECT_FALSE(none.IsOpen());
  EXPECT_FALSE(OwnedFile().IsOpen());
}

}  // namespace
