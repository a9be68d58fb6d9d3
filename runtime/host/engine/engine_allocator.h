// The execution library's memory, counted.
//
// By default the library keeps an arena of its own. Where a device has a limit, it gets this
// allocator instead, which takes every allocation out of the budget of the scope that it happens in
// (memory_budget.h). The budget stands in front of the memory, since another thread may free it:
//
//     | budget, bytes: 64 | what the library sees ... |
#ifndef VORN_RUNTIME_HOST_ENGINE_ENGINE_ALLOCATOR_H_
#define VORN_RUNTIME_HOST_ENGINE_ENGINE_ALLOCATOR_H_

#include <onnxruntime_c_api.h>

#include <cstddef>

namespace vorn::host {

/// Must outlive everything that it allocated. Any thread may use it.
class EngineAllocator : public OrtAllocator {
 public:
  /// `info` describes the memory of the machine and outlives this object.
  explicit EngineAllocator(const OrtMemoryInfo* info);
  EngineAllocator(const EngineAllocator&) = delete;
  EngineAllocator& operator=(const EngineAllocator&) = delete;

 private:
  /// Throws std::bad_alloc, as the library's own allocators do, where the budget or the machine has
  /// less.
  static void* Allocate(size_t bytes);
  static void Release(void* memory) noexcept;

  const OrtMemoryInfo* info_;
};

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_ENGINE_ENGINE_ALLOCATOR_H_
