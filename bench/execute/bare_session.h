// The floor: a session of ONNX Runtime's own with its memory bound, and nothing around it.
#ifndef VORN_BENCH_EXECUTE_BARE_SESSION_H_
#define VORN_BENCH_EXECUTE_BARE_SESSION_H_

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#define ORT_API_MANUAL_INIT
#include <onnxruntime_cxx_api.h>

/// The library that the host runtime has loaded, at the very copy of it in this process. To be
/// called once the host runtime is up. Throws std::runtime_error.
void UseLoadedEngine();

/// A tensor as dense bytes, with what is to know of it.
struct DenseTensor {
  std::vector<int64_t> dims;  ///< open ones are 1
  ONNXTensorElementDataType type = ONNX_TENSOR_ELEMENT_DATA_TYPE_UNDEFINED;
  size_t elementBytes = 0;
  std::byte* data = nullptr;  ///< aligned to 64 bytes
  size_t bytes = 0;
};

/// A model with one input and one output, of one batch item, with the options of the host runtime
/// for one thread. The blocks are aligned as the host runtime's. Throws Ort::Exception.
class BareSession {
 public:
  BareSession(Ort::Env& env, std::span<const std::byte> image);
  ~BareSession();
  BareSession(const BareSession&) = delete;
  BareSession& operator=(const BareSession&) = delete;

  const DenseTensor& input() const { return input_; }
  const DenseTensor& output() const { return output_; }

  void Run() { session_.Run(Ort::RunOptions{nullptr}, binding_); }

 private:
  Ort::Value Bound(DenseTensor& tensor, const Ort::TypeInfo& info);

  Ort::Session session_;
  Ort::MemoryInfo memory_;
  Ort::IoBinding binding_;
  DenseTensor input_;
  DenseTensor output_;
};

#endif  // VORN_BENCH_EXECUTE_BARE_SESSION_H_
