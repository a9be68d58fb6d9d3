// Finding the library that executes the models when the runtime is brought up.
#ifndef VORN_RUNTIME_HOST_ENGINE_ENGINE_LIBRARY_H_
#define VORN_RUNTIME_HOST_ENGINE_ENGINE_LIBRARY_H_

struct OrtApi;

namespace vorn::host {

/// Loads the library, once in the life of the process, and returns its table of functions in the
/// version that this file was compiled for. Fails with VORN_ERROR_INTERNAL and the loader's reason.
const OrtApi* LoadEngineLibrary();

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_ENGINE_ENGINE_LIBRARY_H_
