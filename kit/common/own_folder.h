// Where the program itself lies, and so what was installed with it.
#ifndef VORN_KIT_COMMON_OWN_FOLDER_H_
#define VORN_KIT_COMMON_OWN_FOLDER_H_

#include <string>

namespace vorn::kit {

/// The folder of this program's file, absolute and without symbolic links. Throws a Fault of
/// kOwnFault where the system does not tell.
[[nodiscard]] std::string OwnFolder();

}  // namespace vorn::kit

#endif  // VORN_KIT_COMMON_OWN_FOLDER_H_
