#include "kit/common/folder_names.h"

#include <dirent.h>

#include <algorithm>
#include <memory>
#include <string_view>

namespace vorn::kit {

std::vector<std::string> NamesIn(const std::string& folder) {
  std::vector<std::string> names;
  const std::unique_ptr<DIR, int (*)(DIR*)> listing(opendir(folder.c_str()), closedir);
  while (listing != nullptr) {
    const dirent* entry = readdir(listing.get());
    if (entry == nullptr) break;
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") names.emplace_back(name);
  }
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace vorn::kit
