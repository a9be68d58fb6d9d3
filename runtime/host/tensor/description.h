// What a model shows of itself: the plain data behind a `vorn_mdl_desc`.
#ifndef VORN_RUNTIME_HOST_TENSOR_DESCRIPTION_H_
#define VORN_RUNTIME_HOST_TENSOR_DESCRIPTION_H_

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "host/tensor/layout.h"
#include "host/tensor/shape.h"
#include "vorn/vorn.h"

namespace vorn::host {

/// One input or output, for one batch item.
struct TensorDescription {
  std::string name;
  vorn_data_type type = VORN_FLOAT32;
  vorn_format format = VORN_FORMAT_ND;
  Shape dims;  ///< at least one dimension: a scalar shows as [1]
  TensorLayout layout;
};

/// `inputs` are the data inputs in the model's order, then the task buffer and the work buffer.
struct ModelDescription {
  std::vector<TensorDescription> inputs;
  std::vector<TensorDescription> outputs;

  size_t DataInputCount() const { return inputs.size() - 2; }
};

/// Describes a data input or an output; `kind` ("input", "output") is for messages. Four dimensions
/// are called NCHW, any other count ND. Fails with VORN_ERROR_MODEL for a tensor without elements,
/// with more than VORN_MAX_DIMS dimensions or beyond 2^63 - 1 bytes.
TensorDescription DescribeTensor(const char* kind, const std::string& name, vorn_data_type type,
                                 const Shape& shape, uint64_t rowAlignment);

/// Appends the task buffer and the work buffer to `inputs`, of `taskBytes` and `workBytes` for one
/// batch item (scratch.h says what they are used for): uint8 of one dimension, named "task_buffer"
/// and "work_buffer", with a number behind where the model has that name itself.
void AppendScratchInputs(ModelDescription& description, uint64_t taskBytes, uint64_t workBytes,
                         uint64_t rowAlignment);

/// `wanted`, with a number behind it where an input has that name already.
std::string FreeInputName(const ModelDescription& description, const std::string& wanted);

/// Fills the C record: the name cut to 127 characters, unused dimensions 0.
void FillDims(const TensorDescription& tensor, vorn_mdl_io_dims& dims);

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_TENSOR_DESCRIPTION_H_
