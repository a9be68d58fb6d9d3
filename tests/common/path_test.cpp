#include "common/path.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "support/files.h"

namespace vorn::run {
namespace {

struct Outcome {
  int status;
  std::string resolved;
  std::string printed;
};

Outcome Resolve(const std::string& path) {
  testing::internal::CaptureStdout();
  Outcome outcome{0, "untouched", ""};
  outcome.status = GetRealPath(path, outcome.resolved);
  outcome.printed = testing::internal::GetCapturedStdout();
  return outcome;
}

TEST(GetRealPath, ResolvesDotsAndPrintsThePathAsGiven) {
  const Outcome outcome = Resolve("/usr/../usr/./");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.resolved, "/usr");
  EXPECT_EQ(outcome.printed, "[INFO]  inputPath: /usr/../usr/./\n");
}

TEST(GetRealPath, WorksInPlace) {
  std::string path = "/usr/.";
  EXPECT_EQ(GetRealPath(path, path), 0);
  EXPECT_EQ(path, "/usr");
}

TEST(GetRealPath, RefusesAnEmptyPath) {
  const Outcome outcome = Resolve("");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.resolved, "untouched");
  EXPECT_EQ(outcome.printed,
            "[INFO]  inputPath: \n"
            "[ERROR] inputPath size = 0, out of range (0, 4096] error\n");
}

TEST(GetRealPath, TakesFourThousandAndNinetySixBytesAndNoMore) {
  const std::string longest(4096, 'a');
  const Outcome atLimit = Resolve(longest);
  EXPECT_EQ(atLimit.status, 0);
  // Too long for the system, which is not a missing file, but no failure either.
  EXPECT_EQ(atLimit.printed,
            "[INFO]  inputPath: " + longest + "\n[ERROR] realpath fail, input: " + longest + "\n");
  const Outcome above = Resolve(longest + "a");
  EXPECT_EQ(above.status, 1);
  EXPECT_EQ(above.printed, "[INFO]  inputPath: " + longest +
                               "a\n[ERROR] inputPath size = 4097, out of range (0, 4096] error\n");
}

TEST(GetRealPath, LetsAMissingFilePass) {
  const Outcome outcome = Resolve("/usr/no-such-file");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.resolved, "/usr/no-such-file");
  EXPECT_EQ(outcome.printed, "[INFO]  inputPath: /usr/no-such-file\n");
}

TEST(GetRealPath, ReportsAPathThroughAFileAndPasses) {
  const Outcome outcome = Resolve("/etc/passwd/x");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.printed,
            "[INFO]  inputPath: /etc/passwd/x\n"
            "[ERROR] realpath fail, input: /etc/passwd/x\n");
}

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
