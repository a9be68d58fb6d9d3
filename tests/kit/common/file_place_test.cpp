#include "kit/common/file_place.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "kit/common/fault.h"
#include "support/files.h"

namespace {

using vorn::kit::Absolute;
using vorn::kit::Below;
using vorn::kit::ClearPlace;
using vorn::kit::IsSameFile;
using vorn::kit::IsTaken;
using vorn::kit::IsThere;
using vorn::kit::WithoutDetours;

TEST(IsThere, FollowsLinksAndIsTakenDoesNot) {
  const support::TempDir folder;
  const auto path = [&](const char* name) { return (folder.Path() / name).string(); };
  support::WriteFile(path("file"), "one");
  ASSERT_EQ(symlink("file", path("link").c_str()), 0);
  ASSERT_EQ(symlink("nowhere", path("dangling").c_str()), 0);
  EXPECT_TRUE(IsThere(path("file")) && IsThere(path("link")) && IsThere(path(".")));
  EXPECT_FALSE(IsThere(path("dangling")) || IsThere(path("none")) || IsThere(""));
  EXPECT_TRUE(IsTaken(path("file")) && IsTaken(path("link")) && IsTaken(path("dangling")));
  EXPECT_FALSE(IsTaken(path("none")));
}

TEST(IsSameFile, GoesByWhatIsThere) {
  const support::TempDir folder;
  const std::string one = folder.Path() / "one";
  const std::string link = folder.Path() / "link";
  EXPECT_FALSE(IsSameFile(one, one));  // there is none
  support::WriteFile(one, "");
  support::WriteFile(folder.Path() / "other", "");
  std::filesystem::create_symlink("one", link);
  EXPECT_TRUE(IsSameFile(one, link));
  EXPECT_TRUE(IsSameFile(one, folder.Path() / "." / "one"));
  EXPECT_FALSE(IsSameFile(one, folder.Path() / "other"));
}

TEST(Below, LeavesWhatDoesNotCountFromTheFolder) {
  EXPECT_EQ(Below("jobs/a", "x.png"), "jobs/a/x.png");
  EXPECT_EQ(Below("jobs", "../x.png"), "jobs/../x.png");
  EXPECT_EQ(Below("jobs", "/x.png"), "/x.png");
  EXPECT_EQ(Below("", "x.png"), "x.png");
}

TEST(Absolute, CountsFromTheRoot) {
  const std::string here = std::filesystem::current_path().string();
  EXPECT_EQ(Absolute("a"), here + "/a");
  EXPECT_EQ(Absolute("./a//b/./c/"), here + "/a/b/c");
  EXPECT_EQ(Absolute("."), here);
  EXPECT_EQ(Absolute("/"), "/");
  EXPECT_EQ(Absolute("//a/."), "/a");
  EXPECT_EQ(Absolute(""), "");
}

TEST(Absolute, LeadsWhereThePathDoes) {
  const support::TempDir folder;
  const auto path = [&](const char* name) { return (folder.Path() / name).string(); };
  std::filesystem::create_directories(path("real/inner"));
  support::WriteFile(path("real/file"), "one");
  ASSERT_EQ(symlink("real/inner", path("link").c_str()), 0);
  EXPECT_EQ(Absolute(path("link/../file")), path("link/../file"));
  EXPECT_TRUE(IsThere(Absolute(path("link/../file"))));
}

TEST(WithoutDetours, LeadsWhereThePathDoes) {
  const support::TempDir folder;
  const auto path = [&](const char* name) { return (folder.Path() / name).string(); };
  std::filesystem::create_directories(path("real/inner"));
  support::WriteFile(path("real/file"), "one");
  ASSERT_EQ(symlink("real/inner", path("link").c_str()), 0);
  EXPECT_EQ(WithoutDetours(path("real/./inner/../../real//file")), path("real/file"));
  // Behind a link, or what is not there or no folder, it leads elsewhere or nowhere.
  for (const char* kept : {"link/../file", "none/../real/file", "real/file/../file"}) {
    EXPECT_EQ(WithoutDetours(path(kept)), path(kept));
  }
  EXPECT_EQ(WithoutDetours("../../a/./b/"), "../../a/b");
  EXPECT_EQ(WithoutDetours("./"), ".");
  EXPECT_EQ(WithoutDetours("/"), "/");
  EXPECT_EQ(WithoutDetours(""), "");
}

class ClearedPlace : public testing::Test {
 protected:
  std::string Path(const std::string& name) const { return (folder_.Path() / name).string(); }

  std::string FaultAt(const std::string& name) const {
    try {
      ClearPlace(Path(name));
    } catch (const vorn::kit::Fault& fault) {
      EXPECT_EQ(fault.Status(), vorn::kit::ExitStatus::kLimit);
      return fault.what();
    }
    return "no fault";
  }

  support::TempDir folder_;
};

TEST_F(ClearedPlace, LeavesAFileAndNothing) {
  support::WriteFile(Path("file"), "one");
  ClearPlace(Path("file"));
  ClearPlace(Path("none"));
  ClearPlace(Path("no/folder"));
  EXPECT_EQ(support::ReadFile(Path("file")), "one");
}

TEST_F(ClearedPlace, RemovesALinkAndNotWhatItLeadsTo) {
  support::WriteFile(Path("file"), "one");
  ASSERT_EQ(symlink("file", Path("link").c_str()), 0);
  ASSERT_EQ(symlink("nowhere", Path("dangling").c_str()), 0);
  ClearPlace(Path("link"));
  ClearPlace(Path("dangling"));
  EXPECT_FALSE(std::filesystem::is_symlink(Path("link")));
  EXPECT_FALSE(std::filesystem::is_symlink(Path("dangling")));
  EXPECT_EQ(support::ReadFile(Path("file")), "one");
}

TEST_F(ClearedPlace, RefusesWhatIsNoFile) {
  ASSERT_EQ(mkfifo(Path("pipe").c_str(), 0600), 0);
  std::filesystem::create_directory(Path("folder"));
  EXPECT_EQ(FaultAt("pipe"),
            "cannot write '" + Path("pipe") + "': a pipe is in its place; remove it");
  EXPECT_EQ(FaultAt("folder"),
            "cannot write '" + Path("folder") + "': a folder is in its place; remove it");
}

}  // namespace
