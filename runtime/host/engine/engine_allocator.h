// The execution library's memory, counted.
//
// By default the library keeps an arena of its own. Where a device has a limit, it gets this
// allocator instead, which takes every allocation out of the budget of the scope that it happens in
// (counted_memory.h).
#ifndef VORN_RUNTIME_HOST_ENGINE_ENGINE_ALLOCATOR_H_
#define VORN_RUNTIME_HOST_ENGINE_ENGINE_ALLOCATOR_H_

#include <onnxruntime_c_api.h>

namespace vorn::host {

/// Blocks are aligned to `kBlockAlignment` and not cleared. Where the budget or the machine has
/// less, std::bad_alloc is thrown, as the library's own allocators do, and comes back as a status
/// of the call that was under way (engine_failure.h). Must outlive everything that it allocated.
/// Any thread may use it; memory goes back to the budget it came from, whoever releases it.
class EngineAllocator : public OrtAllocator {
 public:
  /// `info` describes the memory of the machine and outlives this object.
  explicit EngineAllocator(const OrtMemoryInfo* info);
  EngineAllocator(const EngineAllocator&) = delete;
  EngineAllocator& operator=(const EngineAllocator&) = delete;

 private:
  const OrtMemoryInfo* info_;
};

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_ENGINE_ENGINE_ALLOCATOR_H_
