#include "kit/report/places.h"

#include <string_view>

#include "kit/common/file_place.h"

namespace vorn::kit {
namespace {

std::string Cleaned(std::string path) {
  while (path.size() > 1 && path.ends_with('/')) path.pop_back();
  while (path.starts_with("./")) path.erase(0, 2);
  return path;
}

}  // namespace

Places::Places(const std::string& run, const std::vector<std::string>& told) {
  const std::string now = Cleaned(Absolute(run));
  for (const std::string& one : told) {
    const std::string name = Cleaned(one);
    if (name.empty() || name.starts_with('/') || !now.ends_with("/" + name)) continue;
    folder_ = now.substr(0, now.size() - name.size());
    return;
  }
}

std::string Places::Find(const std::string& path) const {
  if (path.empty() || path.starts_with('/') || folder_.empty()) return path;
  std::string there = folder_ + path;
  return IsThere(there) ? there : path;
}

}  // namespace vorn::kit
