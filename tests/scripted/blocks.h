// The memory that the scripted runtime hands out. Every block has a number, counted from 1 in the
// order of allocation, and keeps it; a block that is returned goes back to the system for real.
//
//   without AddressSanitizer:  | guard, 64 bytes | block | guard, 64 bytes |
//   with AddressSanitizer:     | block |   whose own red zones are the better guards
#ifndef VORN_TESTS_SCRIPTED_BLOCKS_H_
#define VORN_TESTS_SCRIPTED_BLOCKS_H_

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace scripted {

struct Block {
  uint64_t number = 0;
  uint64_t size = 0;
  unsigned char* memory = nullptr;  // where the allocation starts, front guard included
};

/// What an address is.
struct Place {
  enum class Kind { kNull, kLive, kReleased, kForeign };
  Kind kind = Kind::kForeign;
  uint64_t number = 0;  // of the block, live or released
  uint64_t offset = 0;  // into a live block
  uint64_t size = 0;    // of a live block

  /// `null`, `block#3`, `block#3+16`, `block#3 (released)` or `foreign`.
  [[nodiscard]] std::string Name() const;
};

class Blocks {
 public:
  Blocks() = default;
  ~Blocks();
  Blocks(const Blocks&) = delete;
  Blocks& operator=(const Blocks&) = delete;

  /// A block filled with `fill`, or null when the system has none.
  [[nodiscard]] void* Allocate(uint64_t size, unsigned char fill);

  [[nodiscard]] Place Find(const void* address) const;

  /// Returns the live block that starts at `address`. Returns what is wrong with its guards.
  [[nodiscard]] std::string Release(void* address);

  /// The complaints about the guards of all live blocks.
  [[nodiscard]] std::vector<std::string> CheckGuards() const;

  [[nodiscard]] uint64_t LiveCount() const { return live_.size(); }

 private:
  std::map<uintptr_t, Block> live_;
  std::map<uintptr_t, uint64_t> released_;  // the number of the block that last started here
  uint64_t allocated_ = 0;
};

}  // namespace scripted

#endif  // VORN_TESTS_SCRIPTED_BLOCKS_H_
