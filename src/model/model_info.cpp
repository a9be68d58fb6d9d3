// A dims record's texts.
#include "model/model_info.h"

#include <cstring>

#include "common/model_io.h"

namespace vorn::run {

std::string ShapeToString(const vorn_mdl_io_dims& dims) {
  std::string text = "[";
  for (const int64_t dimension : Dimensions(dims)) text += std::to_string(dimension) + ", ";
  return text + "]";
}

std::string NameToString(const vorn_mdl_io_dims& dims) {
  return {dims.name, strnlen(dims.name, sizeof(dims.name))};
}

}  // namespace vorn::run
