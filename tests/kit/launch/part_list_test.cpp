#include "kit/launch/part_list.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <random>

#include "kit/common/fault.h"
#include "support/files.h"

namespace {

namespace fs = std::filesystem;

using vorn::kit::PartList;
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
    ASSERT_EQ((fs::path(folder) / relative).lexically_normal(), file) << folder << ": " << relative;
    ASSERT_NE(relative.front(), '/');
  }
}

class PartListTest : public testing::Test {
 protected:
  PartListTest() { fs::create_directories(Path("part")); }

  std::string Path(const std::string& name) const { return (folder_.Path() / name).string(); }

  std::string Make(const std::string& name) const {
    support::WriteFile(Path(name), name);
    return Path(name);
  }

  /// What the list's line leads to, from the folder of the list on.
  std::string Read(const std::string& line) const {
    return support::ReadFile(fs::path(Path("part")) / line);
  }

  support::TempDir folder_;
};

TEST_F(PartListTest, NamesFilesFromTheFolderOn) {
  PartList list(Path("part"));
  EXPECT_EQ(list.PathTo(Make("in/a b.bin")), "../in/a b.bin");
  EXPECT_EQ(list.PathTo(Make("part/x")), "x");
  EXPECT_FALSE(fs::exists(Path("part/links")));
}

TEST_F(PartListTest, LinksToFilesWhoseNamesNoLineCanHold) {
  PartList list(Path("part"));
  EXPECT_EQ(list.PathTo(Make("in/a:b")), "links/0");
  EXPECT_EQ(list.PathTo(Make("in/a\nb")), "links/1");
  EXPECT_EQ(list.PathTo(Make("in/\xFF\xFE")), "../in/\xFF\xFE");
  EXPECT_EQ(Read("links/0"), "in/a:b");
  EXPECT_EQ(Read("links/1"), "in/a\nb");
}

TEST_F(PartListTest, FollowsLinksOfFilesAndOfTheirFolders) {
  PartList list(Path("part"));
  (void)Make("real/a");
  (void)Make("real/b");
  fs::create_directory_symlink(Path("real"), Path("seen"));
  fs::create_symlink("a", Path("real/c"));
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(list.PathTo(Path("seen/a")), "../real/a");
    EXPECT_EQ(list.PathTo(Path("seen/b")), "../real/b");
    EXPECT_EQ(list.PathTo(Path("seen/c")), "../real/a");
    EXPECT_EQ(list.PathTo(Path("part/../real/b")), "../real/b");
  }
}

TEST_F(PartListTest, GoesByWhereFilesAreAndNotByTheirLinks) {
  Make("in/a");
  fs::create_directory_symlink(Path("in"), Path("to:in"));
  fs::create_directory_symlink(Path("part"), Path("to part"));
  PartList list(Path("to part"));
  EXPECT_EQ(list.PathTo(Path("to:in/a")), "../in/a");
}

TEST_F(PartListTest, LinksToWhatIsNotThere) {
  PartList list(Path("part"));
  EXPECT_EQ(list.PathTo(Path("none")), "links/0");
  EXPECT_EQ(fs::read_symlink(Path("part/links/0")), Path("none"));
}

TEST_F(PartListTest, SaysWhereItCannotMakeALink) {
  PartList list(Path("part"));
  support::WriteFile(Path("part/links"), "");
  EXPECT_THROW((void)list.PathTo(Path("none")), vorn::kit::Fault);
}

}  // namespace
