#include "kit/calibrate/work_folder.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "kit/common/fault.h"
#include "support/files.h"

namespace vorn::kit {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// The number of a process that is no more.
std::string DeadProcess() {
  const pid_t child = fork();
  if (child == 0) _exit(0);
  waitpid(child, nullptr, 0);
  return std::to_string(child);
}

class WorkFolders : public testing::Test {
 protected:
  std::string Path(const std::string& name) const { return folder_.Path() / name; }

  // A folder as another process would have left it; without bytes it was killed before it had the
  // lock.
  std::string Left(const std::string& name, const std::string& lock = "\n") const {
    support::WriteFile(Path(name + "/run/dumps/0/x.bin"), "bytes");
    support::WriteFile(Path(name + "/.lock"), lock);
    return Path(name);
  }

  std::string Refusal(const std::string& output) const {
    try {
      const WorkFolder work(output);
      return "";
    } catch (const Fault& fault) {
      return std::to_string(static_cast<int>(fault.Status())) + " " + fault.what();
    }
  }

  support::TempDir folder_;
};

TEST_F(WorkFolders, AreMadeBesideTheOutputAndRemoved) {
  std::string path;
  {
    const WorkFolder work(Path("new/out.json"));
    path = work.Path();
    EXPECT_EQ(path, Path("new/out.json." + std::to_string(getpid()) + ".work"));
    EXPECT_TRUE(fs::is_directory(path));
    support::WriteFile(path + "/run/some", "thing");
  }
  EXPECT_FALSE(fs::exists(path));
}

TEST_F(WorkFolders, RemovesThoseOfProcessesThatAreNoMore) {
  const std::string dead = DeadProcess();
  const std::string left = Left("out.json." + dead + ".work");
  const std::string early = Left("out.json." + DeadProcess() + ".work", "");
  // Its number is in use again, as it is where each container counts from 1.
  const std::string again = Left("out.json." + std::to_string(getpid()) + ".work");
  const WorkFolder work(Path("out.json"));
  EXPECT_THAT(work.Removed(), testing::UnorderedElementsAre(left, early, again));
  EXPECT_FALSE(fs::exists(left));
  EXPECT_FALSE(fs::exists(again + "/run"));
}

TEST_F(WorkFolders, LeavesWhatIsAtWorkOrNobodysAlone) {
  const std::string dead = DeadProcess();
  const std::string held = Left("out.json." + dead + ".work");
  const int lock = open((held + "/.lock").c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_EQ(flock(lock, LOCK_EX | LOCK_NB), 0);
  const std::string begun = Left("out.json." + std::to_string(getppid()) + ".work", "");
  const std::string other = Left("other.json." + dead + ".work");
  const std::string no = Left("out.json.x.work");
  const std::string longer = Left("out.json.1.bak." + dead + ".work");
  support::WriteFile(Path("out.json.1.work"), "a file");
  {
    const WorkFolder work(Path("out.json"));
    EXPECT_THAT(work.Removed(), IsEmpty());
  }
  for (const std::string& folder : {held, begun, other, no, longer}) {
    EXPECT_TRUE(fs::exists(folder + "/run")) << folder;
  }
  EXPECT_TRUE(fs::exists(Path("out.json.1.work")));
  close(lock);
}

TEST_F(WorkFolders, RefusesWhatIsNoPlaceForAFile) {
  fs::create_directories(Path("folder"));
  EXPECT_THAT(Refusal(Path("folder")), HasSubstr("2 -o '" + Path("folder") + "' is a folder"));
  EXPECT_THAT(Refusal(Path("none/")), HasSubstr("is a folder; name the file"));
  EXPECT_THAT(Refusal(""), HasSubstr("names nothing"));
  EXPECT_THAT(Refusal(Path("a\nb")), HasSubstr("holds a line end"));
  support::WriteFile(Path("file"), "");
  EXPECT_THAT(Refusal(Path("file/out.json")), HasSubstr("7 -o "));
  EXPECT_THAT(Refusal(Path("file/out.json")), HasSubstr("cannot be written: the folder "));
}

}  // namespace
}  // namespace vorn::kit
