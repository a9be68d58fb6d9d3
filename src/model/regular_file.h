// What models, inputs and rpn files have to be before they are opened.
#ifndef VORN_SRC_MODEL_REGULAR_FILE_H_
#define VORN_SRC_MODEL_REGULAR_FILE_H_

#include <string>

namespace vorn::run {

/// 0 if `path` names a regular file, links followed; otherwise prints what it is not and returns 1.
[[nodiscard]] int CheckPathIsFile(const std::string& path);

}  // namespace vorn::run

#endif  // VORN_SRC_MODEL_REGULAR_FILE_H_
