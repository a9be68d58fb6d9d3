#include "model/rpn_layout.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr size_t kThresholdKinds = 4;  // values of a single class, rows of a multi class layout

void WriteRow(std::span<std::byte> block, int64_t offset, std::span<const float> values) {
  if (offset < 0 || static_cast<uint64_t>(offset) >= block.size()) return;
  const size_t room = (block.size() - static_cast<size_t>(offset)) / sizeof(float);
  const size_t count = std::min(room, values.size());
  if (count == 0) return;
  std::memcpy(block.data() + offset, values.data(), count * sizeof(float));
}

}  // namespace

void WriteRpnValues(std::span<std::byte> block, std::span<const float> values, uint32_t width,
                    int32_t stride) {
  if (values.size() <= kThresholdKinds) {
    WriteRow(block, 0, values);
    return;
  }
  const int64_t floatStride = stride / static_cast<int32_t>(sizeof(float));
  for (size_t row = 0; row < kThresholdKinds; ++row) {
    const size_t first = std::min(row * width, values.size());
    const size_t count = std::min<size_t>(width, values.size() - first);
    WriteRow(block, static_cast<int64_t>(row) * floatStride * int64_t{sizeof(float)},
             values.subspan(first, count));
  }
}
