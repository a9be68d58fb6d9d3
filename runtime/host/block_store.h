// The memory blocks that the runtime handed out, and how far each reaches.
#ifndef VORN_RUNTIME_HOST_BLOCK_STORE_H_
#define VORN_RUNTIME_HOST_BLOCK_STORE_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>

namespace vorn::host {

inline constexpr size_t kBlockAlignment = 64;  ///< bytes; a cache line

/// Owns every block until it is freed. Not synchronised.
class BlockStore {
 public:
  BlockStore() = default;
  BlockStore(const BlockStore&) = delete;
  BlockStore& operator=(const BlockStore&) = delete;
  ~BlockStore();

  /// A new block of exactly `size` bytes, not cleared, aligned to `kBlockAlignment`. Fails with
  /// VORN_ERROR_INVALID_ARGUMENT for 0 and with VORN_ERROR_OUT_OF_MEMORY for a size that the
  /// machine cannot back: the system would promise it and end the process when it is touched.
  void* Allocate(uint64_t size);

  /// Returns a block by the address that `Allocate` gave; false, and nothing done, for any other.
  bool Free(void* block);

  /// Bytes from `address` to the end of the block that it lies in; nothing if it lies in none.
  std::optional<uint64_t> BytesFrom(const void* address) const;

  size_t Count() const { return sizes_.size(); }

 private:
  std::map<uintptr_t, uint64_t> sizes_;
};

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_BLOCK_STORE_H_
