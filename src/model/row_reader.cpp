// Long and dense rows are read in place, short ones through a piece of the file.
#include "model/row_reader.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <memory>

#include "common/file.h"

namespace {

// Short rows are read many at a time into a piece of this size and copied from there.
constexpr uint64_t kPieceBytes = 256 * 1024;
constexpr uint64_t kMaxRowBytes = std::numeric_limits<int64_t>::max();

// Hands out the file's rows in order.
class RowSource {
 public:
  RowSource(int descriptor, uint64_t bytes) : fd(descriptor), rowBytes(bytes) {}

  // Puts the first `size` bytes of the next row at `row` and moves on by the whole row. False at
  // the end of the file, with what was left of it in place.
  bool Next(std::byte* row, uint64_t size) {
    const uint64_t got = rowBytes > kPieceBytes / 2 ? ReadInPlace(row, size) : Copy(row, size);
    offset += rowBytes;
    return got == size;
  }

 private:
  uint64_t ReadInPlace(std::byte* row, uint64_t size) const {
    return ReadFullyAt(fd, row, size, offset);
  }

  uint64_t Copy(std::byte* row, uint64_t size) {
    if (offset + rowBytes > pieceStart + pieceBytes && !atEnd) FillPiece();
    const uint64_t end = pieceStart + pieceBytes;
    if (offset >= end) return 0;
    const uint64_t available = std::min(size, end - offset);
    std::memcpy(row, piece.get() + (offset - pieceStart), available);
    return available;
  }

  void FillPiece() {
    if (!piece) piece = std::make_unique_for_overwrite<std::byte[]>(kPieceBytes);
    pieceStart = offset;
    pieceBytes = ReadFullyAt(fd, piece.get(), kPieceBytes, offset);
    atEnd = pieceBytes < kPieceBytes;
  }

  int fd;
  uint64_t rowBytes;
  uint64_t offset = 0;  // of the next row in the file
  std::unique_ptr<std::byte[]> piece;
  uint64_t pieceStart = 0;
  uint64_t pieceBytes = 0;
  bool atEnd = false;
};

// Rows that lie in the block as they lie in the file.
void ReadDense(int fd, std::span<std::byte> block, const RowLayout& layout) {
  const uint64_t itemBytes = layout.rows * layout.rowBytes;
  uint64_t offset = 0;
  for (uint64_t batch = 0; batch < layout.batches; ++batch) {
    const uint64_t start = batch * layout.batchBytes;
    if (start >= block.size()) return;
    const uint64_t size = std::min(itemBytes, block.size() - start);
    if (ReadFullyAt(fd, block.data() + start, size, offset) < size) return;
    offset += itemBytes;
  }
}

void ReadSpread(int fd, std::span<std::byte> block, const RowLayout& layout) {
  RowSource source(fd, layout.rowBytes);
  for (uint64_t batch = 0; batch < layout.batches; ++batch) {
    for (uint64_t row = 0; row < layout.rows; ++row) {
      const uint64_t start = batch * layout.batchBytes + row * layout.stride;
      if (start >= block.size()) return;
      const uint64_t size = std::min<uint64_t>(layout.rowBytes, block.size() - start);
      if (!source.Next(block.data() + start, size)) return;
    }
  }
}

}  // namespace

void ReadRows(int fd, std::span<std::byte> block, const RowLayout& layout) {
  if (layout.rows == 0 || layout.rowBytes == 0 || layout.rowBytes > kMaxRowBytes) return;
  if (layout.rowBytes == layout.stride) {
    ReadDense(fd, block, layout);
  } else {
    ReadSpread(fd, block, layout);
  }
}
