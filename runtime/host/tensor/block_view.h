// A caller's block, and whether it holds what a description asks for.
#ifndef VORN_RUNTIME_HOST_TENSOR_BLOCK_VIEW_H_
#define VORN_RUNTIME_HOST_TENSOR_BLOCK_VIEW_H_

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "host/tensor/description.h"

namespace vorn::host {

/// A caller's block for one input or output.
struct BlockView {
  std::byte* address = nullptr;
  uint64_t capacity = 0;    ///< bytes that may be touched from `address` on
  uint64_t stride = 0;      ///< bytes from row to row, which the caller may choose
  uint64_t registered = 0;  ///< bytes that the caller speaks of; 0 where nobody has registered it

  bool operator==(const BlockView&) const = default;
};

inline constexpr uint64_t kMostBytes = INT64_MAX;  ///< of a whole batch: engines count with a sign

/// Fails with VORN_ERROR_INVALID_ARGUMENT unless there is a block for every tensor; `kind`
/// ("input", "output") is for messages here and below.
void CheckBlockCount(const char* kind, std::span<const BlockView> blocks,
                     const std::vector<TensorDescription>& tensors);

/// Bytes of one batch item in a block with rows `block.stride` apart. Fails with
/// VORN_ERROR_INVALID_ARGUMENT where a row exceeds that stride, or the item any block.
uint64_t ItemBytesIn(const BlockView& block, const char* kind, const TensorDescription& tensor);

/// The same for input `index`, whose block has to hold `batch` items. Fails likewise if it does
/// not.
uint64_t CheckInputBlock(const BlockView& block, size_t index, const TensorDescription& tensor,
                         uint64_t batch);

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_TENSOR_BLOCK_VIEW_H_
