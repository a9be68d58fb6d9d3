// What ONNX Runtime's errors mean here. Part of the door that is engine.h.
#ifndef VORN_RUNTIME_HOST_ENGINE_ENGINE_FAILURE_H_
#define VORN_RUNTIME_HOST_ENGINE_ENGINE_FAILURE_H_

#include <onnxruntime_c_api.h>

#include <string_view>

namespace vorn::host {

/// Whether memory was not to be had. The library has no code of its own for that, so its text is
/// read too: the reason that the text gives last has to be that of an allocation and nothing else.
/// What a model calls its nodes and tensors stands in front of the reason, or in it.
bool IsOutOfMemory(OrtErrorCode code, std::string_view text);

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_ENGINE_ENGINE_FAILURE_H_
