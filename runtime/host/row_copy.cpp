// Row by row, or all at once where there is no padding.
#include "host/row_copy.h"

#include <cstring>

namespace vorn::host {

void CopyRows(const std::byte* from, uint64_t fromStride, std::byte* to, uint64_t toStride,
              uint64_t rowBytes, uint64_t rows) {
  if (fromStride == rowBytes && toStride == rowBytes) {
    std::memcpy(to, from, rowBytes * rows);
    return;
  }
  for (uint64_t row = 0; row < rows; ++row) {
    std::memcpy(to + row * toStride, from + row * fromStride, rowBytes);
  }
}

}  // namespace vorn::host
