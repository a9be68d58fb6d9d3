// The texts of the model info block.
#ifndef VORN_SRC_MODEL_MODEL_INFO_H_
#define VORN_SRC_MODEL_MODEL_INFO_H_

#include <string>

#include "vorn/vorn.h"

namespace vorn::run {

/// "[1, 3, 224, 224, ]": a separator follows every dimension, the last one too; "[]" for none.
[[nodiscard]] std::string ShapeToString(const vorn_mdl_io_dims& dims);

/// The name up to its zero, or all 128 characters where the runtime left none.
[[nodiscard]] std::string NameToString(const vorn_mdl_io_dims& dims);

}  // namespace vorn::run

#endif  // VORN_SRC_MODEL_MODEL_INFO_H_
