// Blocks of runtime memory: how they are asked for, cleared, and released with their dataset.
#ifndef VORN_SRC_COMMON_RUNTIME_MEMORY_H_
#define VORN_SRC_COMMON_RUNTIME_MEMORY_H_

#include <cstdint>
#include <cstring>

#include "vorn/vorn.h"

namespace vorn::run {

/// Allocates `size` bytes of runtime memory, not cleared; null on failure. The caller returns the
/// block with `vorn_rt_free` (which takes null as well).
[[nodiscard]] inline void* MallocRuntimeMemory(uint64_t size) {
  void* block = nullptr;
  const vorn_status status = vorn_rt_malloc(&block, size, VORN_MEM_NORMAL_ONLY);
  return status == VORN_SUCCESS ? block : nullptr;
}

/// Sets `size` bytes to 0.
inline void ZeroBuffer(void* block, uint64_t size) { std::memset(block, 0, size); }

/// As `MallocRuntimeMemory`, and cleared.
[[nodiscard]] inline void* MallocZeroed(uint64_t size) {
  void* block = MallocRuntimeMemory(size);
  if (block != nullptr) ZeroBuffer(block, size);
  return block;
}

/// Frees the block and destroys the data buffer at every position, destroys the dataset and sets
/// the handle to null. Does nothing for a null handle. Results of the runtime are ignored.
inline void DestroyDataset(vorn_mdl_dataset*& dataset) {
  if (dataset == nullptr) return;
  for (uint64_t i = 0; i < vorn_mdl_get_dataset_num_buffers(dataset); ++i) {
    vorn_data_buffer* buffer = vorn_mdl_get_dataset_buffer(dataset, i);
    vorn_rt_free(vorn_get_data_buffer_addr(buffer));  // known to its buffer alone
    vorn_destroy_data_buffer(buffer);
  }
  vorn_mdl_destroy_dataset(dataset);
  dataset = nullptr;
}

}  // namespace vorn::run

#endif  // VORN_SRC_COMMON_RUNTIME_MEMORY_H_
