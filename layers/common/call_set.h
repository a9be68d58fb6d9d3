// Which calls a layer is about, in a syntax that all layers share:
//
//     vorn_mdl_execute        all calls of an operation
//     vorn_rt_*               of several: * stands for any characters, ? for one
//     vorn_mdl_execute/100    every 100th of each of them
//     7, 10-20, 500-          by number, all operations counted together from 1
//     @FILE                   what stands in a file, which names no further ones
//
// Items have commas, blanks or line ends between them, and a call belongs to the set if it belongs
// to any of them. `#` begins a remark up to the end of its line.
#ifndef VORN_LAYERS_COMMON_CALL_SET_H_
#define VORN_LAYERS_COMMON_CALL_SET_H_

#include <cstddef>
#include <cstdint>

namespace vorn::layers {

inline constexpr size_t kMostCallItems = 64;
inline constexpr size_t kMostCallOperations = 64;
inline constexpr size_t kMostCallText = 16384;

struct CallItem {
  uint64_t operations;  ///< a bit each
  uint64_t every;       ///< 1: all of them
  uint64_t from;
  uint64_t to;
};

/// Plain data. Without an item every call belongs to it.
struct CallSet {
  CallItem items[kMostCallItems];
  size_t count;

  /// `number` is that of the call among all, `ownNumber` among those of its operation, from 1.
  [[nodiscard]] bool Holds(size_t operation, uint64_t number, uint64_t ownNumber) const;
};

/// Up to kMostCallOperations, counted from 0.
struct OperationNames {
  const char* const* names;
  size_t count;
};

/// Reads a file of at most `size` - 1 bytes as a text that a zero ends. False if that fails.
using ReadText = bool (*)(const char* path, char* text, size_t size);

/// Reads a set. False, with a line in `reason`, for what it cannot be: a name or pattern of no
/// operation, numbers from 0 or in the wrong order, too many items.
[[nodiscard]] bool ParseCallSet(const char* text, const OperationNames& operations, ReadText read,
                                CallSet& set, char* reason, size_t reasonSize);

}  // namespace vorn::layers

#endif  // VORN_LAYERS_COMMON_CALL_SET_H_
