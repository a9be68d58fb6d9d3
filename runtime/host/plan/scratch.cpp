// Entries and places in scratch blocks.
#include "host/plan/scratch.h"

#include <cstring>

#include "host/common/failure.h"
#include "host/tensor/layout.h"

namespace vorn::host {

static_assert(sizeof(RowMove) <= kScratchUnit);

// Copied, since a caller's block may lie anywhere.
RowMove TaskTable::Put(size_t index, const RowMove& move) {
  std::byte* entry = block_ + index * kScratchUnit;
  std::memcpy(entry, &move, sizeof(move));
  RowMove written;
  std::memcpy(&written, entry, sizeof(written));
  return written;
}

uint64_t WorkLayout::Reserve(uint64_t bytes) {
  const uint64_t offset = bytes_;
  const std::optional<uint64_t> padded = RoundUp(bytes, kScratchUnit);
  if (!padded || *padded > kMostBytes - bytes_) {
    throw Failure(VORN_ERROR_MODEL, "the model's inputs and outputs together exceed any memory");
  }
  bytes_ += *padded;
  return offset;
}

std::byte* PlaceIn(const BlockView& work, uint64_t offset, uint64_t bytes) {
  const uint64_t misplaced = reinterpret_cast<uintptr_t>(work.address) % kScratchUnit;
  const uint64_t front = misplaced == 0 ? 0 : kScratchUnit - misplaced;
  uint64_t end = 0;
  const bool overflows =
      __builtin_add_overflow(front, offset, &offset) || __builtin_add_overflow(offset, bytes, &end);
  return overflows || end > work.capacity ? nullptr : work.address + offset;
}

}  // namespace vorn::host
