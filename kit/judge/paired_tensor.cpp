#include "kit/judge/paired_tensor.h"

#include <algorithm>

#include "kit/common/fault.h"
#include "kit/common/printable.h"

namespace vorn::kit {
namespace {

const TensorDescription* Describe(const ModelDescription* model, const std::string& name) {
  if (model == nullptr) return nullptr;
  // The second output of a name has "#1" behind it.
  std::vector<std::string> seen;
  for (const TensorDescription& output : model->outputs) {
    const std::string spelled = SpelledAsDump(output.name.empty() ? "output" : output.name);
    const auto number = std::count(seen.begin(), seen.end(), spelled);
    seen.push_back(spelled);
    if ((number == 0 ? spelled : spelled + "#" + std::to_string(number)) == name) return &output;
  }
  return nullptr;
}

bool IsDumpFile(const std::string& path) {
  return !path.ends_with(".npy") && !path.ends_with(".npz") && !path.ends_with(".pb");
}

// Makes of a dump's floats what the model's type says that they are.
void Interpret(StoredTensor& tensor, ElementType type, const std::string& name) {
  const std::string what = "the output '" + Printable(name) + "' is of " +
                           std::string(ElementName(type)) + ", and a dump ";
  switch (type) {
    case ElementType::kFloat16:
      tensor.bits = StoredTensor::Bits::kFloat16;
      return;
    case ElementType::kBfloat16:
      tensor.bits = StoredTensor::Bits::kBfloat16;
      return;
    case ElementType::kInt32:
    case ElementType::kUint32:
      if (tensor.isText) {
        throw NotJudgeable(what + "as text shows its bits as a float; give the .bin, or a capture");
      }
      tensor.type = type;
      return;
    case ElementType::kInt64:
    case ElementType::kUint64:
    case ElementType::kFloat64:
    case ElementType::kBool:
      throw NotJudgeable(what +
                         "does not hold such values; take them from a capture, or let the "
                         "model give float32");
    default:
      return;
  }
}

// The shape of one item, repeated until there are as many elements.
std::optional<Shape> BatchOf(const std::vector<int64_t>& item, uint64_t elements) {
  Shape shape;
  for (const int64_t size : item) {
    if (size <= 0) return std::nullopt;
    shape.push_back(static_cast<uint64_t>(size));
  }
  const auto one = CountElements(shape);
  if (shape.empty() || !one || elements == 0 || elements % *one != 0) return std::nullopt;
  const uint64_t items = elements / *one;
  if (items == 1) return shape;
  if (shape.front() == 1) {
    shape.front() = items;
  } else {
    shape.insert(shape.begin(), items);
  }
  return shape;
}

// Finds the channels of which the map gives scales.
void PlaceChannels(const std::string& name, ReadableTensor& tensor) {
  Quantisation& quantisation = tensor.quantisation;
  const std::string front = "the map gives '" + Printable(name) + "' " +
                            Counted(quantisation.scales.size(), "scale") + " along axis " +
                            std::to_string(quantisation.axis) + ", and ";
  if (!tensor.stored.shape) {
    throw Fault(ExitStatus::kInput, front + "its shape is not known; give it as \"shape\"");
  }
  const Shape& shape = *tensor.stored.shape;
  if (quantisation.axis >= shape.size() || shape[quantisation.axis] != quantisation.scales.size()) {
    throw Fault(ExitStatus::kInput, front + "it is " + TextOf(shape));
  }
  quantisation.stride = ElementOrder::Of(tensor.stored).strides[quantisation.axis];
}

}  // namespace

uint64_t ReadableTensor::Elements() const { return CountElements(order.shape).value_or(0); }

ReadableTensor OpenSide(const OutputPlace& place, const MappedSide* side,
                        const ModelDescription* model) {
  ReadableTensor tensor;
  tensor.stored = ReadingTensors([&] { return OpenTensor(place); });
  tensor.type = tensor.stored.type;
  const TensorDescription* described = Describe(model, place.name);
  if (IsDumpFile(place.path)) {
    if (side != nullptr && side->type) {
      tensor.type = *side->type;
    } else if (described != nullptr && described->type) {
      tensor.type = ElementOfCode(*described->type).value_or(tensor.type);
    }
    Interpret(tensor.stored, tensor.type, place.name);
    if (described != nullptr && !tensor.stored.shape) {
      tensor.stored.shape = BatchOf(described->shape, tensor.stored.elements);
    }
  }
  if (side != nullptr && side->shape) {
    if (CountElements(*side->shape) != tensor.stored.elements) {
      throw Fault(ExitStatus::kInput, "the map says that '" + Printable(side->name) + "' is " +
                                          TextOf(*side->shape) + ", and '" + Printable(place.path) +
                                          "' has " + std::to_string(tensor.stored.elements) +
                                          " elements");
    }
    tensor.stored.shape = side->shape;
  }
  if (side != nullptr && side->quantisation) {
    tensor.quantisation = *side->quantisation;
    if (!tensor.quantisation.scales.empty()) PlaceChannels(side->name, tensor);
  }
  tensor.hasShape = tensor.stored.shape.has_value();
  tensor.order = ElementOrder::Of(tensor.stored);
  return tensor;
}

std::optional<uint64_t> ItemsIn(const ReadableTensor& stacked, uint64_t itemElements) {
  const Shape& shape = stacked.order.shape;
  if (itemElements == 0 || shape.empty() || stacked.Elements() % itemElements != 0) {
    return std::nullopt;
  }
  const uint64_t items = stacked.Elements() / itemElements;
  if (items == 0 || shape.front() % items != 0) return std::nullopt;
  return items;
}

ReadableTensor ItemOf(const ReadableTensor& stacked, uint64_t item, uint64_t items) {
  const uint64_t rows = stacked.order.shape.front() / items;
  ReadableTensor one = stacked;
  one.order.first += item * rows * one.order.strides.front();
  one.order.shape.front() = rows;
  return one;
}

void Align(const MappedOutput& mapped, ReadableTensor& expected, const std::string& name) {
  const std::string what = "the map of '" + Printable(name) + "'";
  if (!mapped.order.empty()) {
    if (mapped.order.size() != expected.order.shape.size()) {
      throw Fault(ExitStatus::kInput,
                  what + " has an order of " + std::to_string(mapped.order.size()) +
                      " dimensions, and the expected tensor is " + TextOf(expected.order.shape));
    }
    expected.order = expected.order.Permuted(mapped.order);
  } else if (!mapped.expected.layout.empty()) {
    if (!expected.hasShape) {
      throw Fault(ExitStatus::kInput,
                  what +
                      " has layouts, and the shape of the expected tensor is not known; give "
                      "it as \"shape\"");
    }
    expected.order =
        BroughtIntoLayout(expected.order, mapped.expected.layout, mapped.actual.layout, what);
  }
}

}  // namespace vorn::kit
