// The inputs and outputs of a model: which it has, and how one of them lies in its block.
#ifndef VORN_SRC_COMMON_MODEL_IO_H_
#define VORN_SRC_COMMON_MODEL_IO_H_

#include <algorithm>
#include <cstdint>
#include <span>

#include "vorn/vorn.h"

namespace vorn::run {

/// Task buffer and work buffer, the last two inputs of every model.
inline constexpr uint32_t kScratchInputs = 2;

struct StrideParam {
  uint64_t size = 0;    ///< bytes: an input's whole block, an output's single batch item
  uint64_t stride = 0;  ///< bytes of one row with its padding
  vorn_mdl_io_dims dims{};
};

/// The dimensions in use, outermost first. A count beyond the record is cut to what the record
/// holds, so nothing outside it is read.
[[nodiscard]] inline std::span<const int64_t> Dimensions(const vorn_mdl_io_dims& dims) {
  return {dims.dims, std::min<uint64_t>(dims.dimCount, VORN_MAX_DIMS)};
}

}  // namespace vorn::run

#endif  // VORN_SRC_COMMON_MODEL_IO_H_
