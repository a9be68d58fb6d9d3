#include "kit/trace/preload_path.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "kit/common/fault.h"
#include "kit/common/printable.h"

namespace vorn::kit {

PreloadPath::PreloadPath(const std::string& library) : path_(library) {
  if (library.find_first_of(" \t\n:") == std::string::npos) return;
  std::string folder = "/tmp/vorn-preload.XXXXXX";
  if (mkdtemp(folder.data()) != nullptr) {
    path_ = folder + "/" + library.substr(library.rfind('/') + 1);
    folder_ = folder;
    if (symlink(library.c_str(), path_.c_str()) == 0) return;
  }
  const int error = errno;
  if (!folder_.empty()) rmdir(folder_.c_str());
  throw Fault(ExitStatus::kLimit,
              "cannot preload '" + Printable(library) +
                  "', whose path holds a blank or a colon, by a link in /tmp: " +
                  SystemReason(error) + "; move it to a path without these");
}

PreloadPath::~PreloadPath() {
  if (folder_.empty()) return;
  unlink(path_.c_str());
  rmdir(folder_.c_str());
}

}  // namespace vorn::kit
