// One kernel with a function in it, and an operator for each function.
#include "host/engine/engine_rounding.h"

#include <algorithm>
#include <cstddef>
#include <exception>
#include <new>

#include "host/graph/round_results.h"
#include "host/graph/rounding.h"

namespace vorn::host {
namespace {

constexpr size_t kPiece = 1 << 14;  // elements that a thread takes at a time

using Round = void (*)(const Grid& grid, const float* from, float* to, size_t count);

/// Calls `steps`; whatever they throw goes back to the library as a status.
template <typename Steps>
OrtStatus* Answered(Steps&& steps) noexcept {
  try {
    steps();
    return nullptr;
  } catch (const Ort::Exception& e) {
    return Ort::GetApi().CreateStatus(e.GetOrtErrorCode(), e.what());
  } catch (const std::bad_alloc&) {
    return Ort::GetApi().CreateStatus(ORT_FAIL, "bad allocation");
  } catch (const std::exception& e) {
    return Ort::GetApi().CreateStatus(ORT_FAIL, e.what());
  }
}

struct Kernel {
  Round round = nullptr;
  Grid grid;
  bool isForItsOwnValues = false;

  OrtStatusPtr ComputeV2(OrtKernelContext* context) const noexcept {
    return Answered([&] { Compute(Ort::KernelContext(context)); });
  }

 private:
  /// What a piece needs that another thread may take.
  struct Work {
    const Kernel& kernel;
    Grid grid;
    const float* from;
    float* to;
    size_t count;
  };

  void Compute(const Ort::KernelContext& context) const {
    const Ort::ConstValue input = context.GetInput(0);
    const Ort::TensorTypeAndShapeInfo info = input.GetTensorTypeAndShapeInfo();
    const size_t count = info.GetElementCount();
    const float* from = input.GetTensorData<float>();
    Ort::UnownedValue output = context.GetOutput(0, info.GetShape());
    Work work = {*this, grid, from, output.GetTensorMutableData<float>(), count};
    if (isForItsOwnValues) work.grid = SymmetricGridFor({from, count});
    if (count <= kPiece) return round(work.grid, work.from, work.to, count);
    context.ParallelFor(RoundPiece, (count + kPiece - 1) / kPiece, 0, &work);
  }

  static void RoundPiece(void* data, size_t piece) {
    const auto& work = *static_cast<const Work*>(data);
    const size_t first = piece * kPiece;
    work.kernel.round(work.grid, work.from + first, work.to + first,
                      std::min(kPiece, work.count - first));
  }
};

void ToFloat16(const Grid&, const float* from, float* to, size_t count) {
  RoundToFloat16(from, to, count);
}

void ToBfloat16(const Grid&, const float* from, float* to, size_t count) {
  RoundToBfloat16(from, to, count);
}

/// Names are those that the library asks for.
class Operator : public Ort::CustomOpBase<Operator, Kernel, true> {
 public:
  Operator(const char* name, Round round) : name_(name), round_(round) {}

  OrtStatusPtr CreateKernelV2(const OrtApi&, const OrtKernelInfo* info,
                              void** kernel) const noexcept {
    return Answered([&] { *kernel = NewKernel(Ort::ConstKernelInfo(info)); });
  }
  const char* GetName() const { return name_; }
  size_t GetInputTypeCount() const { return 1; }
  size_t GetOutputTypeCount() const { return 1; }
  ONNXTensorElementDataType GetInputType(size_t) const {
    return ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT;
  }
  ONNXTensorElementDataType GetOutputType(size_t) const {
    return ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT;
  }

  static Ort::Status InferOutputShape(Ort::ShapeInferContext& context) {
    const Ort::ShapeInferContext::Shape shape = context.GetInputShape(0);
    // A scalar looks like a tensor of which nothing is known; nothing is lost by leaving it open.
    // So does a dimension without a name, which cannot be handed on.
    const bool isKnown =
        std::ranges::none_of(shape, [](const auto& dim) { return dim.IsInt() && dim.AsInt() < 0; });
    if (shape.empty() || !isKnown) return Ort::Status(nullptr);
    return context.SetOutputShape(0, shape);
  }

 private:
  void* NewKernel(Ort::ConstKernelInfo info) const {
    auto kernel = std::make_unique<Kernel>();
    kernel->round = round_;
    kernel->isForItsOwnValues = std::string_view(name_) == "ToOwnGrid";
    if (std::string_view(name_) == "ToGrid") {
      kernel->grid = {.scale = info.GetAttribute<float>("scale"),
                      .low = info.GetAttribute<float>("low"),
                      .high = info.GetAttribute<float>("high")};
    }
    return kernel.release();
  }

  const char* name_;
  Round round_;
};

struct Operators {
  Operators() {
    for (Operator* one : {&toFloat16, &toBfloat16, &toGrid, &toOwnGrid}) domain.Add(one);
  }

  Operator toFloat16{"ToFloat16", ToFloat16};
  Operator toBfloat16{"ToBfloat16", ToBfloat16};
  Operator toGrid{"ToGrid", RoundToGrid};
  Operator toOwnGrid{"ToOwnGrid", RoundToGrid};
  Ort::CustomOpDomain domain{kRoundingDomain};
};

}  // namespace

void ServeRounding(Ort::SessionOptions& options) {
  // Never destroyed: a session may still execute while the process ends.
  static const Operators& operators = *new Operators;
  options.Add(operators.domain);
}

}  // namespace vorn::host
