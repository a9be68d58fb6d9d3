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
/// A file that does not fit the input's shape resets `batchSize` to the number of whole batch items
/// in it, unless it is smaller than one. For input 0 of a recurrent model the file sets `nlpTotalT`
/// to its number of frames, and `batchSize` to 1; input 1 is checked against that number.
///
/// Returns the block, the caller's to free, or null after having printed the cause. Where the
/// runtime does not tell the kind of network, or the file is too large, the block stays allocated
/// and is lost: that the runtime sees no free there is part of the behaviour.
[[nodiscard]] void* ReadInputFile(const std::string& path, const InputFileTarget& target,
                                  uint32_t& batchSize, int32_t& nlpTotalT);

}  // namespace vorn::run

#endif  // VORN_SRC_MODEL_INPUT_FILE_H_
