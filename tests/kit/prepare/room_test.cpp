#include "kit/prepare/room.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

#include "support/files.h"

namespace vorn::kit {
namespace {

using testing::HasSubstr;

std::string Why(const std::vector<FilesToMake>& files, const Room& room) {
  return WhyNoRoom(files, room);
}

TEST(WhyNoRoom, CountsWholeBlocks) {
  const Room room{.bytes = 40960, .blockBytes = 4096, .files = {}};
  EXPECT_EQ(Why({{10, 4}}, room), "");
  EXPECT_EQ(Why({{11, 4}}, room),
            "they take 44.0 KiB of whole blocks, and there is room for 40.0 KiB");
  EXPECT_EQ(Why({{5, 4097}}, room), "");
  EXPECT_NE(Why({{5, 4097}, {1, 1}}, room), "");
  EXPECT_EQ(Why({{1000, 0}}, room), "");
}

TEST(WhyNoRoom, CountsFiles) {
  const Room room{.bytes = 1 << 30, .blockBytes = 4096, .files = 9};
  EXPECT_EQ(Why({{4, 4}, {5, 0}}, room), "");
  EXPECT_EQ(Why({{4, 4}, {6, 0}}, room), "they are 10 files, and there is room for 9");
}

TEST(WhyNoRoom, IsNotMisledByHugeNumbers) {
  const Room room{.bytes = 1 << 30, .blockBytes = 4096, .files = {}};
  EXPECT_NE(Why({{uint64_t{1} << 32, uint64_t{1} << 32}}, room), "");
  EXPECT_NE(Why({{1, UINT64_MAX}}, room), "");
  EXPECT_NE(Why({{UINT64_MAX / 4096, 1}, {UINT64_MAX / 4096, 1}}, room), "");
}

TEST(RoomAt, IsThatOfTheFirstFolderThatIsThere) {
  const support::TempDir folder;
  const auto here = RoomAt(folder.Path());
  const auto below = RoomAt((folder.Path() / "not/yet/there").string());
  ASSERT_TRUE(here && below);
  EXPECT_GT(here->bytes, 0U);
  EXPECT_EQ(below->blockBytes, here->blockBytes);
  EXPECT_TRUE(RoomAt("nothing"));
  EXPECT_TRUE(RoomAt("/nothing"));
}

TEST(TakenIn, CountsTheFilesOfAFolder) {
  const support::TempDir folder;
  EXPECT_EQ(TakenIn((folder.Path() / "none").string()).files, 0U);
  support::WriteFile((folder.Path() / "one").string(), std::string(10000, 'x'));
  support::WriteFile((folder.Path() / "two").string(), "");
  const Room taken = TakenIn(folder.Path());
  EXPECT_EQ(taken.files, 2U);
  EXPECT_GE(taken.bytes, 10000U);
}

}  // namespace
}  // namespace vorn::kit
