// Results whose shape depends on the data, in the place that was foreseen for them.
#ifndef VORN_RUNTIME_HOST_PLAN_RESULT_FIT_H_
#define VORN_RUNTIME_HOST_PLAN_RESULT_FIT_H_

#include <cstddef>
#include <cstdint>
#include <string>

#include "host/engine/engine.h"
#include "host/tensor/shape.h"

namespace vorn::host {

/// Fits the result of output `name` into a dense place of the shape `largest`, as tensor_fit.h
/// says: at the front of every dimension, with zeros behind it. What is cut off is logged. Fails
/// with VORN_ERROR_EXECUTION for another count of dimensions.
void FitResult(const std::string& name, const TensorView& result, const Shape& largest,
               uint64_t elementBytes, std::byte* place);

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_PLAN_RESULT_FIT_H_
