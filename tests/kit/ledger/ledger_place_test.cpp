#include "kit/ledger/ledger_place.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>

#include "kit/common/fault.h"
#include "support/files.h"

namespace vorn::kit {
namespace {

using testing::HasSubstr;

class LedgerPlace : public testing::Test {
 protected:
  LedgerPlace() {
    for (const char* name : {"VORN_HISTORY", "XDG_DATA_HOME", "HOME"}) unsetenv(name);
  }
};

TEST_F(LedgerPlace, GoesByTheFirstThatSaysOne) {
  EXPECT_THROW((void)LedgerPath(""), Fault);
  setenv("HOME", "/home/one", 1);
  EXPECT_EQ(LedgerPath(""), "/home/one/.local/share/vorn/history.sqlite");
  setenv("XDG_DATA_HOME", "relative", 1);
  EXPECT_EQ(LedgerPath(""), "/home/one/.local/share/vorn/history.sqlite");
  setenv("XDG_DATA_HOME", "/data", 1);
  EXPECT_EQ(LedgerPath(""), "/data/vorn/history.sqlite");
  setenv("VORN_HISTORY", "/all/runs", 1);
  EXPECT_EQ(LedgerPath(""), "/all/runs");
  EXPECT_EQ(LedgerPath("/own"), "/own");
}

// The library takes ":memory:" for no file, and a relative path counts from here.
TEST_F(LedgerPlace, IsAbsolute) {
  EXPECT_EQ(LedgerPath(":memory:"), std::filesystem::current_path() / ":memory:");
}

TEST(NetworkFileSystem, KnowsThoseByTheirNumbers) {
  EXPECT_EQ(NetworkFileSystem(0x6969), "NFS");
  EXPECT_EQ(NetworkFileSystem(0xff534d42), "CIFS");
  // As a signed 32-bit number, which some systems have, it comes out with more digits.
  EXPECT_EQ(NetworkFileSystem(0xffffffffff534d42), "CIFS");
  EXPECT_EQ(NetworkFileSystem(0xef53), std::nullopt);      // ext4
  EXPECT_EQ(NetworkFileSystem(0x01021994), std::nullopt);  // tmpfs
}

TEST(HoldToLocalFile, RefusesWhatIsNoFile) {
  const support::TempDir folder;
  const std::string pipe = folder.Path() / "pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  for (const std::string& path : {pipe, folder.Path().string()}) {
    try {
      HoldToLocalFile(path);
      FAIL() << path;
    } catch (const Fault& fault) {
      EXPECT_EQ(fault.Status(), ExitStatus::kInput);
      EXPECT_THAT(fault.what(), HasSubstr("is no file"));
    }
  }
  EXPECT_NO_THROW(HoldToLocalFile(folder.Path() / "new"));
}

TEST(HoldToLocalFile, RefusesWhatIsTooSmallForADatabase) {
  const support::TempDir folder;
  const std::string path = folder.Path() / "notes";
  support::WriteFile(path, "to do");
  EXPECT_THROW(HoldToLocalFile(path), Fault);
  support::WriteFile(path, "");
  EXPECT_NO_THROW(HoldToLocalFile(path));
}

TEST(MakeFoldersOf, MakesThoseThatAreMissing) {
  const support::TempDir folder;
  MakeFoldersOf(folder.Path() / "a/b/file");
  EXPECT_TRUE(std::filesystem::is_directory(folder.Path() / "a/b"));
  EXPECT_FALSE(std::filesystem::exists(folder.Path() / "a/b/file"));
  support::WriteFile(folder.Path() / "c", "");
  EXPECT_THROW(MakeFoldersOf(folder.Path() / "c/d/file"), Fault);
}

}  // namespace
}  // namespace vorn::kit
