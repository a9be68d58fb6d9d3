#include "kit/common/folder_lock.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <optional>

#include "kit/common/fault.h"
#include "support/files.h"

namespace {

using vorn::kit::ExitStatus;
using vorn::kit::FolderLock;

std::string FaultOf(ExitStatus status, const std::string& folder) {
  try {
    const FolderLock lock(folder, "stow");
  } catch (const vorn::kit::Fault& fault) {
    EXPECT_EQ(fault.Status(), status);
    return fault.what();
  }
  return "no fault";
}

TEST(FolderLock, IsForOneAtATime) {
  const support::TempDir folder;
  std::optional<FolderLock> first(std::in_place, folder.Path(), "stow");
  EXPECT_EQ(FaultOf(ExitStatus::kUsage, folder.Path()),
            "another vorn stow is at work in '" + folder.Path().string() +
                "'; wait for it, or give another folder");
  first.reset();
  EXPECT_EQ(FaultOf(ExitStatus::kUsage, folder.Path()), "no fault");
}

TEST(FolderLock, IsSeenByOthersWithoutATrace) {
  const support::TempDir folder;
  const std::string path = folder.Path().string();
  EXPECT_FALSE(vorn::kit::IsFolderLocked(path));
  EXPECT_TRUE(std::filesystem::is_empty(folder.Path()));
  EXPECT_FALSE(vorn::kit::IsFolderLocked(path + "/none"));
  {
    const FolderLock lock(path, "stow");
    EXPECT_TRUE(vorn::kit::IsFolderLocked(path));
  }
  EXPECT_FALSE(vorn::kit::IsFolderLocked(path));
}

TEST(FolderLock, FollowsNoLink) {
  const support::TempDir folder;
  const std::string lock = (folder.Path() / ".lock").string();
  ASSERT_EQ(symlink("elsewhere", lock.c_str()), 0);
  EXPECT_NE(FaultOf(ExitStatus::kLimit, folder.Path()).find("'" + lock + "' cannot be written: "),
            std::string::npos);
}

}  // namespace
