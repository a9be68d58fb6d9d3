// Where handle values come from, and what is said of those that do not live.
#include "host/state/handle.h"

#include <atomic>

#include "host/common/failure.h"

namespace vorn::host {

static_assert(sizeof(uintptr_t) == 8, "handle values need the upper half of a 64-bit pointer");

uintptr_t NextHandleValue() noexcept {
  static std::atomic<uintptr_t> count = 0;
  return HandleValue(++count);
}

void RefuseHandle(const char* kind, const void* handle) {
  if (handle == nullptr) throw Failure(VORN_ERROR_INVALID_ARGUMENT, "the ", kind, " is null");
  throw Failure(VORN_ERROR_INVALID_HANDLE, handle, " is no ", kind,
                "; it was destroyed, or is something else");
}

}  // namespace vorn::host
