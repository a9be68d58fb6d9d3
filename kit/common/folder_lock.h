// One process at a time in a folder.
#ifndef VORN_KIT_COMMON_FOLDER_LOCK_H_
#define VORN_KIT_COMMON_FOLDER_LOCK_H_

#include <chrono>
#include <string>

#include "kit/common/owned_file.h"

namespace vorn::kit {

inline constexpr const char* kFolderLockFile = ".lock";

/// Takes the lock of an open file; false where others have it for `longest`. Whoever asks whether
/// it is locked has it for a moment, and so has what a process was about to start as it was killed.
/// A file system without locks has to do without.
[[nodiscard]] bool TakeLock(const OwnedFile& file, std::chrono::milliseconds longest);

/// Holds a file of the folder, which stays behind. What is looked at in the folder is to be looked
/// at with the lock taken. A file system without locks has to do without.
class FolderLock {
 public:
  /// Throws a Fault of kUsage where another process has the lock, which is said to be `verb`, of
  /// kLimit where the file cannot be written.
  FolderLock(const std::string& folder, const std::string& verb);

 private:
  OwnedFile file_;
};

/// Whether another process has the lock, as far as this machine sees. Nothing is made.
[[nodiscard]] bool IsFolderLocked(const std::string& folder);

}  // namespace vorn::kit

#endif  // VORN_KIT_COMMON_FOLDER_LOCK_H_
