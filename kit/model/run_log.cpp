// The lines in question:
//
//     [INFO]  batchSize: 2                                           where it was given
//     [INFO]  load model /data/model.om success
//     [INFO]  ------------------ Input Info ------------------
//     [INFO]  Input index: 0, name: image
//     [INFO]  Shape: [1, 3, 224, 224, ]
//     [INFO]  DataType: 4, stride: 224, format: 0, dataSizeWithStride: 150528
//     [INFO]  ------------------ Output Info ------------------
//     [INFO]  Output index: 0, name: scores                          and so on
#include "kit/model/run_log.h"

#include <charconv>
#include <string>

#include "kit/common/fault.h"
#include "kit/common/printable.h"

namespace vorn::kit {
namespace {

constexpr std::string_view kInfo = "[INFO]  ";

// Takes `token` off the front of a line.
bool Take(std::string_view& line, std::string_view token) {
  if (!line.starts_with(token)) return false;
  line.remove_prefix(token.size());
  return true;
}

template <typename Number>
bool TakeNumber(std::string_view& line, Number& number) {
  const auto [stop, error] = std::from_chars(line.data(), line.data() + line.size(), number);
  if (error != std::errc{}) return false;
  line.remove_prefix(static_cast<size_t>(stop - line.data()));
  return true;
}

bool TakeLayout(std::string_view line, TensorDescription& tensor) {
  int32_t type = 0;
  int32_t format = 0;
  uint64_t stride = 0;
  uint64_t size = 0;
  const bool isWhole =
      Take(line, "DataType: ") && TakeNumber(line, type) && Take(line, ", stride: ") &&
      TakeNumber(line, stride) && Take(line, ", format: ") && TakeNumber(line, format) &&
      Take(line, ", dataSizeWithStride: ") && TakeNumber(line, size) && line.empty();
  if (!isWhole) return false;
  tensor.type = static_cast<uint32_t>(type);
  tensor.elementBits = BitsOfType(*tensor.type);
  tensor.format = format;
  tensor.strideBytes = stride;
  tensor.deviceBytes = size;
  return true;
}

bool TakeShape(std::string_view line, std::vector<int64_t>& shape) {
  if (!Take(line, "Shape: [")) return false;
  while (!line.empty() && line != "]") {
    int64_t dimension = 0;
    if (!TakeNumber(line, dimension) || !Take(line, ", ")) return false;
    shape.push_back(dimension);
  }
  return line == "]";
}

class Reader {
 public:
  explicit Reader(std::string_view log) : rest_(log) {}

  ModelDescription Read() {
    ReadFront();
    while (ReadTensor("Input index: ", description_.inputs)) {
    }
    if (line_ != "------------------ Output Info ------------------") {
      Refuse("it has no line 'Output Info' behind the inputs");
    }
    NextLine();
    while (ReadTensor("Output index: ", description_.outputs)) {
    }
    DivideByBatch();
    AssignRoles(description_);
    return std::move(description_);
  }

 private:
  [[noreturn]] void Refuse(const std::string& reason) const {
    throw Fault(ExitStatus::kInput,
                "line " + std::to_string(number_) + " of the log: " + reason +
                    "; it should hold all that vorn-run printed, from its first line on");
  }

  // The next line of vorn-run's own, without what stands before it. False behind the last.
  bool NextLine() {
    while (!rest_.empty()) {
      ++number_;
      line_ = rest_.substr(0, rest_.find('\n'));
      rest_.remove_prefix(std::min(rest_.size(), line_.size() + 1));
      while (!line_.empty() && line_.back() == '\r') line_.remove_suffix(1);
      const size_t info = line_.find(kInfo);
      if (info == std::string_view::npos) continue;
      line_.remove_prefix(info + kInfo.size());
      return true;
    }
    line_ = {};
    return false;
  }

  void ReadFront() {
    while (NextLine()) {
      std::string_view line = line_;
      if (Take(line, "batchSize: ")) {
        if (!TakeNumber(line, batch_) || batch_ == 0) Refuse("the batch size is no number");
      } else if (Take(line, "load model ") && line.ends_with(" success")) {
        description_.model.path = line.substr(0, line.size() - std::string_view(" success").size());
      } else if (line == "------------------ Input Info ------------------") {
        NextLine();
        return;
      }
    }
    throw Fault(ExitStatus::kInput,
                "there is no line 'Input Info' in " + std::to_string(number_) +
                    " lines of the log: vorn-run prints it once it has loaded a model");
  }

  bool ReadTensor(std::string_view title, std::vector<TensorDescription>& tensors) {
    std::string_view line = line_;
    if (!Take(line, title)) return false;
    size_t index = 0;
    if (!TakeNumber(line, index) || !Take(line, ", name: ")) {
      Refuse("'" + PrintableExcerpt(line_) + "' names no tensor");
    }
    if (index != tensors.size()) {
      Refuse("index " + std::to_string(index) + " where " + std::to_string(tensors.size()) +
             " is next");
    }
    TensorDescription tensor;
    tensor.name = line;
    NextLine();
    if (!TakeShape(line_, tensor.shape)) Refuse("'" + PrintableExcerpt(line_) + "' is no shape");
    NextLine();
    if (!TakeLayout(line_, tensor))
      Refuse("'" + PrintableExcerpt(line_) + "' is no type and stride");
    NextLine();
    tensors.push_back(std::move(tensor));
    return true;
  }

  void DivideByBatch() {
    for (auto* tensors : {&description_.inputs, &description_.outputs}) {
      for (TensorDescription& tensor : *tensors) {
        if (*tensor.deviceBytes % batch_ != 0) {
          Refuse("the size of '" + PrintableExcerpt(tensor.name) + "', " +
                 std::to_string(*tensor.deviceBytes) + ", is no multiple of the batch, " +
                 std::to_string(batch_));
        }
        tensor.deviceBytes = *tensor.deviceBytes / batch_;
      }
    }
  }

  std::string_view rest_;
  std::string_view line_;
  size_t number_ = 0;
  uint32_t batch_ = 1;
  ModelDescription description_;
};

}  // namespace

ModelDescription ReadRunLog(std::string_view log) { return Reader(log).Read(); }

}  // namespace vorn::kit
