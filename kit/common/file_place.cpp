#include "kit/common/file_place.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <vector>

#include "kit/common/fault.h"
#include "kit/common/printable.h"

namespace vorn::kit {
namespace {

const char* KindOf(mode_t mode) {
  if (S_ISDIR(mode)) return "a folder";
  if (S_ISFIFO(mode)) return "a pipe";
  return S_ISSOCK(mode) ? "a socket" : "a device";
}

// "" where it is not known.
std::string WorkingFolder() {
  const std::unique_ptr<char, void (*)(void*)> folder(getcwd(nullptr, 0), std::free);
  // Of one that nothing leads to any more the kernel says "(unreachable)".
  return folder == nullptr || *folder != '/' ? "" : folder.get();
}

}  // namespace

bool IsThere(const std::string& path) {
  struct stat about {};
  return stat(path.c_str(), &about) == 0;
}

bool IsTaken(const std::string& path) {
  struct stat about {};
  return lstat(path.c_str(), &about) == 0;
}

bool IsSameFile(const std::string& one, const std::string& other) {
  struct stat aboutOne {};
  struct stat aboutOther {};
  return stat(one.c_str(), &aboutOne) == 0 && stat(other.c_str(), &aboutOther) == 0 &&
         aboutOne.st_dev == aboutOther.st_dev && aboutOne.st_ino == aboutOther.st_ino;
}

std::string Below(const std::string& folder, const std::string& path) {
  return path.starts_with('/') || folder.empty() ? path : folder + "/" + path;
}

std::string Absolute(const std::string& path) {
  if (path.empty()) return path;
  std::string whole = path;
  if (!path.starts_with('/')) {
    const std::string folder = WorkingFolder();
    if (folder.empty()) return path;
    whole = folder + "/" + path;
  }
  std::string parts;
  for (size_t begin = 0; begin < whole.size();) {
    const size_t end = std::min(whole.find('/', begin), whole.size());
    const std::string part = whole.substr(begin, end - begin);
    if (!part.empty() && part != ".") parts += "/" + part;
    begin = end + 1;
  }
  return parts.empty() ? "/" : parts;
}

std::string WithoutDetours(const std::string& path) {
  if (path.empty()) return path;
  const std::string root = path.starts_with('/') ? "/" : "";
  std::vector<std::string> parts;
  const auto joined = [&] {
    std::string whole = root;
    for (size_t i = 0; i < parts.size(); ++i) whole += (i == 0 ? "" : "/") + parts[i];
    return whole;
  };
  for (size_t begin = 0; begin < path.size();) {
    const size_t end = std::min(path.find('/', begin), path.size());
    std::string part = path.substr(begin, end - begin);
    begin = end + 1;
    if (part.empty() || part == ".") continue;
    struct stat about {};
    const bool isBack = part == ".." && !parts.empty() && parts.back() != ".." &&
                        lstat(joined().c_str(), &about) == 0 && S_ISDIR(about.st_mode);
    if (isBack) {
      parts.pop_back();
    } else {
      parts.push_back(std::move(part));
    }
  }
  const std::string whole = joined();
  return whole.empty() ? "." : whole;
}

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
