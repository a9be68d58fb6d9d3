// A description for people.
#ifndef VORN_KIT_MODEL_MODEL_TEXT_H_
#define VORN_KIT_MODEL_MODEL_TEXT_H_

#include <string>

#include "kit/model/model_description.h"

namespace vorn::kit {

/// What the model is, a table of inputs and one of outputs, the scratch buffers. Sizes of files and
/// blocks are those of `batch` items. What is not known shows as "unknown".
[[nodiscard]] std::string DescribeModel(const ModelDescription& description, uint64_t batch);

/// Rows, padding and items of a tensor, drawn: where each begins in the file and in the block.
[[nodiscard]] std::string DrawLayout(const TensorDescription& tensor, uint64_t batch);

/// The input or output of that name, inputs first. Throws a Fault of kUsage that names the nearest
/// one and all there are.
[[nodiscard]] const TensorDescription& FindTensor(const ModelDescription& description,
                                                  const std::string& name);

}  // namespace vorn::kit

#endif  // VORN_KIT_MODEL_MODEL_TEXT_H_
