#include "kit/history/find_runs.h"

#include <sys/stat.h>

#include <cerrno>

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

void Gather(const std::string& folder, int depth, std::vector<std::string>& runs) {
  if (IsThere(folder + "/" + kRunFile)) {
    runs.push_back(folder);
    return;
  }
  if (depth > kMostDepth || IsFleet(folder)) return;
  for (const std::string& name : NamesIn(folder)) {
    const std::string path = folder + "/" + name;
    if (IsOwnFolder(path)) Gather(path, depth + 1, runs);
  }
}

}  // namespace

std::vector<std::string> FindRuns(const std::string& folder) {
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
  std::vector<std::string> runs;
  Gather(top, 0, runs);
  return runs;
}

}  // namespace vorn::kit
