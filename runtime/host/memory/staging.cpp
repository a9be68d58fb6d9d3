// Growing aligned memory.
#include "host/memory/staging.h"

#include "host/memory/counted_memory.h"

namespace vorn::host {

std::byte* Staging::AtLeast(uint64_t bytes) {
  if (bytes <= bytes_ && block_ != nullptr) return block_.get();
  auto* grown = static_cast<std::byte*>(AllocateCounted(bytes));
  block_.reset(grown);
  bytes_ = bytes;
  return grown;
}

void Staging::Release::operator()(std::byte* block) const { ReleaseCounted(block); }

}  // namespace vorn::host
