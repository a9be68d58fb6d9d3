// How this process was started.
#ifndef VORN_KIT_COMMON_OWN_COMMAND_H_
#define VORN_KIT_COMMON_OWN_COMMAND_H_

#include <string>
#include <string_view>
#include <vector>

namespace vorn::kit {

/// The words of its command line, with "vorn" and the verb in front instead of the program. Throws
/// a Fault of kOwnFault where the system does not tell.
[[nodiscard]] std::vector<std::string> OwnCommand(std::string_view verb);

}  // namespace vorn::kit

#endif  // VORN_KIT_COMMON_OWN_COMMAND_H_
