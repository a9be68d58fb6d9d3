// Allocating for the execution library.
#include "host/engine/engine_allocator.h"

#include "host/memory/counted_memory.h"

namespace vorn::host {

EngineAllocator::EngineAllocator(const OrtMemoryInfo* info) : OrtAllocator{}, info_(info) {
  version = ORT_API_VERSION;
  // What is thrown here is what the library's own allocators throw.
  Alloc = [](OrtAllocator*, size_t bytes) { return AllocateCounted(bytes); };
  Reserve = Alloc;
  Free = [](OrtAllocator*, void* memory) { ReleaseCounted(memory); };
  Info = [](const OrtAllocator* self) { return static_cast<const EngineAllocator*>(self)->info_; };
}

}  // namespace vorn::host
