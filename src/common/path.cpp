// Resolving leaves missing files to whoever opens them; the check before opening does not.
#include "common/path.h"

#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <cstdlib>

#include "common/log.h"

namespace vorn::run {
namespace {

constexpr int kMinPathLength = 0;  // exclusive
constexpr int kMaxPathLength = 4096;

}  // namespace

int GetRealPath(const std::string& path, std::string& resolved) {
  PrintLine("[INFO]  inputPath: %s\n", path.c_str());
  if (path.empty() || path.size() > kMaxPathLength) {
    PrintLine("[ERROR] inputPath size = %zu, out of range (%d, %d] error\n", path.size(),
              kMinPathLength, kMaxPathLength);
    return 1;
  }
  char buffer[PATH_MAX] = {};  // what realpath asks for
  if (realpath(path.c_str(), buffer) == nullptr && errno != ENOENT) {
    PrintLine("[ERROR] realpath fail, input: %s\n", path.c_str());
  }
  resolved = buffer;
  return 0;
}

int CheckPathIsFile(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) {
    PrintLine("[ERROR] failed to get file %s\n", path.c_str());
    return 1;
  }
  if (!S_ISREG(status.st_mode)) {
    PrintLine("[ERROR] %s is not a file, please enter a file\n", path.c_str());
    return 1;
  }
  return 0;
}

}  // namespace vorn::run
