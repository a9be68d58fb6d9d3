// As little around Ort::Session::Run as there can be.
#include "execute/bare_session.h"

#include <dlfcn.h>

#include <cstdlib>
#include <stdexcept>

namespace {

constexpr size_t kBlockAlignment = 64;  // bytes; that of the host runtime's blocks

/// What runtime/host/engine/engine.cpp asks for with the configuration {}.
Ort::SessionOptions Options() {
  Ort::SessionOptions options;
  options.SetIntraOpNumThreads(1);
  options.SetInterOpNumThreads(1);
  options.SetExecutionMode(ORT_SEQUENTIAL);
  options.SetGraphOptimizationLevel(ORT_ENABLE_ALL);
  options.SetLogSeverityLevel(ORT_LOGGING_LEVEL_FATAL);
  return options;
}

size_t ElementBytes(ONNXTensorElementDataType type) {
  switch (type) {
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT:
      return 4;
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_UINT8:
      return 1;
    default:
      throw std::runtime_error("only models of 32-bit floats and bytes are measured here");
  }
}

}  // namespace

void UseLoadedEngine() {
  void* library = dlopen(VORN_ENGINE_SONAME, RTLD_NOW | RTLD_NOLOAD);
  if (library == nullptr) {
    throw std::runtime_error("the host runtime has not loaded " VORN_ENGINE_SONAME);
  }
  using GetBase = const OrtApiBase*(ORT_API_CALL*)();
  const auto getBase = reinterpret_cast<GetBase>(dlsym(library, "OrtGetApiBase"));
  const OrtApi* api = getBase()->GetApi(ORT_API_VERSION);
  if (api == nullptr) throw std::runtime_error(VORN_ENGINE_SONAME " is older than its headers");
  Ort::InitApi(api);
}

BareSession::BareSession(Ort::Env& env, std::span<const std::byte> image)
    : session_(env, image.data(), image.size(), Options()),
      memory_(Ort::MemoryInfo::CreateCpu(OrtDeviceAllocator, OrtMemTypeDefault)),
      binding_(session_) {
  const Ort::AllocatorWithDefaultOptions allocator;
  binding_.BindInput(session_.GetInputNameAllocated(0, allocator).get(),
                     Bound(input_, session_.GetInputTypeInfo(0)));
  binding_.BindOutput(session_.GetOutputNameAllocated(0, allocator).get(),
                      Bound(output_, session_.GetOutputTypeInfo(0)));
}

BareSession::~BareSession() {
  std::free(input_.data);
  std::free(output_.data);
}

Ort::Value BareSession::Bound(DenseTensor& tensor, const Ort::TypeInfo& info) {
  const Ort::ConstTensorTypeAndShapeInfo shape = info.GetTensorTypeAndShapeInfo();
  tensor.dims = shape.GetShape();
  tensor.type = shape.GetElementType();
  tensor.elementBytes = tensor.bytes = ElementBytes(tensor.type);
  for (int64_t& dim : tensor.dims) {
    if (dim < 0) dim = 1;
    tensor.bytes *= static_cast<size_t>(dim);
  }
  const size_t rounded = (tensor.bytes + kBlockAlignment - 1) & ~(kBlockAlignment - 1);
  tensor.data = static_cast<std::byte*>(std::aligned_alloc(kBlockAlignment, rounded));
  return Ort::Value::CreateTensor(memory_, tensor.data, tensor.bytes, tensor.dims.data(),
                                  tensor.dims.size(), tensor.type);
}
