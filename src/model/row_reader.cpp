// Long rows are read in place, many with one call; short ones go through a piece of the file.
#include "model/row_reader.h"

#include <sys/uio.h>

#include <algorithm>
#include <array>
#include <limits>
#include <memory>

#include "common/file.h"
#include "shared/rows/row_copy.h"

namespace vorn::run {
namespace {

// Below, telling the system where each row goes takes longer than copying it a second time.
constexpr uint64_t kLongRowBytes = 768;
constexpr uint64_t kPieceBytes = 128 * 1024;
constexpr uint64_t kRowsPerCall = 1024;  // as many as the system takes
constexpr uint64_t kMaxRowBytes = std::numeric_limits<int64_t>::max();

// Rows that follow each other in the file from `offset` on and start `stride` bytes apart in a
// block.
struct RowRun {
  uint64_t offset;
  uint64_t rows;
  uint64_t rowBytes;
  uint64_t stride;
};

// Rows that start in a block of this size, which is above 0.
uint64_t RowsStarting(uint64_t size, const RowRun& run) {
  return std::min(run.rows, (size - 1) / run.stride + 1);
}

// Rows that lie in a block of this size as a whole.
uint64_t RowsWithin(uint64_t size, const RowRun& run) {
  return size < run.rowBytes ? 0 : std::min(run.rows, (size - run.rowBytes) / run.stride + 1);
}

// Reads up to kRowsPerCall rows with one call. Returns the bytes that came, 0 where it failed: what
// an interruption leaves is then read row by row.
uint64_t ReadRowsInPlace(int fd, std::byte* block, const RowRun& run) {
  std::array<iovec, kRowsPerCall> places;
  for (uint64_t row = 0; row < run.rows; ++row) {
    places[row] = {block + row * run.stride, run.rowBytes};
  }
  const ssize_t got =
      preadv(fd, places.data(), static_cast<int>(run.rows), static_cast<off_t>(run.offset));
  return got < 0 ? 0 : static_cast<uint64_t>(got);
}

bool ReadLongRows(int fd, std::byte* block, const RowRun& run) {
  uint64_t done = 0;
  while (done < run.rows) {
    const RowRun call{.offset = run.offset + done * run.rowBytes,
                      .rows = std::min(run.rows - done, kRowsPerCall),
                      .rowBytes = run.rowBytes,
                      .stride = run.stride};
    const uint64_t got = ReadRowsInPlace(fd, block + done * run.stride, call);
    done += got / run.rowBytes;
    if (got == call.rows * run.rowBytes) continue;
    // Cut short: by the end of the file, or because a call moves no more than 2 GiB. The row is
    // read once more on its own.
    const uint64_t offset = run.offset + done * run.rowBytes;
    if (ReadFullyAt(fd, block + done * run.stride, run.rowBytes, offset) < run.rowBytes) {
      return false;
    }
    ++done;
  }
  return true;
}

bool ReadShortRows(int fd, std::byte* block, const RowRun& run) {
  const uint64_t rowsAtOnce = std::min(run.rows, kPieceBytes / run.rowBytes);
  const auto piece = std::make_unique_for_overwrite<std::byte[]>(rowsAtOnce * run.rowBytes);
  uint64_t done = 0;
  while (done < run.rows) {
    const uint64_t wanted = std::min(run.rows - done, rowsAtOnce) * run.rowBytes;
    const uint64_t got = ReadFullyAt(fd, piece.get(), wanted, run.offset + done * run.rowBytes);
    const uint64_t rows = got / run.rowBytes;
    CopyRows(piece.get(), run.rowBytes, block + done * run.stride, run.stride, run.rowBytes, rows);
    done += rows;
    if (got == wanted) continue;
    const std::byte* part = piece.get() + rows * run.rowBytes;
    std::copy_n(part, got % run.rowBytes, block + done * run.stride);
    return false;
  }
  return true;
}

bool ReadWholeRows(int fd, std::byte* block, const RowRun& run) {
  if (run.rows == 0) return true;
  return run.rowBytes < kLongRowBytes ? ReadShortRows(fd, block, run)
                                      : ReadLongRows(fd, block, run);
}

// False where the file ended, or a row would start outside of the block.
bool ReadRun(int fd, std::span<std::byte> block, const RowRun& run) {
  RowRun whole = run;
  whole.rows = RowsWithin(block.size(), run);
  if (!ReadWholeRows(fd, block.data(), whole)) return false;
  // Rows that the end of the block cuts.
  const uint64_t starting = RowsStarting(block.size(), run);
  for (uint64_t row = whole.rows; row < starting; ++row) {
    const auto place = block.subspan(row * run.stride);
    const uint64_t offset = run.offset + row * run.rowBytes;
    if (ReadFullyAt(fd, place.data(), place.size(), offset) < place.size()) return false;
  }
  return starting == run.rows;
}

// The same rows with as few of them as can be: where there is no padding, several are one.
RowLayout Joined(RowLayout layout) {
  if (layout.rowBytes == layout.stride) {
    layout.rowBytes *= layout.rows;
    layout.stride = layout.batchBytes;
    layout.rows = 1;
  }
  const bool isEven =
      layout.batchBytes % layout.stride == 0 && layout.batchBytes / layout.stride == layout.rows;
  if (!isEven || layout.batches > kMaxRowBytes / layout.batchBytes) return layout;
  layout.rows *= layout.batches;
  if (layout.rowBytes == layout.stride) {
    layout.rowBytes *= layout.rows;
    layout.rows = 1;
  }
  layout.batches = 1;
  return layout;
}

}  // namespace

void ReadRows(int fd, std::span<std::byte> block, const RowLayout& layout) {
  if (layout.batches == 0 || layout.rows == 0 || layout.rowBytes == 0) return;
  if (layout.rowBytes > kMaxRowBytes) return;
  const RowLayout joined = Joined(layout);
  RowRun run{
      .offset = 0, .rows = joined.rows, .rowBytes = joined.rowBytes, .stride = joined.stride};
  for (uint64_t batch = 0; batch < joined.batches; ++batch) {
    const uint64_t start = batch * joined.batchBytes;
    if (start >= block.size() || !ReadRun(fd, block.subspan(start), run)) return;
    run.offset += run.rows * run.rowBytes;
  }
}

}  // namespace vorn::run
