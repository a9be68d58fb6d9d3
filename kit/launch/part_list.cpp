#include "kit/launch/part_list.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "kit/common/fault.h"
#include "kit/common/printable.h"
#include "kit/launch/run_folder.h"

namespace vorn::kit {

PartList::PartList(std::string folder) : folder_(std::move(folder)), real_(RealPath(folder_)) {}

std::string PartList::PathTo(const std::string& file) {
  const std::string real = Real(file);
  std::string path = real.empty() ? "" : RelativePath(real_, real);
  const bool isPlain = !path.empty() && path.find_first_of(":\n") == std::string::npos;
  if (!isPlain) path = Link(real.empty() ? file : real);
  return path;
}

// Files of a list mostly share a folder, whose own path is looked up once.
std::string PartList::Real(const std::string& file) {
  const size_t slash = file.rfind('/');
  const std::string name = file.substr(slash + 1);  // all of it without a slash
  const std::string folder = slash == std::string::npos ? "./" : file.substr(0, slash + 1);
  struct stat about {};
  const bool isPlain = !name.empty() && name != "." && name != ".." &&
                       lstat(file.c_str(), &about) == 0 && !S_ISLNK(about.st_mode);
  if (!isPlain) return RealPath(file);
  if (folder != lastFolder_) {
    lastReal_ = RealPath(folder);
    lastFolder_ = folder;
  }
  if (lastReal_.empty()) return RealPath(file);
  return lastReal_ + (lastReal_ == "/" ? "" : "/") + name;
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
