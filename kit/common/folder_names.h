// What lies in a folder.
#ifndef VORN_KIT_COMMON_FOLDER_NAMES_H_
#define VORN_KIT_COMMON_FOLDER_NAMES_H_

#include <string>
#include <vector>

namespace vorn::kit {

/// The names of all that lies in a folder, sorted by their bytes, hidden ones too, without the
/// folder itself and the one above. Empty where there is no folder or it cannot be read.
[[nodiscard]] std::vector<std::string> NamesIn(const std::string& folder);

}  // namespace vorn::kit

#endif  // VORN_KIT_COMMON_FOLDER_NAMES_H_
