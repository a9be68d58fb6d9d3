// Row by row, dimension by dimension.
#include "host/tensor/tensor_fit.h"

#include <algorithm>
#include <cstring>
#include <span>

namespace vorn::host {
namespace {

using Dims = std::span<const int64_t>;

uint64_t BytesOf(Dims dims, uint64_t elementBytes) {
  uint64_t bytes = elementBytes;
  for (const int64_t dim : dims) bytes *= static_cast<uint64_t>(dim);
  return bytes;
}

void Fit(const std::byte* tensor, Dims tensorDims, std::byte* place, Dims placeDims,
         uint64_t elementBytes) {
  if (placeDims.empty()) {
    std::memcpy(place, tensor, elementBytes);
    return;
  }
  const uint64_t from = BytesOf(tensorDims.subspan(1), elementBytes);
  const uint64_t to = BytesOf(placeDims.subspan(1), elementBytes);
  const auto kept = static_cast<uint64_t>(std::min(tensorDims[0], placeDims[0]));
  const auto all = static_cast<uint64_t>(placeDims[0]);
  if (std::ranges::equal(tensorDims.subspan(1), placeDims.subspan(1))) {
    if (kept != 0) std::memcpy(place, tensor, kept * to);
  } else {
    for (uint64_t i = 0; i < kept; ++i) {
      Fit(tensor + i * from, tensorDims.subspan(1), place + i * to, placeDims.subspan(1),
          elementBytes);
    }
  }
  std::memset(place + kept * to, 0, (all - kept) * to);
}

}  // namespace

void FitTensor(const std::byte* tensor, const Shape& tensorShape, std::byte* place,
               const Shape& placeShape, uint64_t elementBytes) {
  if (BytesOf(tensorShape, elementBytes) == 0) {
    std::memset(place, 0, BytesOf(placeShape, elementBytes));
    return;
  }
  Fit(tensor, tensorShape, place, placeShape, elementBytes);
}

bool ReachesBeyond(const Shape& shape, const Shape& place) {
  return !std::ranges::equal(shape, place, std::less_equal<>());
}

}  // namespace vorn::host
