#include "kit/history/find_runs.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "kit/common/fault.h"
#include "support/files.h"

namespace vorn::kit {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class FindRunsTest : public testing::Test {
 protected:
  void Make(const std::string& file) const { support::WriteFile(folder_.Path() / file, "{}"); }

  std::vector<std::string> FindIn(const std::string& folder) const {
    return FindRuns(folder, [&](const std::string& message) { closed_.push_back(message); });
  }

  // By their paths from the folder on.
  std::vector<std::string> Found() const {
    std::vector<std::string> runs;
    const std::string top = folder_.Path();
    for (const std::string& run : FindIn(top)) runs.push_back(run.substr(top.size()));
    return runs;
  }

  support::TempDir folder_;
  mutable std::vector<std::string> closed_;
};

TEST_F(FindRunsTest, TakesARunItself) {
  Make("run.json");
  Make("reference/run.json");
  EXPECT_THAT(Found(), ElementsAre(""));
  EXPECT_THAT(FindIn(folder_.Path().string() + "//"), ElementsAre(folder_.Path().string()));
}

TEST_F(FindRunsTest, LooksBeneathFolders) {
  Make("board1/monday/run.json");
  Make("board1/tuesday/run.json");
  Make("board1/tuesday/reference/run.json");
  Make("board2/A/run.json");
  Make("board2/B/run.json");
  Make("board2/times.jsonl");
  Make("notes/text");
  EXPECT_THAT(Found(), ElementsAre("/board1/monday", "/board1/tuesday", "/board2/A", "/board2/B"));
}

TEST_F(FindRunsTest, LeavesOutPartsOfAFleet) {
  Make("fleet/plan.json");
  Make("fleet/inputs.jsonl");
  Make("fleet/chunks/0/1/run.json");
  Make("merged/run.json");
  EXPECT_THAT(Found(), ElementsAre("/merged"));
}

TEST_F(FindRunsTest, FollowsNoLinks) {
  Make("one/run.json");
  std::filesystem::create_directory_symlink(folder_.Path(), folder_.Path() / "again");
  EXPECT_THAT(Found(), ElementsAre("/one"));
}

TEST_F(FindRunsTest, TellsOfFoldersThatItMayNotLookInto) {
  Make("one/run.json");
  Make("closed/run.json");
  Make("listed/run/run.json");
  namespace fs = std::filesystem;
  const fs::perms all = fs::perms::all;
  fs::permissions(folder_.Path(), all);
  fs::permissions(folder_.Path() / "one", all);
  fs::permissions(folder_.Path() / "closed", fs::perms::none);
  fs::permissions(folder_.Path() / "listed", fs::perms::owner_read | fs::perms::others_read);
  const uid_t user = geteuid();
  constexpr uid_t kNobody = 65534;
  // Who may look into all of them, is none to try it with.
  ASSERT_EQ(seteuid(user == 0 ? kNobody : user), 0);
  const std::vector<std::string> found = Found();
  ASSERT_EQ(seteuid(user), 0);
  EXPECT_THAT(found, ElementsAre("/one"));
  EXPECT_THAT(closed_, ElementsAre(HasSubstr("closed' cannot be read: Permission denied"),
                                   HasSubstr("listed' cannot be read: Permission denied")));
  for (const char* name : {"closed", "listed"}) fs::permissions(folder_.Path() / name, all);
}

TEST_F(FindRunsTest, RefusesWhatIsNoFolder) {
  Make("file");
  for (const char* name : {"/file", "/missing"}) {
    try {
      (void)FindIn(folder_.Path().string() + name);
      FAIL();
    } catch (const Fault& fault) {
      EXPECT_EQ(fault.Status(), ExitStatus::kInput);
      EXPECT_THAT(fault.what(), HasSubstr(name));
    }
  }
}

}  // namespace
}  // namespace vorn::kit
