#include "kit/common/folder_names.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "support/files.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using vorn::kit::NamesIn;

TEST(NamesIn, AreSortedByBytesAndHoldHiddenOnes) {
  const support::TempDir folder;
  for (const char* name : {"b", "a", ".hidden", "B", "\xff", "10", "9"}) {
    support::WriteFile(folder.Path() / name, "");
  }
  std::filesystem::create_directory(folder.Path() / "folder");
  std::filesystem::create_symlink("nowhere", folder.Path() / "link");
  EXPECT_THAT(NamesIn(folder.Path()),
              ElementsAre(".hidden", "10", "9", "B", "a", "b", "folder", "link", "\xff"));
}

TEST(NamesIn, AreNoneWhereThereIsNoFolder) {
  const support::TempDir folder;
  support::WriteFile(folder.Path() / "file", "");
  EXPECT_THAT(NamesIn(folder.Path() / "none"), IsEmpty());
  EXPECT_THAT(NamesIn(folder.Path() / "file"), IsEmpty());
  std::filesystem::create_directory(folder.Path() / "empty");
  EXPECT_THAT(NamesIn(folder.Path() / "empty"), IsEmpty());
}

}  // namespace
