#include "kit/fleet/locked_file.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>
#include <chrono>

#include "kit/common/fault.h"
#include "kit/common/printable.h"

namespace vorn::kit {

LockedFile::LockedFile(const std::string& path) {
  file_ = OwnedFile(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (file_.IsOpen()) return;
  throw Fault(ExitStatus::kLimit, "cannot open " + Quoted(path) + ": " + SystemReason(errno));
}

bool LockedFile::TryTake(Share share) const {
  const int how = share == Share::kAlone ? LOCK_EX : LOCK_SH;
  return flock(file_.Get(), how | LOCK_NB) == 0 || errno != EWOULDBLOCK;
}

bool LockedFile::Take(Share share, StopSignals& signals) const {
  constexpr std::chrono::milliseconds kLongest{20};
  while (!TryTake(share)) {
    signals.Wait(kLongest);
    if (signals.Asked() != 0) return false;
  }
  return true;
}

}  // namespace vorn::kit
