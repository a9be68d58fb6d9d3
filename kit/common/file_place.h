// The places of files that a verb names itself.
#ifndef VORN_KIT_COMMON_FILE_PLACE_H_
#define VORN_KIT_COMMON_FILE_PLACE_H_

#include <string>

namespace vorn::kit {

/// Makes a place in a folder that others may have written to fit for a file: removes a link, which
/// would lead to a file that nobody named. Throws a Fault of kLimit for what is there and is no
/// file, such as a pipe, which would be waited for.
void ClearPlace(const std::string& path);

}  // namespace vorn::kit

#endif  // VORN_KIT_COMMON_FILE_PLACE_H_
