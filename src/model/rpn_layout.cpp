// Writes thresholds float by float; the blocks are small.
#include "model/rpn_layout.h"

#include <algorithm>
#include <cstring>

namespace vorn::run {
namespace {

void WriteFloat(std::span<std::byte> block, int64_t offset, float value) {
  if (offset < 0 || static_cast<uint64_t>(offset) + sizeof(float) > block.size()) return;
  std::memcpy(block.data() + offset, &value, sizeof(float));
}

}  // namespace

void WriteRpnValues(std::span<std::byte> block, std::span<const float> values, uint32_t width,
                    int32_t stride) {
  constexpr int64_t kFloat = sizeof(float);
  if (values.size() <= kThresholdKinds) {
    for (size_t i = 0; i < values.size(); ++i) {
      WriteFloat(block, static_cast<int64_t>(i) * kFloat, values[i]);
    }
    return;
  }
  const int64_t rowStep = int64_t{stride} & ~(kFloat - 1);  // rounded down below 0, too
  const size_t classes = std::min<size_t>(width, values.size());
  for (size_t c = 0; c < classes; ++c) {
    for (size_t row = 0; row < kThresholdKinds; ++row) {
      const size_t value = row * width + c;
      if (value >= values.size()) break;
      const int64_t offset = static_cast<int64_t>(row) * rowStep + static_cast<int64_t>(c) * kFloat;
      WriteFloat(block, offset, values[value]);
    }
  }
}

}  // namespace vorn::run
