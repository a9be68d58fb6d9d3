// Checks of blocks against descriptions.
#include "host/tensor/block_view.h"

#include <optional>

#include "host/common/failure.h"

namespace vorn::host {

void CheckBlockCount(const char* kind, std::span<const BlockView> blocks,
                     const std::vector<TensorDescription>& tensors) {
  if (blocks.size() == tensors.size()) return;
  throw Failure(VORN_ERROR_INVALID_ARGUMENT, "the ", kind, " dataset has ", blocks.size(),
                " buffers; the model has ", tensors.size(), " ", kind, "s");
}

uint64_t ItemBytesIn(const BlockView& block, const char* kind, const TensorDescription& tensor) {
  if (block.stride < tensor.layout.rowBytes) {
    throw Failure(VORN_ERROR_INVALID_ARGUMENT, kind, " '", tensor.name, "' has a stride of ",
                  block.stride, " bytes; a row has ", tensor.layout.rowBytes);
  }
  const std::optional<uint64_t> bytes = Product(tensor.layout.rows, block.stride);
  if (!bytes) {
    throw Failure(VORN_ERROR_INVALID_ARGUMENT, kind, " '", tensor.name, "' has a stride of ",
                  block.stride, " bytes; its ", tensor.layout.rows, " rows reach beyond any block");
  }
  return *bytes;
}

uint64_t CheckInputBlock(const BlockView& block, size_t index, const TensorDescription& tensor,
                         uint64_t batch) {
  const uint64_t itemBytes = ItemBytesIn(block, "input", tensor);
  const std::optional<uint64_t> wanted = Product(itemBytes, batch);
  if (!wanted || *wanted > kMostBytes || block.capacity < *wanted) {
    throw Failure(VORN_ERROR_INVALID_ARGUMENT, "input ", index, " '", tensor.name, "' holds ",
                  block.capacity, " bytes; a batch of ", batch, " needs ", batch, " times ",
                  itemBytes);
  }
  return itemBytes;
}

}  // namespace vorn::host
