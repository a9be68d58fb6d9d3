// Loading a model into the runtime.
#ifndef VORN_RUNTIME_HOST_STATE_LOADING_H_
#define VORN_RUNTIME_HOST_STATE_LOADING_H_

#include <cstdint>

namespace vorn::host {

/// Loads the model in the `size` bytes at `image`, which must stay there until it is unloaded, and
/// returns its id. Tries it out in a copy of the process first if the configuration says so. Fails
/// as `Model` does, with VORN_ERROR_INVALID_ARGUMENT for no image or one that reaches beyond its
/// block, with VORN_ERROR_MODEL or VORN_ERROR_TIMEOUT for how the copy ended, and with
/// VORN_ERROR_NOT_INITIALIZED without a context, or where the runtime went down meanwhile. Any
/// thread; several may load at once.
uint32_t LoadModel(const void* image, uint64_t size);

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_STATE_LOADING_H_
