// The check of one path.
#include "model/regular_file.h"

#include <sys/stat.h>

#include "common/log.h"

namespace vorn::run {

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
