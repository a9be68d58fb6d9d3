// Files that a configuration names, such as one of ranges: a run hangs on them as it does on the
// configuration itself.
#ifndef VORN_KIT_RUN_CONFIGURATION_FILES_H_
#define VORN_KIT_RUN_CONFIGURATION_FILES_H_

#include <string>
#include <vector>

#include "kit/common/file_identity.h"

namespace vorn::kit {

/// Those of the texts in a JSON file that are the path of a regular file, from the current folder
/// on, which is where a program finds them; in the order of their paths, each once. Empty where it
/// is no JSON, which the runtime has to say.
[[nodiscard]] std::vector<FileIdentity> FilesNamedIn(const std::string& configuration);

}  // namespace vorn::kit

#endif  // VORN_KIT_RUN_CONFIGURATION_FILES_H_
