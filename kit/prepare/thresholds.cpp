#include "kit/prepare/thresholds.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>

#include "kit/common/fault.h"
#include "kit/common/nearest.h"
#include "kit/common/printable.h"
#include "kit/json/json_members.h"
#include "kit/model/model_text.h"

namespace vorn::kit {
namespace {

constexpr int64_t kThresholdKinds = 4;
constexpr int64_t kMostClasses = std::numeric_limits<int32_t>::max();
constexpr size_t kScratchInputs = 2;

[[noreturn]] void RefuseModel(const TensorDescription& input, const std::string& reason) {
  throw Fault(ExitStatus::kModel, "the input of thresholds " + Quoted(input.name) + " is " +
                                      ShapeText(input.shape) + reason);
}

// vorn-run holds each file to the last input before the buffers, whichever it is for.
void HoldToShapes(const ModelDescription& model,
                  const std::vector<const TensorDescription*>& inputs) {
  const size_t dataInputs = model.inputs.size() - std::min(model.inputs.size(), kScratchInputs);
  for (const TensorDescription* input : inputs) {
    const std::vector<int64_t>& shape = input->shape;
    const bool isSingle = shape == std::vector<int64_t>{1, kThresholdKinds};
    const bool hasClasses = shape.size() == 2 && shape[0] == kThresholdKinds && shape[1] > 0 &&
                            shape[1] <= kMostClasses;
    if (!isSingle && !hasClasses) {
      RefuseModel(*input, ", and vorn-run takes thresholds for 1x4 or, with several classes, 4xN");
    }
    if (dataInputs == 0) continue;
    const TensorDescription& last = model.inputs[dataInputs - 1];
    if (last.shape != shape) {
      RefuseModel(*input, ", and vorn-run holds all thresholds to the shape of " +
                              Quoted(last.name) + ", " + ShapeText(last.shape));
    }
  }
}

float FloatOf(const Json& number, const std::string& what) {
  const double value = number.AsNumber();
  // Also of NaN.
  if (!(std::abs(value) <= static_cast<double>(std::numeric_limits<float>::max()))) {
    throw JsonError(what + " have " + ShownValue(number) +
                    ", which vorn-run does not read; give a finite float32");
  }
  return static_cast<float>(value);
}

void TakeRow(const Json& row, const std::string& what, std::vector<float>& values) {
  for (const Json& number : row.Items()) values.push_back(FloatOf(number, what));
}

std::vector<float> NumbersFor(const TensorDescription& input, const Json& numbers) {
  const std::string what = "the thresholds of " + Quoted(input.name);
  std::vector<float> values;
  const std::vector<Json>& items = numbers.Items();
  const bool areRows = !items.empty() && items.front().IsArray();
  if (!areRows) {
    TakeRow(numbers, what, values);
  } else {
    for (const Json& row : items) {
      TakeRow(row, what, values);
      if (row.Items().size() != static_cast<uint64_t>(input.shape[1])) {
        throw JsonError(what + " have a list of " + Counted(row.Items().size(), "number") +
                        ", and each has to have " + std::to_string(input.shape[1]));
      }
    }
  }
  const auto wanted = static_cast<uint64_t>(input.shape[0] * input.shape[1]);
  if (values.size() != wanted) {
    throw JsonError(what + " are " + Counted(values.size(), "number") + ", and " +
                    ShapeText(input.shape) + " takes " + std::to_string(wanted));
  }
  return values;
}

void HoldToNames(const Json& object, const std::vector<const TensorDescription*>& inputs) {
  std::vector<std::string> names;
  for (const TensorDescription* input : inputs) names.push_back(input->name);
  for (const auto& [name, numbers] : object.Members()) {
    if (std::find(names.begin(), names.end(), name) != names.end()) continue;
    throw JsonError("the model has no input of thresholds " + Quoted(name) +
                    (names.empty() ? "; it takes none" : DidYouMean(name, names)));
  }
}

}  // namespace

std::string ThresholdText(std::span<const float> values, uint64_t columns) {
  std::string text;
  for (size_t i = 0; i < values.size(); ++i) {
    if (i > 0) text += i % columns == 0 ? '\n' : ' ';
    std::array<char, 32> digits{};
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), values[i]).ptr;
    text.append(digits.data(), end);
  }
  return text;
}

std::vector<ThresholdFile> MakeThresholds(const Json& object, const ModelDescription& model) {
  std::vector<const TensorDescription*> inputs;
  for (const TensorDescription& input : model.inputs) {
    if (input.role == TensorRole::kThresholds) inputs.push_back(&input);
  }
  HoldToNames(object, inputs);
  HoldToShapes(model, inputs);
  std::vector<ThresholdFile> files;
  for (const TensorDescription* input : inputs) {
    const Json* numbers = object.Find(input->name);
    if (numbers == nullptr) {
      throw JsonError("there are no thresholds for the input " + Quoted(input->name) + " (" +
                      ShapeText(input->shape) + "), and vorn-run needs a file for each");
    }
    const std::vector<float> values = NumbersFor(*input, *numbers);
    files.push_back({input->name, ThresholdText(values, static_cast<uint64_t>(input->shape[1]))});
  }
  return files;
}

}  // namespace vorn::kit
