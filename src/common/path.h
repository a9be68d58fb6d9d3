// Checking and resolving one path, and what has to lie at its end.
#ifndef VORN_SRC_COMMON_PATH_H_
#define VORN_SRC_COMMON_PATH_H_

#include <string>

namespace vorn::run {

/// Prints the path and resolves it: absolute, no links, no dots. Returns 1, `resolved` untouched,
/// only for a length outside 1 to 4096 bytes. A path that cannot be resolved passes with whatever
/// `realpath` left (a missing file: the path up to what is missing), so that the failure shows
/// where the file is opened. `path` and `resolved` may be the same string.
[[nodiscard]] int GetRealPath(const std::string& path, std::string& resolved);

/// 0 if `path` names a regular file, links followed, as models, inputs and rpn files have to be
/// before they are opened; otherwise prints what it is not and returns 1.
[[nodiscard]] int CheckPathIsFile(const std::string& path);

}  // namespace vorn::run

#endif  // VORN_SRC_COMMON_PATH_H_
