#include "kit/model/model_text.h"

#include <algorithm>

#include "kit/common/fault.h"
#include "kit/common/nearest.h"
#include "kit/common/printable.h"
#include "kit/common/text_table.h"
#include "vorn/vorn.h"

namespace vorn::kit {
namespace {

constexpr const char* kUnknown = "unknown";

std::string NumberText(const std::optional<uint64_t>& number) {
  return number ? std::to_string(*number) : kUnknown;
}

std::optional<uint64_t> Times(const std::optional<uint64_t>& size, uint64_t batch) {
  uint64_t product = 0;
  if (!size || __builtin_mul_overflow(*size, batch, &product)) return std::nullopt;
  return product;
}

std::string IdentityText(const FileIdentity& file) {
  std::string text = Printable(file.path);
  if (file.sizeBytes) text += ", " + SizeText(*file.sizeBytes);
  if (file.xxh3) text += ", XXH3-128 " + *file.xxh3;
  return text;
}

bool IsScratch(const TensorDescription& tensor) {
  return tensor.role == TensorRole::kTask || tensor.role == TensorRole::kWork;
}

std::string FileColumn(const TensorDescription& tensor, uint64_t batch) {
  if (tensor.role == TensorRole::kThresholds) return "numbers of -r";
  return NumberText(Times(tensor.DenseBytes(), batch));
}

// Runtimes call any four dimensions NCHW, also those of a picture with its channels last: better
// nothing than what misleads. model.json has what was said.
bool IsChannelsLast(const std::vector<int64_t>& shape) {
  constexpr int64_t kMostChannels = 4;
  if (shape.size() != 4 || shape[1] <= kMostChannels || shape[2] <= kMostChannels) return false;
  return shape[3] == 3 || shape[3] == 4 || (shape[3] == 1 && shape[1] == shape[2]);
}

std::string FormatText(const TensorDescription& tensor) {
  if (!tensor.format) return kUnknown;
  const bool misleads = tensor.format == VORN_FORMAT_NCHW && IsChannelsLast(tensor.shape);
  return misleads ? "-" : FormatName(*tensor.format);
}

std::string TensorTable(const std::vector<TensorDescription>& tensors, bool areInputs,
                        uint64_t batch) {
  TextTable table({{areInputs ? "input" : "output", true},
                   {"name"},
                   {"shape"},
                   {"type"},
                   {"format"},
                   {areInputs ? "file bytes" : "dense bytes", true},
                   {"stride", true},
                   {"device bytes", true}});
  for (size_t i = 0; i < tensors.size(); ++i) {
    const TensorDescription& tensor = tensors[i];
    if (IsScratch(tensor)) continue;
    // One set of thresholds serves the whole batch.
    const uint64_t items = tensor.role == TensorRole::kThresholds ? 1 : batch;
    table.Add({std::to_string(i), tensor.name, ShapeText(tensor.shape),
               tensor.type ? TypeName(*tensor.type) : kUnknown, FormatText(tensor),
               FileColumn(tensor, items), NumberText(tensor.strideBytes),
               NumberText(Times(tensor.deviceBytes, items))});
  }
  return table.Text();
}

std::string ScratchText(const std::vector<TensorDescription>& inputs, uint64_t batch) {
  std::string text;
  for (const TensorDescription& tensor : inputs) {
    if (!IsScratch(tensor)) continue;
    text += text.empty() ? "scratch  " : ", ";
    text += std::string(RoleName(tensor.role)) + " buffer " +
            NumberText(Times(tensor.deviceBytes, batch)) + " bytes";
  }
  return text.empty() ? "scratch  none\n" : text + "\n";
}

// The frames of a recurrent model come in files of any number of them.
std::string FramesText(const ModelDescription& description) {
  if (description.netType != int32_t{VORN_NET_RECURRENT} || description.inputs.empty()) return "";
  const TensorDescription& frames = description.inputs.front();
  const auto dense = frames.DenseBytes();
  if (!dense || frames.shape.empty() || frames.shape.front() <= 0) return "";
  const auto most = static_cast<uint64_t>(frames.shape.front());
  return "frames   input 0 takes 1 to " + std::to_string(most) + " of " +
         std::to_string(*dense / most) + " bytes each\n";
}

std::string RowLine(uint64_t row, uint64_t fileAt, uint64_t blockAt,
                    const TensorDescription& tensor) {
  const uint64_t rowBytes = *tensor.RowBytes();
  const uint64_t stride = *tensor.strideBytes;
  std::string line = "  row " + std::to_string(row);
  line.resize(std::max<size_t>(line.size(), 14), ' ');
  line += "file " + std::to_string(fileAt) + ".." + std::to_string(fileAt + rowBytes);
  line.resize(std::max<size_t>(line.size() + 2, 40), ' ');
  line += "block " + std::to_string(blockAt) + ".." + std::to_string(blockAt + rowBytes);
  if (stride > rowBytes) {
    line += ", padding to " + std::to_string(blockAt + stride);
  }
  return line + "\n";
}

}  // namespace

std::string DescribeModel(const ModelDescription& description, uint64_t batch) {
  std::string text = "model    " + IdentityText(description.model) + "\n";
  text += "network  " + (description.netType ? NetTypeName(*description.netType) : kUnknown) + "\n";
  if (description.runtime) text += "runtime  " + IdentityText(*description.runtime) + "\n";
  text += "batch    " + std::to_string(batch) + (batch == 1 ? " item" : " items") + "\n";
  text += FramesText(description);
  text += ScratchText(description.inputs, batch);
  return text + "\n" + TensorTable(description.inputs, true, batch) + "\n" +
         TensorTable(description.outputs, false, batch);
}

std::string DrawLayout(const TensorDescription& tensor, uint64_t batch) {
  const auto rowBytes = tensor.RowBytes();
  const auto rows = tensor.Rows();
  const auto fileBytes = Times(tensor.DenseBytes(), batch);
  const auto blockBytes = Times(tensor.deviceBytes, batch);
  if (!rowBytes || !rows || !fileBytes || !blockBytes) {
    throw Fault(ExitStatus::kModel, "the layout of '" + Printable(tensor.name) +
                                        "' is not known: its type, its stride or its size is "
                                        "missing, or too large");
  }
  const uint64_t stride = *tensor.strideBytes;
  std::string text = Printable(tensor.name) + ": " + ShapeText(tensor.shape) + " of " +
                     (tensor.type ? TypeName(*tensor.type) : kUnknown) + ", " +
                     std::to_string(*rows) + " rows of " + std::to_string(*rowBytes) + " bytes, " +
                     std::to_string(stride) + " apart\n";
  text += "dense (a file)  " + std::to_string(*fileBytes) + " bytes\n";
  text += "block           " + std::to_string(*blockBytes) + " bytes, of which " +
          std::to_string(*blockBytes - std::min(*blockBytes, *fileBytes)) + " are padding\n";
  for (uint64_t item = 0; item < batch; ++item) {
    if (item == 2 && batch > 3) {
      text += "item 2 to " + std::to_string(batch - 2) + "\n  ...\n";
      item = batch - 1;
    }
    text += "item " + std::to_string(item) + "\n";
    for (uint64_t row = 0; row < *rows; ++row) {
      if (row == 2 && *rows > 4) {
        text += "  ...\n";
        row = *rows - 1;
      }
      const uint64_t fileAt = item * *tensor.DenseBytes() + row * *rowBytes;
      text += RowLine(row, fileAt, item * *tensor.deviceBytes + row * stride, tensor);
    }
  }
  return text;
}

const TensorDescription& FindTensor(const ModelDescription& description, const std::string& name) {
  std::vector<std::string> names;
  for (const auto* tensors : {&description.inputs, &description.outputs}) {
    for (const TensorDescription& tensor : *tensors) {
      if (tensor.name == name) return tensor;
      names.push_back(tensor.name);
    }
  }
  std::string all;
  for (const std::string& known : names) all += (all.empty() ? "" : ", ") + Printable(known);
  throw Fault(ExitStatus::kUsage, "the model has no '" + Printable(name) + "'" +
                                      DidYouMean(name, names) + "; it has " + all);
}

}  // namespace vorn::kit
