// Memory that comes out of the budget of the scope in which it is allocated (memory_budget.h). The
// budget stands in front of it, since it may be released elsewhere and later:
//
//     | budget, bytes: 64 | what is handed out ... |
#ifndef VORN_RUNTIME_HOST_MEMORY_COUNTED_MEMORY_H_
#define VORN_RUNTIME_HOST_MEMORY_COUNTED_MEMORY_H_

#include <cstddef>

namespace vorn::host {

/// `bytes` bytes, not cleared, aligned to `kBlockAlignment`; null for 0. Throws std::bad_alloc
/// where the budget or the machine has less, and notes that in the scope.
void* AllocateCounted(size_t bytes);

/// Takes back what AllocateCounted gave, on any thread. Null is harmless.
void ReleaseCounted(void* memory) noexcept;

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_MEMORY_COUNTED_MEMORY_H_
