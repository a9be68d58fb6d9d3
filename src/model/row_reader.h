// Spreading a dense file over the rows of a block.
//
//     file    | row 0 | row 1 | row 2 | ...                       rows of rowBytes, nothing between
//     block   | row 0 | pad | row 1 | pad | ... | row R-1 | pad |   batch 0, batchBytes
//             | row 0 | pad | ...                                   batch 1
//             |<-  stride ->|
//
// Padding is never written. A file that ends early leaves the remaining rows as they are.
#ifndef VORN_SRC_MODEL_ROW_READER_H_
#define VORN_SRC_MODEL_ROW_READER_H_

#include <cstddef>
#include <cstdint>
#include <span>

namespace vorn::run {

struct RowLayout {
  uint64_t batches = 0;
  uint64_t batchBytes = 0;  ///< from one batch item's start to the next; at least rows * stride
  uint64_t rows = 0;        ///< of one batch item
  uint64_t stride = 0;      ///< above 0
  uint64_t rowBytes = 0;    ///< may exceed `stride`: a row then overlaps the start of the next
};

/// Reads the file from its start, row after row, into `block`. The part of a row that would lie
/// outside `block` is skipped in the file; a row that would start outside ends the reading.
/// A row of 2^63 bytes or more cannot be read.
void ReadRows(int fd, std::span<std::byte> block, const RowLayout& layout);

}  // namespace vorn::run

#endif  // VORN_SRC_MODEL_ROW_READER_H_
