#include "kit/common/file_place.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "kit/common/fault.h"
#include "support/files.h"

namespace {

using vorn::kit::ClearPlace;

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
