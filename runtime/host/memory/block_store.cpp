// Allocation, bookkeeping and recycling of runtime memory.
#include "host/memory/block_store.h"

#include <stdlib.h>

#include <algorithm>
#include <cstring>
#include <iterator>

#include "host/common/failure.h"

namespace vorn::host {
namespace {

/// Looking through all that is kept has to stay quick; a model has far fewer inputs and outputs.
constexpr size_t kMostKeptBlocks = 256;

/// Null where the system has no such block.
void* SystemBlock(uint64_t size) {
  void* block = nullptr;
  // Not rounded up, so that whoever checks memory sees the block end where it ends.
  return posix_memalign(&block, kBlockAlignment, size) == 0 ? block : nullptr;
}

void GiveBack(uintptr_t address) { free(reinterpret_cast<void*>(address)); }

}  // namespace

bool IsMemoryWatched() {
#if defined(__SANITIZE_ADDRESS__)
  return true;
#else
#if defined(__has_feature)
#if __has_feature(address_sanitizer)
  return true;
#endif
#endif
  // Valgrind puts a library of its own in front of the C library in this way.
  const char* preloaded = getenv("LD_PRELOAD");
  return preloaded != nullptr && strstr(preloaded, "vgpreload_") != nullptr;
#endif
}

BlockStore::BlockStore(bool keeps) : keeps_(keeps) {
  kept_.reserve(kMostKeptBlocks);  // here, so that taking a block back cannot fail
}

BlockStore::~BlockStore() {
  ReleaseKept();
  for (const auto& [address, block] : live_) GiveBack(address);
}

void* BlockStore::Allocate(uint64_t size, const std::shared_ptr<MemoryBudget>& budget) {
  if (size == 0) {
    throw Failure(VORN_ERROR_INVALID_ARGUMENT, "size is 0; a block has at least 1 byte");
  }
  if (!budget->Take(size)) {
    throw Failure(VORN_ERROR_OUT_OF_MEMORY, "size is ", size, " bytes; the device has ",
                  budget->limit(), ", of which ", budget->taken(), " are taken");
  }
  void* block = nullptr;
  try {
    block = TakeKept(size);
    if (block == nullptr) block = AllocateFresh(size);
    live_[reinterpret_cast<uintptr_t>(block)] = {.size = size, .budget = budget};
  } catch (...) {
    free(block);
    budget->GiveBack(size);
    throw;
  }
  liveBytes_ += size;
  mostLiveBytes_ = std::max(mostLiveBytes_, liveBytes_);
  return block;
}

/// The kept block of that size at the lowest address, no longer kept; null if there is none.
void* BlockStore::TakeKept(uint64_t size) {
  auto best = kept_.end();
  for (auto block = kept_.begin(); block != kept_.end(); ++block) {
    if (block->size != size) continue;
    if (best == kept_.end() || block->address < best->address) best = block;
  }
  if (best == kept_.end()) return nullptr;
  void* block = reinterpret_cast<void*>(best->address);
  keptBytes_ -= size;
  kept_.erase(best);
  return block;
}

void* BlockStore::AllocateFresh(uint64_t size) {
  const uint64_t live = liveBytes_ + size;
  ReleaseDownTo(mostLiveBytes_ > live ? mostLiveBytes_ - live : 0);
  void* block = SystemBlock(size);
  if (block == nullptr) {
    ReleaseKept();
    block = SystemBlock(size);
  }
  if (block == nullptr) {
    throw Failure(VORN_ERROR_OUT_OF_MEMORY, "size is ", size,
                  " bytes; the system has no such block");
  }
  return block;
}

bool BlockStore::Free(void* block) {
  const auto found = live_.find(reinterpret_cast<uintptr_t>(block));
  if (found == live_.end()) return false;
  const Kept freed = {.address = found->first, .size = found->second.size};
  const bool isKept = keeps_ && found->second.isKeptWhenFreed;
  found->second.budget->GiveBack(freed.size);
  live_.erase(found);
  liveBytes_ -= freed.size;
  if (isKept) {
    Keep(freed);
  } else {
    GiveBack(freed.address);
  }
  return true;
}

void BlockStore::Keep(const Kept& block) {
  if (kept_.size() == kMostKeptBlocks) ReleaseOldest(1);
  kept_.push_back(block);
  keptBytes_ += block.size;
}

void BlockStore::DoNotKeep(const void* address) {
  const auto found = BlockOf(address);
  if (found != live_.end()) live_[found->first].isKeptWhenFreed = false;
}

void BlockStore::ReleaseKept() {
  ReleaseOldest(kept_.size());
  mostLiveBytes_ = liveBytes_;
}

void BlockStore::ReleaseDownTo(uint64_t keptBytes) {
  uint64_t left = keptBytes_;
  size_t count = 0;
  while (left > keptBytes) left -= kept_[count++].size;
  ReleaseOldest(count);
}

void BlockStore::ReleaseOldest(size_t count) {
  const auto end = kept_.begin() + static_cast<std::ptrdiff_t>(count);
  for (auto block = kept_.begin(); block != end; ++block) {
    keptBytes_ -= block->size;
    GiveBack(block->address);
  }
  kept_.erase(kept_.begin(), end);
}

std::optional<uint64_t> BlockStore::BytesFrom(const void* address) const {
  const auto found = BlockOf(address);
  if (found == live_.end()) return std::nullopt;
  return found->second.size - (reinterpret_cast<uintptr_t>(address) - found->first);
}

std::vector<BlockStore::Block> BlockStore::Blocks() const {
  std::vector<Block> blocks;
  for (const auto& [address, block] : live_) {
    blocks.push_back({.address = reinterpret_cast<const void*>(address), .size = block.size});
  }
  return blocks;
}

/// The block that holds the byte at `address`.
BlockStore::LiveBlocks::const_iterator BlockStore::BlockOf(const void* address) const {
  const auto at = reinterpret_cast<uintptr_t>(address);
  const auto next = live_.upper_bound(at);
  if (next == live_.begin()) return live_.end();
  const auto before = std::prev(next);
  return at - before->first < before->second.size ? before : live_.end();
}

}  // namespace vorn::host
