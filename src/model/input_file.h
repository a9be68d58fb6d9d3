// Reading one raw input file into a new block laid out as the model expects.
#ifndef VORN_SRC_MODEL_INPUT_FILE_H_
#define VORN_SRC_MODEL_INPUT_FILE_H_

#include <cstdint>
#include <string>

#include "vorn/vorn.h"

namespace vorn::run {

/// The model input that a file is for.
struct InputFileTarget {
  const vorn_mdl_io_dims& dims;
  const vorn_mdl_desc* modelDesc;
  uint64_t index;
  uint32_t modelId;
};

/// Reads the file, dense rows, into a new block with the input's row stride.
///
/// A file that is not of the input's shape resets `batchSize` to the whole batch items that it
/// holds, unless it is smaller than one. Input 0 of a recurrent model sets `nlpTotalT` to the
/// frames that the file holds and `batchSize` to 1, and input 1 is checked against those frames.
///
/// Returns the block, the caller's to free, or null after having printed the cause. Where the kind
/// of network cannot be asked or the file is too large, the block stays allocated and is lost: that
/// the runtime sees no free there is part of the behaviour.
[[nodiscard]] void* ReadInputFile(const std::string& path, const InputFileTarget& target,
                                  uint32_t& batchSize, int32_t& nlpTotalT);

}  // namespace vorn::run

#endif  // VORN_SRC_MODEL_INPUT_FILE_H_
