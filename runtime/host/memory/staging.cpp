// Growing aligned memory.
#include "host/memory/staging.h"

#include <new>

#include "host/memory/block_store.h"

namespace vorn::host {

std::byte* Staging::AtLeast(uint64_t bytes) {
  if (bytes <= bytes_ && block_ != nullptr) return block_.get();
  auto* grown = static_cast<std::byte*>(::operator new (bytes, std::align_val_t{kBlockAlignment}));
  block_.reset(grown);
  bytes_ = bytes;
  return grown;
}

void Staging::Release::operator()(std::byte* block) const {
  ::operator delete (block, std::align_val_t{kBlockAlignment});
}

}  // namespace vorn::host
