// Row by row, or all at once where there is nothing between rows.
//
// A call of memcpy takes longer than moving a short row does, so rows of up to 64 bytes are moved
// in line. Any such size is two pieces of half a power of two, which overlap in the middle:
//
//     row of 12 bytes    | 0 1 2 3 4 5 6 7 |
//                                | 4 5 6 7 8 9 10 11 |
//
// Neither piece reaches out of the row, so no padding is touched. What lies behind a row is the
// caller's, and moving 16 bytes for 12 would write to it.
#include "shared/rows/row_copy.h"

#include <cstring>

namespace vorn {
namespace {

/// Where rows come from and go to; rows are `rowBytes` long on both sides.
struct Rows {
  const std::byte* from;
  uint64_t fromStride;
  std::byte* to;
  uint64_t toStride;
  uint64_t rowBytes;
  uint64_t count;
};

/// Rows of exactly `kBytes`: a move or two each.
template <size_t kBytes>
void CopyFixed(const Rows& rows) {
  const std::byte* from = rows.from;
  std::byte* to = rows.to;
  for (uint64_t row = 0; row < rows.count; ++row) {
    std::memcpy(to, from, kBytes);
    from += rows.fromStride;
    to += rows.toStride;
  }
}

/// Rows of `kPiece` to twice as many bytes: a piece from the front and a piece up to the end.
template <size_t kPiece>
void CopyInTwoPieces(const Rows& rows) {
  const uint64_t last = rows.rowBytes - kPiece;
  const std::byte* from = rows.from;
  std::byte* to = rows.to;
  for (uint64_t row = 0; row < rows.count; ++row) {
    std::memcpy(to, from, kPiece);
    std::memcpy(to + last, from + last, kPiece);
    from += rows.fromStride;
    to += rows.toStride;
  }
}

void CopyOneByOne(const Rows& rows) {
  for (uint64_t row = 0; row < rows.count; ++row) {
    std::memcpy(rows.to + row * rows.toStride, rows.from + row * rows.fromStride, rows.rowBytes);
  }
}

void CopyPadded(const Rows& rows) {
  switch (rows.rowBytes) {
    case 1:
      return CopyFixed<1>(rows);
    case 2:
      return CopyFixed<2>(rows);
    case 4:
      return CopyFixed<4>(rows);
    case 8:
      return CopyFixed<8>(rows);
    case 16:
      return CopyFixed<16>(rows);
    default:
      break;
  }
  if (rows.rowBytes < 4) return CopyInTwoPieces<2>(rows);
  if (rows.rowBytes < 8) return CopyInTwoPieces<4>(rows);
  if (rows.rowBytes < 16) return CopyInTwoPieces<8>(rows);
  if (rows.rowBytes <= 32) return CopyInTwoPieces<16>(rows);
  if (rows.rowBytes <= 64) return CopyInTwoPieces<32>(rows);
  CopyOneByOne(rows);
}

}  // namespace

void CopyRows(const std::byte* from, uint64_t fromStride, std::byte* to, uint64_t toStride,
              uint64_t rowBytes, uint64_t rows) {
  if (rows == 0 || rowBytes == 0) return;  // there may be no places at all then
  if (fromStride == rowBytes && toStride == rowBytes) {
    std::memcpy(to, from, rowBytes * rows);
    return;
  }
  CopyPadded({from, fromStride, to, toStride, rowBytes, rows});
}

}  // namespace vorn
