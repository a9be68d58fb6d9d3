// Bringing the runtime up and taking it down.
#ifndef VORN_RUNTIME_HOST_STATE_LIFECYCLE_H_
#define VORN_RUNTIME_HOST_STATE_LIFECYCLE_H_

namespace vorn::host {

/// Brings the runtime up with the JSON file at `configPath`. Fails with VORN_ERROR_INVALID_ARGUMENT
/// for null, with VORN_ERROR_UNSUPPORTED while it is up, with VORN_ERROR_CONFIG for what the file
/// says, with VORN_ERROR_INTERNAL where the execution library does not come up. Any thread.
void StartRuntime(const char* configPath);

/// Takes it down, and logs what was never given back. Ends devices, contexts, streams and models; a
/// model that executes on another thread comes to its end there. Blocks, datasets and descriptions
/// are the caller's memory and can be given back later on. Fails with VORN_ERROR_NOT_INITIALIZED
/// while it is down. Any thread.
void StopRuntime();

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_STATE_LIFECYCLE_H_
