// Executing a model over two datasets.
#ifndef VORN_RUNTIME_HOST_STATE_EXECUTION_H_
#define VORN_RUNTIME_HOST_STATE_EXECUTION_H_

#include <cstdint>

#include "vorn/vorn.h"

namespace vorn::host {

/// Executes the model over the blocks behind the datasets, which must stay until it is done. Fails
/// as `Model::Execute` does, for handles as `Datasets` does, with VORN_ERROR_INVALID_HANDLE for the
/// id of no model, and with VORN_ERROR_NOT_INITIALIZED without a context. Any thread; several may
/// execute at once. Executing again over the same datasets allocates nothing.
void ExecuteModel(uint32_t modelId, const vorn_mdl_dataset* input, vorn_mdl_dataset* output);

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_STATE_EXECUTION_H_
