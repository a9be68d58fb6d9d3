// The values of one output after an inference, read out of its block in the output dataset.
#ifndef VORN_SRC_OUTPUT_OUTPUT_VALUES_H_
#define VORN_SRC_OUTPUT_OUTPUT_VALUES_H_

#include <cstdint>
#include <span>

#include "common/model_io.h"
#include "output/value_buffer.h"
#include "vorn/vorn.h"

namespace vorn::run {

/// Where outputs are read from. Borrowed from the model, which outlives every reader.
struct OutputSource {
  const vorn_mdl_desc* modelDesc = nullptr;
  const vorn_mdl_dataset* outputDataset = nullptr;
  uint32_t batchSize = 1;  ///< as of this inference; the blocks may have been sized for another
};

/// Fills `param` for one output, `size` being that of a single batch item. Returns 1 with a message
/// when a query fails or answers 0.
[[nodiscard]] int GetOutputStrideParam(const vorn_mdl_desc* modelDesc, int32_t index,
                                       StrideParam& param);

/// Bytes of one element; 0 for a type of less than 8 bits or unknown to the runtime.
[[nodiscard]] uint64_t GetOutputDataSize(const vorn_mdl_desc* modelDesc, int32_t index);

/// Sets `values` to the values of output `index` in the memory of `buffer`, stride removed, read as
/// elements of `Element` (see `RemoveStride`). The row step comes from the runtime's element size,
/// the width of a read from `Element`. Returns 1 with a message, `values` untouched, when the
/// output or its description is unfit.
template <typename Element>
[[nodiscard]] int GetOutputWithOutStride(const OutputSource& source, uint64_t index,
                                         ValueBuffer& buffer, std::span<const float>& values);

}  // namespace vorn::run

#endif  // VORN_SRC_OUTPUT_OUTPUT_VALUES_H_
