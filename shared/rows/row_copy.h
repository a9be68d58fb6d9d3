// Copying rows from one place to another whose rows lie further apart or closer together.
#ifndef VORN_SHARED_ROWS_ROW_COPY_H_
#define VORN_SHARED_ROWS_ROW_COPY_H_

#include <cstddef>
#include <cstdint>

namespace vorn {

/// Copies `rows` rows of `rowBytes` bytes, the first one first. Rows start `fromStride` and
/// `toStride` bytes apart. Neither the padding between rows nor that behind the last one is read or
/// written. A stride may be less than `rowBytes`, even 0: such rows share bytes, and where they are
/// written to, the later row's stay. The two places must not overlap. Where there is nothing to
/// copy, because there are no rows or they have no bytes, both may be null.
void CopyRows(const std::byte* from, uint64_t fromStride, std::byte* to, uint64_t toStride,
              uint64_t rowBytes, uint64_t rows);

}  // namespace vorn

#endif  // VORN_SHARED_ROWS_ROW_COPY_H_
