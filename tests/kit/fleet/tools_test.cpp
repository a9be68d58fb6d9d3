#include "kit/fleet/tools.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "kit/common/fault.h"
#include "support/command.h"
#include "support/files.h"

namespace {

namespace fs = std::filesystem;

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using vorn::kit::ExitStatus;
using vorn::kit::Tools;

class FindToolsTest : public testing::Test {
 protected:
  FindToolsTest() { fs::create_directories(Path("scratch")); }

  std::string Path(const std::string& name) const { return (folder_.Path() / name).string(); }

  void Make(const std::string& folder) const {
    for (const char* name : {"vorn-run", "vorn-launch", "libvorn-trace.so"}) {
      support::WriteFile(Path(folder + "/" + name), name);
    }
  }

  Tools Find(const std::string& from) const {
    vorn::kit::StopSignals signals;
    return vorn::kit::FindTools(from, Path("scratch"), signals);
  }

  std::string Fault(const std::string& from) const {
    try {
      (void)Find(from);
    } catch (const vorn::kit::Fault& fault) {
      EXPECT_EQ(fault.Status(), ExitStatus::kUsage);
      return fault.what();
    }
    return "";
  }

  std::string Pack(const std::string& words) const {
    support::Command command;
    command.program = "tar";
    command.arguments = {"-czf", "tools it's.tar.gz", "--", words};
    command.directory = folder_.Path();
    EXPECT_EQ(RunCommand(command).status, 0);
    return Path("tools it's.tar.gz");
  }

  support::TempDir folder_;
};

TEST_F(FindToolsTest, TakesAFolderAsItIs) {
  Make("tools");
  fs::create_directories(Path("tools/folder"));
  const Tools tools = Find(Path("tools"));
  EXPECT_EQ(tools.folder, Path("tools"));
  EXPECT_THAT(tools.files, ElementsAre("libvorn-trace.so", "vorn-launch", "vorn-run"));
  EXPECT_EQ(tools.id.size(), 32U);
}

TEST_F(FindToolsTest, KnowsThemByNamesAndBytes) {
  Make("tools");
  Make("same");
  const std::string id = Find(Path("tools")).id;
  EXPECT_EQ(Find(Path("same")).id, id);
  support::WriteFile(Path("same/vorn-run"), "another");
  EXPECT_NE(Find(Path("same")).id, id);
  Make("same");
  fs::rename(Path("same/libvorn-trace.so"), Path("same/libvorn-other.so"));
  EXPECT_NE(Find(Path("same")).id, id);
}

TEST_F(FindToolsTest, UnpacksAnArchive) {
  Make("vorn-0.1.0");
  const std::string id = Find(Path("vorn-0.1.0")).id;
  EXPECT_EQ(Find(Pack("vorn-0.1.0")).id, id);
  Make(".hidden");
  EXPECT_EQ(Find(Pack(".hidden")).id, id);
  EXPECT_EQ(Find(Path("tools it's.tar.gz")).id, id);  // once more over what is there
}

TEST_F(FindToolsTest, RefusesWhatHasNoProgramsInIt) {
  fs::create_directories(Path("empty"));
  EXPECT_THAT(Fault(Path("empty")),
              AllOf(HasSubstr("there is no 'vorn-launch' in '" + Path("empty") + "'"),
                    HasSubstr("scripts/board.sh")));
  support::WriteFile(Path("empty/vorn-launch"), "");
  EXPECT_THAT(Fault(Path("empty")), HasSubstr("there is no 'vorn-run'"));
  fs::create_directories(Path("empty/vorn-run"));
  EXPECT_THAT(Fault(Path("empty")), HasSubstr("there is no 'vorn-run'"));
  // Those of the program that runs, which is this test.
  EXPECT_THAT(Fault(""), HasSubstr("there is no 'vorn-launch'"));
}

TEST_F(FindToolsTest, RefusesWhatIsNoArchive) {
  support::WriteFile(Path("text"), "this is no archive, whatever its name");
  EXPECT_THAT(Fault(Path("text")), AllOf(HasSubstr("cannot be unpacked: tar ended with status"),
                                         HasSubstr("it said: ")));
  EXPECT_THAT(Fault(Path("none")), HasSubstr("cannot be unpacked"));
}

}  // namespace
