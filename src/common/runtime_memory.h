// Blocks of runtime memory: how they are asked for and cleared.
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

}  // namespace vorn::run

#endif  // VORN_SRC_COMMON_RUNTIME_MEMORY_H_
