#include "kit/launch/part_list.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <random>

namespace {

using vorn::kit::RelativePath;

TEST(RelativePath, GoesUpAndDownBetweenFolders) {
  EXPECT_EQ(RelativePath("/a/b", "/a/c"), "../c");
  EXPECT_EQ(RelativePath("/a/b", "/a/b/c/d"), "c/d");
  EXPECT_EQ(RelativePath("/a/b", "/a/bc/d"), "../bc/d");
  EXPECT_EQ(RelativePath("/a/bc", "/a/b/d"), "../b/d");
  EXPECT_EQ(RelativePath("/a/b/c", "/x"), "../../../x");
  EXPECT_EQ(RelativePath("/a", "/a"), "../a");
}

TEST(RelativePath, FindsTheFileAgain) {
  std::mt19937 random(7);
  const auto path = [&] {
    std::string made;
    for (size_t parts = 1 + random() % 4; parts > 0; --parts) {
      made += "/" + std::string(1 + random() % 2, static_cast<char>('a' + random() % 2));
    }
    return made;
  };
  for (int round = 0; round < 5000; ++round) {
    const std::string folder = path();
    const std::string file = path();
    const std::string relative = RelativePath(folder, file);
    ASSERT_EQ((std::filesystem::path(folder) / relative).lexically_normal(), file)
        << folder << ": " << relative;
    ASSERT_NE(relative.front(), '/');
  }
}

}  // namespace
