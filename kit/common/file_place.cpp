#include "kit/common/file_place.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "kit/common/fault.h"
#include "kit/common/printable.h"

namespace vorn::kit {
namespace {

const char* KindOf(mode_t mode) {
  if (S_ISDIR(mode)) return "a folder";
  if (S_ISFIFO(mode)) return "a pipe";
  return S_ISSOCK(mode) ? "a socket" : "a device";
}

}  // namespace

void ClearPlace(const std::string& path) {
  struct stat about {};
  // What cannot be looked at is told of by what writes there.
  if (lstat(path.c_str(), &about) != 0 || S_ISREG(about.st_mode)) return;
  if (!S_ISLNK(about.st_mode)) {
    throw Fault(ExitStatus::kLimit, "cannot write " + Quoted(path) + ": " + KindOf(about.st_mode) +
                                        " is in its place; remove it");
  }
  if (unlink(path.c_str()) == 0 || errno == ENOENT) return;
  throw Fault(ExitStatus::kLimit,
              "cannot write " + Quoted(path) +
                  ": a link is in its place and cannot be removed: " + SystemReason(errno));
}

}  // namespace vorn::kit
