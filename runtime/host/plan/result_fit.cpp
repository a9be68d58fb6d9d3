// Checking, telling, fitting.
#include "host/plan/result_fit.h"

#include "host/common/failure.h"
#include "host/common/log.h"
#include "host/tensor/tensor_fit.h"

namespace vorn::host {

void FitResult(const std::string& name, const TensorView& result, const Shape& largest,
               uint64_t elementBytes, std::byte* place) {
  if (result.shape.size() != largest.size()) {
    throw Failure(VORN_ERROR_EXECUTION, "output '", name, "' has the shape ",
                  ShapeText(result.shape), "; 'outputDims' gives it ", largest.size(),
                  " dimensions");
  }
  if (ReachesBeyond(result.shape, largest)) {
    Log(LogLevel::kError, "vorn_mdl_execute",
        Join("output '", name, "' has the shape ", ShapeText(result.shape), "; what is beyond ",
             ShapeText(largest), " is cut off"));
  }
  FitTensor(result.data, result.shape, place, largest, elementBytes);
}

}  // namespace vorn::host
