#include "kit/common/folder_lock.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>
#include <thread>

#include "kit/common/fault.h"
#include "kit/common/printable.h"

namespace vorn::kit {

bool TakeLock(const OwnedFile& file, std::chrono::milliseconds longest) {
  constexpr std::chrono::milliseconds kBetween{10};
  const auto end = std::chrono::steady_clock::now() + longest;
  while (flock(file.Get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(kBetween);
  }
  return true;
}

FolderLock::FolderLock(const std::string& folder, const std::string& verb) {
  const std::string path = folder + "/" + kFolderLockFile;
  file_ = OwnedFile(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644));
  if (!file_.IsOpen()) {
    throw Fault(ExitStatus::kLimit, Quoted(path) + " cannot be written: " + SystemReason(errno));
  }
  if (TakeLock(file_, std::chrono::milliseconds(500))) return;
  throw Fault(ExitStatus::kUsage, "another vorn " + verb + " is at work in " + Quoted(folder) +
                                      "; wait for it, or give another folder");
}

bool IsFolderLocked(const std::string& folder) {
  const std::string path = folder + "/" + kFolderLockFile;
  const OwnedFile file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  return file.IsOpen() && flock(file.Get(), LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

}  // namespace vorn::kit
