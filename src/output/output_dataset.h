// The output dataset of a model: one zero-filled block per output, made once and used by every
// inference.
#ifndef VORN_SRC_OUTPUT_OUTPUT_DATASET_H_
#define VORN_SRC_OUTPUT_OUTPUT_DATASET_H_

#include <cstdint>

#include "vorn/vorn.h"

namespace vorn::run {

/// Creates `outputDataset` and adds, in index order, a data buffer over a block of `batchSize`
/// times the output's size for every output. On failure prints the cause and returns 1; what
/// had been added by then stays in the dataset, for `DestroyDataset`.
[[nodiscard]] int CreateOutputDataset(const vorn_mdl_desc* modelDesc, uint32_t batchSize,
                                      vorn_mdl_dataset*& outputDataset);

}  // namespace vorn::run

#endif  // VORN_SRC_OUTPUT_OUTPUT_DATASET_H_
