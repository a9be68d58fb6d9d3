#include "model/regular_file.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "support/files.h"

namespace vorn::run {
namespace {

class CheckPathIsFileTest : public testing::Test {
 protected:
  std::string Path(const std::string& name) const { return folder_.Path() / name; }
  std::string Folder() const { return folder_.Path(); }

 private:
  support::TempDir folder_;
};

TEST_F(CheckPathIsFileTest, FollowsLinksToRegularFiles) {
  support::WriteFile(Path("a"), "x");
  std::filesystem::create_symlink(Path("a"), Path("link"));
  EXPECT_EQ(CheckPathIsFile(Path("a")), 0);
  EXPECT_EQ(CheckPathIsFile(Path("link")), 0);
}

TEST_F(CheckPathIsFileTest, SaysWhatIsWrong) {
  testing::internal::CaptureStdout();
  EXPECT_EQ(CheckPathIsFile(Path("missing")), 1);
  EXPECT_EQ(CheckPathIsFile(Folder()), 1);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "[ERROR] failed to get file " +
                                                        Path("missing") + "\n[ERROR] " + Folder() +
                                                        " is not a file, please enter a file\n");
}

}  // namespace
}  // namespace vorn::run
