#include "kit/fleet/linked_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>

#include "kit/common/fault.h"
#include "kit/common/folder_names.h"
#include "kit/common/owned_file.h"
#include "kit/common/printable.h"
#include "kit/common/whole_file.h"
#include "kit/launch/run_folder.h"

namespace vorn::kit {
namespace {

[[noreturn]] void RefuseSource(const std::string& path, const std::string& why) {
  throw Fault(ExitStatus::kInput, Quoted(path) + " " + why +
                                      "; it was there a moment ago, so run it again once nothing "
                                      "changes there");
}

[[noreturn]] void RefuseTarget(const std::string& path, int error) {
  throw Fault(ExitStatus::kLimit, "cannot write " + Quoted(path) + ": " + SystemReason(error));
}

bool AreOneFile(const struct stat& one, const std::string& path) {
  struct stat other {};
  return lstat(path.c_str(), &other) == 0 && one.st_dev == other.st_dev &&
         one.st_ino == other.st_ino;
}

// Whether there can be no link, for a reason that a copy does not have.
bool IsToBeCopied(int error) {
  constexpr std::array kReasons{EXDEV, EPERM, EMLINK, EOPNOTSUPP, ENOSYS, EACCES, EINVAL};
  return std::find(kReasons.begin(), kReasons.end(), error) != kReasons.end();
}

// Returns an errno, 0 for all written.
int WriteAll(int fd, const char* bytes, size_t count) {
  while (count > 0) {
    const ssize_t put = write(fd, bytes, count);
    if (put < 0 && errno == EINTR) continue;
    if (put < 0) return errno;
    bytes += put;
    count -= static_cast<size_t>(put);
  }
  return 0;
}

}  // namespace

bool LinkOrCopy(const std::string& from, const std::string& to) {
  struct stat about {};
  if (lstat(from.c_str(), &about) != 0) RefuseSource(from, "is gone: " + SystemReason(errno));
  if (!S_ISREG(about.st_mode)) RefuseSource(from, "is no regular file any more");
  if (AreOneFile(about, to)) return false;
  int error = link(from.c_str(), to.c_str()) == 0 ? 0 : errno;
  if (error == EEXIST) {
    RemoveTree(to);
    error = link(from.c_str(), to.c_str()) == 0 ? 0 : errno;
  }
  if (error == 0) return false;
  if (error == ENOENT && access(from.c_str(), F_OK) != 0) RefuseSource(from, "is gone");
  if (!IsToBeCopied(error)) RefuseTarget(to, error);
  CopyFile(from, to);
  return true;
}

void CopyFile(const std::string& from, const std::string& to) {
  constexpr size_t kPiece = 256 * 1024;
  const OwnedFile source(open(from.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  if (!source.IsOpen()) RefuseSource(from, "cannot be opened: " + SystemReason(errno));
  // Not synced: a loss of power is found out by who asks for the size and the hash.
  const std::string part = to + std::string(kUnfinishedSuffix);
  RemoveTree(part);
  const OwnedFile target(open(part.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
  if (!target.IsOpen()) RefuseTarget(to, errno);
  std::string piece(kPiece, '\0');
  for (;;) {
    const ssize_t got = read(source.Get(), piece.data(), piece.size());
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) RefuseSource(from, "cannot be read: " + SystemReason(errno));
    if (got == 0) break;
    const int error = WriteAll(target.Get(), piece.data(), static_cast<size_t>(got));
    if (error == 0) continue;
    unlink(part.c_str());
    RefuseTarget(to, error);
  }
  RemoveTree(to);
  if (std::rename(part.c_str(), to.c_str()) != 0) RefuseTarget(to, errno);
}

void MakeFolderFor(const std::string& folder, const std::vector<std::string>& names) {
  if (mkdir(folder.c_str(), 0777) == 0) return;
  struct stat about {};
  if (errno != EEXIST || lstat(folder.c_str(), &about) != 0) RefuseTarget(folder, errno);
  if (!S_ISDIR(about.st_mode)) {
    RemoveTree(folder);
    if (mkdir(folder.c_str(), 0777) != 0) RefuseTarget(folder, errno);
    return;
  }
  for (const std::string& name : NamesIn(folder)) {
    if (std::find(names.begin(), names.end(), name) == names.end()) RemoveTree(folder + "/" + name);
  }
}

}  // namespace vorn::kit
