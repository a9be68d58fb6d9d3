// ONNX Runtime for the programs that runs are compared with: the library of the host runtime, and
// nothing around it.
#ifndef EXAMPLES_REFERENCE_ENGINE_H_
#define EXAMPLES_REFERENCE_ENGINE_H_

#ifndef ORT_API_MANUAL_INIT  // given to some of the programs already
#define ORT_API_MANUAL_INIT
#endif
#include <onnxruntime_cxx_api.h>

namespace reference {

/// Loads the library that the host runtime loads, once for the whole program and before any other
/// use of it. Throws std::runtime_error.
void LoadEngine();

/// What the host runtime asks for with the configuration {}.
Ort::SessionOptions Options();

}  // namespace reference

#endif  // EXAMPLES_REFERENCE_ENGINE_H_
