// ONNX Runtime's environment: one in a process, with its log and its allocator.
#ifndef VORN_RUNTIME_HOST_ENGINE_ENGINE_ENVIRONMENT_H_
#define VORN_RUNTIME_HOST_ENGINE_ENGINE_ENVIRONMENT_H_

#include <onnxruntime_cxx_api.h>

#include <memory>

namespace vorn::host {

/// How much the library is to tell; without a log it need not even put words together.
OrtLoggingLevel EngineLogSeverity();

/// The environment of the process, as long as anybody holds it: the library has but one, and a
/// session of an earlier runtime may still execute when the next one comes up. The last holder ends
/// it on its thread; whoever asks meanwhile waits and gets a new one. Any thread. Fails with what
/// the library throws.
std::shared_ptr<Ort::Env> SharedEnvironment();

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_ENGINE_ENGINE_ENVIRONMENT_H_
