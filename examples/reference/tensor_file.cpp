// No header, and the byte order of this machine, as in the files of vorn-run.
#include "reference/tensor_file.h"

#include <fstream>
#include <iterator>
#include <stdexcept>

namespace reference {

namespace {

size_t ElementBytes(ONNXTensorElementDataType type) {
  switch (type) {
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_BOOL:
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_INT8:
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_UINT8:
      return 1;
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT16:
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_BFLOAT16:
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_INT16:
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_UINT16:
      return 2;
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT:
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_INT32:
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_UINT32:
      return 4;
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_DOUBLE:
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_INT64:
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_UINT64:
      return 8;
    default:
      throw std::runtime_error("element type " + std::to_string(type) + " is not served");
  }
}

}  // namespace

std::string ReadBytes(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("cannot open " + path);
  return {std::istreambuf_iterator<char>(file), {}};
}

void WriteTensor(const std::string& path, const Ort::Value& tensor) {
  if (!tensor.IsTensor()) throw std::runtime_error("what belongs into " + path + " is no tensor");
  const auto info = tensor.GetTensorTypeAndShapeInfo();
  std::ofstream file(path, std::ios::binary);
  file.write(
      static_cast<const char*>(tensor.GetTensorRawData()),
      static_cast<std::streamsize>(info.GetElementCount() * ElementBytes(info.GetElementType())));
  if (!file.flush()) throw std::runtime_error("cannot write " + path);
}

}  // namespace reference
