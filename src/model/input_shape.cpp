// Products and texts of dimensions.
#include "model/input_shape.h"

namespace vorn::run {

std::string JoinDimensions(std::span<const int64_t> dimensions) {
  std::string text;
  for (const int64_t dimension : dimensions) {
    if (!text.empty()) text += ',';
    text += std::to_string(dimension);
  }
  return text;
}

uint64_t DenseBytes(std::span<const int64_t> dimensions, uint64_t elementSize) {
  uint64_t bytes = elementSize;
  for (const int64_t dimension : dimensions) bytes *= static_cast<uint64_t>(dimension);
  return bytes;
}

uint64_t FrameBytes(std::span<const int64_t> dimensions, uint64_t elementSize) {
  return DenseBytes(dimensions.empty() ? dimensions : dimensions.subspan(1), elementSize);
}

int64_t RowElements(std::span<const int64_t> dimensions) {
  return dimensions.empty() ? 0 : dimensions.back();
}

}  // namespace vorn::run
