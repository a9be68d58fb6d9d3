// Allocation and bookkeeping of runtime memory.
#include "host/block_store.h"

#include <stdlib.h>
#include <unistd.h>

#include "host/failure.h"

namespace vorn::host {
namespace {

uint64_t MachineMemoryBytes() {
  const long pages = sysconf(_SC_PHYS_PAGES);
  const long pageBytes = sysconf(_SC_PAGESIZE);
  if (pages <= 0 || pageBytes <= 0) return UINT64_C(1) << 40;
  return static_cast<uint64_t>(pages) * static_cast<uint64_t>(pageBytes);
}

}  // namespace

BlockStore::~BlockStore() {
  for (const auto& [address, size] : sizes_) free(reinterpret_cast<void*>(address));
}

void* BlockStore::Allocate(uint64_t size) {
  if (size == 0) {
    throw Failure(VORN_ERROR_INVALID_ARGUMENT, "size is 0; a block has at least 1 byte");
  }
  const uint64_t most = MachineMemoryBytes();
  if (size > most) {
    throw Failure(VORN_ERROR_OUT_OF_MEMORY, "size is ", size, " bytes; this machine has ", most);
  }
  void* block = nullptr;
  // Not rounded up, so that whoever checks memory sees the block end where it ends.
  if (posix_memalign(&block, kBlockAlignment, size) != 0) {
    throw Failure(VORN_ERROR_OUT_OF_MEMORY, "size is ", size,
                  " bytes; the system has no such block");
  }
  try {
    sizes_[reinterpret_cast<uintptr_t>(block)] = size;
  } catch (...) {
    free(block);
    throw;
  }
  return block;
}

bool BlockStore::Free(void* block) {
  if (sizes_.erase(reinterpret_cast<uintptr_t>(block)) == 0) return false;
  free(block);
  return true;
}

std::optional<uint64_t> BlockStore::BytesFrom(const void* address) const {
  const auto at = reinterpret_cast<uintptr_t>(address);
  auto next = sizes_.upper_bound(at);
  if (next == sizes_.begin()) return std::nullopt;
  const auto& [start, size] = *--next;
  if (at - start >= size) return std::nullopt;
  return size - (at - start);
}

}  // namespace vorn::host
