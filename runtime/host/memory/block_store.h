// The memory blocks that the runtime handed out, and how far each reaches.
//
// A caller allocates and frees blocks of the same sizes for every inference. The first touch of a
// page that is fresh from the system takes about eight times as long as copying a page does, so
// freed blocks are kept and handed out again:
//
//   - only for exactly the size that they have: a block ends where its memory ends, so that whoever
//     checks memory sees an access beyond it;
//   - of several that fit, the one at the lowest address: the blocks of one inference come to lie
//     where those of the inference before it lay, in whatever order they were freed, and memory
//     that is bound to a model stays bound;
//   - what is handed out and what is kept are together never more than what was handed out at most
//     at one time. Where a new block would exceed that, the blocks that were freed first go back to
//     the system. So keeping costs no memory at the peak of a run;
//   - a model image goes back to the system when it is freed: it is large, and there is no next one
//     of its size.
//
// Nothing is kept where something watches for the use of freed memory, which this would hide.
#ifndef VORN_RUNTIME_HOST_MEMORY_BLOCK_STORE_H_
#define VORN_RUNTIME_HOST_MEMORY_BLOCK_STORE_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "host/memory/memory_budget.h"

namespace vorn::host {

inline constexpr size_t kBlockAlignment = 64;  ///< bytes; a cache line

/// Whether AddressSanitizer or valgrind watches this process.
bool IsMemoryWatched();

/// Owns every block until it is freed, and some beyond that. Not synchronised.
class BlockStore {
 public:
  /// `keeps` says whether freed blocks are kept at all.
  explicit BlockStore(bool keeps = !IsMemoryWatched());
  BlockStore(const BlockStore&) = delete;
  BlockStore& operator=(const BlockStore&) = delete;
  ~BlockStore();

  /// A block of exactly `size` bytes, not cleared, aligned to `kBlockAlignment`, taken out of
  /// `budget` until it is freed. Fails with VORN_ERROR_INVALID_ARGUMENT for 0 and with
  /// VORN_ERROR_OUT_OF_MEMORY for a size that the budget has not left, or that the machine cannot
  /// back: the system would promise it and end the process when it is touched.
  void* Allocate(uint64_t size, const std::shared_ptr<MemoryBudget>& budget);

  /// Takes a block back by the address that `Allocate` gave; false, and nothing done, for any
  /// other.
  bool Free(void* block);

  /// The block that `address` lies in goes back to the system when it is freed.
  void DoNotKeep(const void* address);

  /// Gives all kept blocks back to the system.
  void ReleaseKept();

  /// Bytes from `address` to the end of the block that it lies in; nothing if it lies in none.
  std::optional<uint64_t> BytesFrom(const void* address) const;

  /// Every block that is out, by address.
  struct Block {
    const void* address;
    uint64_t size;  ///< bytes
  };
  std::vector<Block> Blocks() const;

  size_t Count() const { return live_.size(); }
  uint64_t KeptBytes() const { return keptBytes_; }

 private:
  struct Live {
    uint64_t size;
    std::shared_ptr<MemoryBudget> budget;
    bool isKeptWhenFreed = true;
  };
  struct Kept {
    uintptr_t address;
    uint64_t size;
  };
  using LiveBlocks = std::map<uintptr_t, Live>;

  void* TakeKept(uint64_t size);
  void* AllocateFresh(uint64_t size);
  void Keep(const Kept& block);
  void ReleaseOldest(size_t count);
  void ReleaseDownTo(uint64_t keptBytes);
  LiveBlocks::const_iterator BlockOf(const void* address) const;

  bool keeps_;
  LiveBlocks live_;
  std::vector<Kept> kept_;  // in the order in which they were freed
  uint64_t liveBytes_ = 0;
  uint64_t keptBytes_ = 0;
  uint64_t mostLiveBytes_ = 0;  // since nothing was kept
};

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_MEMORY_BLOCK_STORE_H_
