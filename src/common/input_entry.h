// The entries of an input list: a path, or the name of a model input, ':' and a path.
#ifndef VORN_SRC_COMMON_INPUT_ENTRY_H_
#define VORN_SRC_COMMON_INPUT_ENTRY_H_

#include <string_view>

namespace vorn::run {

/// True for name:path, that is, if the first ':' is neither the first nor the last character.
[[nodiscard]] bool HasInputNamePrefix(std::string_view entry);

/// What stands before the first ':', or the whole entry when it holds none.
[[nodiscard]] std::string_view InputNamePrefix(std::string_view entry);

}  // namespace vorn::run

#endif  // VORN_SRC_COMMON_INPUT_ENTRY_H_
