// What executions keep in the caller's task buffer and work buffer.
//
// The task buffer holds a table of moves, one entry for each input and output that does not lie in
// its block as the engine wants it. An entry is written and then carried out, before the next one
// is written, so that not even a task buffer that overlaps another block leads anywhere else:
//
//     | move of input 0 | move of input 1 | ... | move of output 0 | ... |     64 bytes an entry
//
// The work buffer holds the dense places that those moves lead to, each at a multiple of 64 bytes.
// Both are the caller's and may hold anything between two executions.
#ifndef VORN_RUNTIME_HOST_PLAN_SCRATCH_H_
#define VORN_RUNTIME_HOST_PLAN_SCRATCH_H_

#include <cstddef>
#include <cstdint>

#include "host/tensor/block_view.h"
#include "host/tensor/presentation.h"

namespace vorn::host {

inline constexpr uint64_t kScratchUnit = 64;  ///< bytes

/// The table of moves in a task buffer.
class TaskTable {
 public:
  explicit TaskTable(const BlockView& task) : block_(task.address) {}

  /// Writes an entry and returns what stands there.
  RowMove Put(size_t index, const RowMove& move);

 private:
  std::byte* block_;
};

/// Divides a work buffer while a model is loaded.
class WorkLayout {
 public:
  /// A place of that many bytes for each batch item. Returns its offset for one item; a place for
  /// several items at once starts at that many times the offset.
  uint64_t Reserve(uint64_t bytes);

  /// What all places take for one batch item; at least one unit.
  uint64_t bytes() const { return bytes_ == 0 ? kScratchUnit : bytes_; }

 private:
  uint64_t bytes_ = 0;
};

/// The place at `offset` of a work buffer, counted from its first multiple of 64; null where
/// `bytes` do not fit behind it.
std::byte* PlaceIn(const BlockView& work, uint64_t offset, uint64_t bytes);

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_PLAN_SCRATCH_H_
