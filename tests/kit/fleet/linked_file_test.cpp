#include "kit/fleet/linked_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "kit/common/fault.h"
#include "support/files.h"

namespace {

namespace fs = std::filesystem;

using testing::HasSubstr;
using vorn::kit::CopyFile;
using vorn::kit::ExitStatus;
using vorn::kit::Fault;
using vorn::kit::LinkOrCopy;
using vorn::kit::MakeFolderFor;

class LinkedFile : public testing::Test {
 protected:
  std::string Path(const std::string& name) const { return (folder_.Path() / name).string(); }

  template <typename Work>
  static std::string FaultOf(const Work& work, ExitStatus status) {
    try {
      work();
    } catch (const Fault& fault) {
      EXPECT_EQ(fault.Status(), status);
      return fault.what();
    }
    return "";
  }

  support::TempDir folder_;
};

TEST_F(LinkedFile, IsTheSameFile) {
  support::WriteFile(Path("from"), "bytes");
  EXPECT_FALSE(LinkOrCopy(Path("from"), Path("to")));
  EXPECT_TRUE(fs::equivalent(Path("from"), Path("to")));
  EXPECT_FALSE(LinkOrCopy(Path("from"), Path("to")));  // once more
  EXPECT_EQ(support::ReadFile(Path("to")), "bytes");
}

TEST_F(LinkedFile, TakesThePlaceOfWhateverIsThere) {
  support::WriteFile(Path("from"), "bytes");
  support::WriteFile(Path("victim"), "untouched");
  support::WriteFile(Path("file"), "other");
  support::WriteFile(Path("folder/file"), "other");
  fs::create_symlink("victim", Path("link"));
  for (const char* to : {"file", "folder", "link"}) {
    LinkOrCopy(Path("from"), Path(to));
    EXPECT_FALSE(fs::is_symlink(Path(to)));
    EXPECT_EQ(support::ReadFile(Path(to)), "bytes") << to;
    CopyFile(Path("from"), Path(to));
    EXPECT_FALSE(fs::equivalent(Path("from"), Path(to)));
    EXPECT_EQ(support::ReadFile(Path(to)), "bytes") << to;
  }
  EXPECT_EQ(support::ReadFile(Path("victim")), "untouched");
}

TEST_F(LinkedFile, IsACopyOnAnotherFileSystem) {
  struct stat here {};
  struct stat there {};
  ASSERT_EQ(stat(folder_.Path().c_str(), &here), 0);
  if (stat("/dev/shm", &there) != 0 || here.st_dev == there.st_dev ||
      access("/dev/shm", W_OK) != 0) {
    GTEST_SKIP() << "there is no second file system";
  }
  const std::string to = "/dev/shm/vorn-test-" + std::to_string(getpid());
  const std::string bytes = support::CountingBytes(600000);
  support::WriteFile(Path("from"), bytes);
  EXPECT_TRUE(LinkOrCopy(Path("from"), to));
  EXPECT_EQ(support::ReadFile(to), bytes);
  fs::remove(to);
}

TEST_F(LinkedFile, CopiesThroughNoLink) {
  support::WriteFile(Path("secret"), "secret");
  fs::create_symlink("secret", Path("link"));
  EXPECT_THAT(FaultOf([&] { LinkOrCopy(Path("link"), Path("to")); }, ExitStatus::kInput),
              HasSubstr("is no regular file any more"));
  EXPECT_THAT(FaultOf([&] { CopyFile(Path("link"), Path("to")); }, ExitStatus::kInput),
              HasSubstr("cannot be opened"));
  EXPECT_FALSE(fs::exists(Path("to")));
}

TEST_F(LinkedFile, SaysWhatIsGoneAndWhereItCannotBe) {
  EXPECT_THAT(FaultOf([&] { LinkOrCopy(Path("no"), Path("to")); }, ExitStatus::kInput),
              HasSubstr("is gone"));
  support::WriteFile(Path("from"), "bytes");
  EXPECT_THAT(FaultOf([&] { LinkOrCopy(Path("from"), Path("no/to")); }, ExitStatus::kLimit),
              HasSubstr("cannot write"));
  EXPECT_THAT(FaultOf([&] { CopyFile(Path("from"), Path("no/to")); }, ExitStatus::kLimit),
              HasSubstr("cannot write"));
}

TEST_F(LinkedFile, StandsInAFolderWithItsLikeAlone) {
  MakeFolderFor(Path("folder"), {});
  for (const char* name : {"folder/kept", "folder/other", "folder/below/file"}) {
    support::WriteFile(Path(name), name);
  }
  MakeFolderFor(Path("folder"), {"kept", "not there"});
  EXPECT_EQ(support::ReadTree(Path("folder")),
            (std::map<std::string, std::string>{{"kept", "folder/kept"}}));
  fs::create_symlink("folder", Path("link"));
  MakeFolderFor(Path("link"), {});
  EXPECT_FALSE(fs::is_symlink(Path("link")));
  EXPECT_TRUE(fs::exists(Path("folder/kept")));
  EXPECT_THAT(FaultOf([&] { MakeFolderFor(Path("no/folder"), {}); }, ExitStatus::kLimit),
              HasSubstr("cannot write"));
}

}  // namespace
