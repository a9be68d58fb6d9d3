// Types by their codes.
#include "host/engine/engine_types.h"

#include "host/tensor/element_type.h"

namespace vorn::host {

std::optional<vorn_data_type> FromElementType(ONNXTensorElementDataType type) {
  switch (type) {
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT:
      return VORN_FLOAT32;
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT16:
      return VORN_FLOAT16;
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_INT8:
      return VORN_INT8;
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_INT32:
      return VORN_INT32;
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_UINT8:
      return VORN_UINT8;
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_UINT32:
      return VORN_UINT32;
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_INT16:
      return VORN_INT16;
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_UINT16:
      return VORN_UINT16;
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_INT64:
      return VORN_INT64;
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_UINT64:
      return VORN_UINT64;
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_DOUBLE:
      return VORN_FLOAT64;
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_BOOL:
      return VORN_BOOL;
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_BFLOAT16:
      return kBfloat16;
    default:
      return std::nullopt;
  }
}

const char* NameOf(ONNXTensorElementDataType type) {
  switch (type) {
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_STRING:
      return "strings";
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_COMPLEX64:
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_COMPLEX128:
      return "complex numbers";
    default:
      return "packed or 8-bit floating-point numbers";
  }
}

const char* NameOf(ONNXType type) {
  switch (type) {
    case ONNX_TYPE_SEQUENCE:
      return "a sequence";
    case ONNX_TYPE_MAP:
      return "a map";
    case ONNX_TYPE_SPARSETENSOR:
      return "a sparse tensor";
    case ONNX_TYPE_OPTIONAL:
      return "an optional value";
    default:
      return "no tensor";
  }
}

ONNXTensorElementDataType ToElementType(vorn_data_type type) {
  for (int code = 0; code <= ONNX_TENSOR_ELEMENT_DATA_TYPE_BFLOAT16; ++code) {
    const auto candidate = static_cast<ONNXTensorElementDataType>(code);
    if (FromElementType(candidate) == type) return candidate;
  }
  return ONNX_TENSOR_ELEMENT_DATA_TYPE_UNDEFINED;
}

}  // namespace vorn::host
