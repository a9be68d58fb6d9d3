#include "kit/common/own_folder.h"

#include <unistd.h>

#include <cerrno>
#include <climits>

#include "kit/common/fault.h"
#include "kit/common/printable.h"

namespace vorn::kit {

std::string OwnFolder() {
  std::string path(PATH_MAX, '\0');
  const ssize_t length = readlink("/proc/self/exe", path.data(), path.size());
  if (length <= 0) {
    throw Fault(ExitStatus::kOwnFault,
                "cannot find out where this program is: " + SystemReason(errno));
  }
  path.resize(static_cast<size_t>(length));
  return path.substr(0, path.rfind('/'));
}

}  // namespace vorn::kit
