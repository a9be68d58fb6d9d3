// Operators of our own that round (graph/round_results.h), for models that import their domain.
// Part of the door that is engine.h.
#ifndef VORN_RUNTIME_HOST_ENGINE_ENGINE_ROUNDING_H_
#define VORN_RUNTIME_HOST_ENGINE_ENGINE_ROUNDING_H_

#include <onnxruntime_cxx_api.h>

namespace vorn::host {

/// Makes the operators known to sessions with these options. Once brought up they stay for the rest
/// of the process.
void ServeRounding(Ort::SessionOptions& options);

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_ENGINE_ENGINE_ROUNDING_H_
