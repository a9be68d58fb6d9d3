// Releasing a dataset with everything behind it; inputs and outputs go the same way.
#ifndef VORN_SRC_MODEL_DATASET_H_
#define VORN_SRC_MODEL_DATASET_H_

#include "vorn/vorn.h"

namespace vorn::run {

/// Frees the block and destroys the data buffer at every position, destroys the dataset and sets
/// the handle to null. Does nothing for a null handle. Results of the runtime are ignored.
void DestroyDataset(vorn_mdl_dataset*& dataset);

}  // namespace vorn::run

#endif  // VORN_SRC_MODEL_DATASET_H_
