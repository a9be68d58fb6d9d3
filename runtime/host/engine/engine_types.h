// ONNX Runtime's types in the words of this library. Part of the door that is engine.h.
#ifndef VORN_RUNTIME_HOST_ENGINE_ENGINE_TYPES_H_
#define VORN_RUNTIME_HOST_ENGINE_ENGINE_TYPES_H_

#include <onnxruntime_c_api.h>

#include <optional>

#include "vorn/vorn.h"

namespace vorn::host {

/// The code of an element type; nothing for one that is not served: strings, complex numbers, types
/// of fewer than 8 bits.
std::optional<vorn_data_type> FromElementType(ONNXTensorElementDataType type);

/// The type that leads to that code, bfloat16 for `kBfloat16`; undefined if none does.
ONNXTensorElementDataType ToElementType(vorn_data_type type);

/// What an element type that is not served is called, and a value that is no tensor.
const char* NameOf(ONNXTensorElementDataType type);
const char* NameOf(ONNXType type);

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_ENGINE_ENGINE_TYPES_H_
