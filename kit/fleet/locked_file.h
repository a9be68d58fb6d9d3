// A file that processes of one machine share by turns.
#ifndef VORN_KIT_FLEET_LOCKED_FILE_H_
#define VORN_KIT_FLEET_LOCKED_FILE_H_

#include <string>

#include "kit/common/owned_file.h"
#include "kit/launch/program.h"

namespace vorn::kit {

/// Move-only. Locked from the time it is taken until this ends, or the process does.
class LockedFile {
 public:
  enum class Share { kAlone, kWithOthers };

  /// Opens the file, or makes it. Throws a Fault of kLimit.
  explicit LockedFile(const std::string& path);

  /// Whether it was free. A file system without locks has all of them free.
  [[nodiscard]] bool TryTake(Share share) const;

  /// Waits for it. False where somebody asked to stop before that.
  [[nodiscard]] bool Take(Share share, StopSignals& signals) const;

 private:
  OwnedFile file_;
};

}  // namespace vorn::kit

#endif  // VORN_KIT_FLEET_LOCKED_FILE_H_
