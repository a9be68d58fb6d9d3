// Where handle values come from.
#include "host/state/handle.h"

#include <atomic>

namespace vorn::host {

static_assert(sizeof(uintptr_t) == 8, "handle values need the upper half of a 64-bit pointer");

uintptr_t NextHandleValue() noexcept {
  // Non-canonical on x86-64 and outside the user half on aarch64: whoever dereferences a handle
  // faults at once. Steps of 16 look aligned to whoever checks that.
  constexpr uintptr_t kFirst = 0x4000'0000'0000'0000;
  constexpr uintptr_t kStep = 16;
  static std::atomic<uintptr_t> count = 0;
  return kFirst + kStep * ++count;
}

}  // namespace vorn::host
