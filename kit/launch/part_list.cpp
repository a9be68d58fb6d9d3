#include "kit/launch/part_list.h"

#include <unistd.h>

#include <cerrno>
#include <utility>

#include "kit/common/fault.h"
#include "kit/common/printable.h"
#include "kit/launch/run_folder.h"

namespace vorn::kit {

PartList::PartList(std::string folder) : folder_(std::move(folder)), real_(RealPath(folder_)) {}

std::string PartList::PathTo(const std::string& file) {
  const std::string real = RealPath(file);
  std::string path = real.empty() ? "" : RelativePath(real_, real);
  const bool isPlain = !path.empty() && path.find_first_of(":\n") == std::string::npos;
  if (!isPlain) path = Link(real.empty() ? file : real);
  return path;
}

std::string PartList::Link(const std::string& target) {
  if (links_ == 0) MakeFolders(folder_ + "/links");
  std::string name = "links/" + std::to_string(links_++);
  if (symlink(target.c_str(), (folder_ + "/" + name).c_str()) != 0) {
    throw Fault(ExitStatus::kLimit,
                "cannot make a link in " + Quoted(folder_) + ": " + SystemReason(errno));
  }
  return name;
}

std::string RelativePath(const std::string& folder, const std::string& file) {
  size_t same = 0;  // where the first part begins that differs
  for (size_t i = 0; i < folder.size() && i < file.size() && folder[i] == file[i]; ++i) {
    if (folder[i] == '/') same = i + 1;
    const bool isWholeFolder = i + 1 == folder.size() && i + 1 < file.size() && file[i + 1] == '/';
    if (isWholeFolder) return file.substr(i + 2);
  }
  std::string path = "../";
  for (size_t i = same; i < folder.size(); ++i) {
    if (folder[i] == '/') path += "../";
  }
  return path + file.substr(same);
}

}  // namespace vorn::kit
