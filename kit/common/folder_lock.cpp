#include "kit/common/folder_lock.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>
#include <chrono>
#include <thread>

#include "kit/common/fault.h"
#include "kit/common/printable.h"

namespace vorn::kit {

FolderLock::FolderLock(const std::string& folder, const std::string& verb) {
  const std::string path = folder + "/" + kFolderLockFile;
  file_ = OwnedFile(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644));
  if (!file_.IsOpen()) {
    throw Fault(ExitStatus::kLimit, Quoted(path) + " cannot be written: " + SystemReason(errno));
  }
  // Whoever asks whether it is locked has it for a moment, too, and so has what a process was about
  // to start as it was killed.
  constexpr int kTries = 50;
  constexpr std::chrono::milliseconds kBetween{10};
  for (int i = 0; i < kTries; ++i) {
    if (flock(file_.Get(), LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK) return;
    std::this_thread::sleep_for(kBetween);
  }
  throw Fault(ExitStatus::kUsage, "another vorn " + verb + " is at work in " + Quoted(folder) +
                                      "; wait for it, or give another folder");
}

bool IsFolderLocked(const std::string& folder) {
  const std::string path = folder + "/" + kFolderLockFile;
  const OwnedFile file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  return file.IsOpen() && flock(file.Get(), LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

}  // namespace vorn::kit
