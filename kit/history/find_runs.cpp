#include "kit/history/find_runs.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "kit/common/fault.h"
#include "kit/common/file_place.h"
#include "kit/common/folder_names.h"
#include "kit/common/printable.h"
#include "kit/run/run_directory.h"

namespace vorn::kit {
namespace {

constexpr int kMostDepth = 64;

bool IsOwnFolder(const std::string& path) {
  struct stat about {};
  return lstat(path.c_str(), &about) == 0 && S_ISDIR(about.st_mode);
}

// What `vorn fleet` left: the attempts in it are parts of one run.
bool IsFleet(const std::string& folder) {
  return IsThere(folder + "/plan.json") && IsThere(folder + "/inputs.jsonl");
}

class Search {
 public:
  explicit Search(const std::function<void(const std::string&)>& onClosed) : onClosed_(onClosed) {}

  void In(const std::string& folder, int depth = 0) {
    if (IsThere(folder + "/" + kRunFile)) {
      runs_.push_back(folder);
      return;
    }
    if (depth > kMostDepth || IsFleet(folder)) return;
    if (faccessat(AT_FDCWD, folder.c_str(), R_OK | X_OK, AT_EACCESS) != 0) {
      onClosed_("the folder " + Quoted(folder) + " cannot be read: " + SystemReason(errno));
      return;
    }
    for (const std::string& name : NamesIn(folder)) {
      const std::string path = folder + "/" + name;
      if (IsOwnFolder(path)) In(path, depth + 1);
    }
  }

  std::vector<std::string> TakeRuns() { return std::move(runs_); }

 private:
  const std::function<void(const std::string&)>& onClosed_;
  std::vector<std::string> runs_;
};

}  // namespace

std::vector<std::string> FindRuns(const std::string& folder,
                                  const std::function<void(const std::string& message)>& onClosed) {
  struct stat about {};
  if (stat(folder.c_str(), &about) != 0) {
    throw Fault(ExitStatus::kInput, "the run " + Quoted(folder) + ": " + SystemReason(errno));
  }
  if (!S_ISDIR(about.st_mode)) {
    throw Fault(ExitStatus::kInput, "the run " + Quoted(folder) +
                                        " is no folder; name a run directory, or a folder with "
                                        "such beneath it");
  }
  std::string top = folder;
  while (top.size() > 1 && top.back() == '/') top.pop_back();
  Search search(onClosed);
  search.In(top);
  return search.TakeRuns();
}

}  // namespace vorn::kit
