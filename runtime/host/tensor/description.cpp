// Descriptions of tensors and of the scratch inputs.
#include "host/tensor/description.h"

#include <algorithm>
#include <cstring>

#include "host/common/failure.h"
#include "host/tensor/element_type.h"

namespace vorn::host {
namespace {

bool IsNameTaken(const std::vector<TensorDescription>& inputs, const std::string& name) {
  return std::any_of(inputs.begin(), inputs.end(),
                     [&](const TensorDescription& input) { return input.name == name; });
}

}  // namespace

TensorDescription DescribeTensor(const char* kind, const std::string& name, vorn_data_type type,
                                 const Shape& shape, uint64_t rowAlignment) {
  if (shape.size() > VORN_MAX_DIMS) {
    throw Failure(VORN_ERROR_MODEL, kind, " '", name, "' has ", shape.size(), " dimensions; ",
                  static_cast<int>(VORN_MAX_DIMS), " are the most");
  }
  const auto layout = LayOut(shape, ElementBytes(type), rowAlignment);
  if (!layout) {
    throw Failure(VORN_ERROR_MODEL, kind, " '", name, "' has the shape ", ShapeText(shape),
                  "; every dimension has to be at least 1 and the whole below 2^63 bytes");
  }
  return {.name = name,
          .type = type,
          .format = shape.size() == 4 ? VORN_FORMAT_NCHW : VORN_FORMAT_ND,
          .dims = shape.empty() ? Shape{1} : shape,
          .layout = *layout};
}

std::string FreeInputName(const ModelDescription& description, const std::string& wanted) {
  std::string name = wanted;
  for (int number = 2; IsNameTaken(description.inputs, name); ++number) {
    name = wanted + "_" + std::to_string(number);
  }
  return name;
}

void AppendScratchInputs(ModelDescription& description, uint64_t taskBytes, uint64_t workBytes,
                         uint64_t rowAlignment) {
  const auto append = [&](const char* name, uint64_t bytes) {
    description.inputs.push_back(DescribeTensor("input", FreeInputName(description, name),
                                                VORN_UINT8, {static_cast<int64_t>(bytes)},
                                                rowAlignment));
  };
  append("task_buffer", taskBytes);
  append("work_buffer", workBytes);
}

void FillDims(const TensorDescription& tensor, vorn_mdl_io_dims& dims) {
  dims = {};
  std::memcpy(dims.name, tensor.name.data(),
              std::min<size_t>(tensor.name.size(), VORN_MAX_NAME - 1));
  dims.dimCount = tensor.dims.size();
  std::copy(tensor.dims.begin(), tensor.dims.end(), dims.dims);
}

}  // namespace vorn::host
