// Names of codes, and sizes that follow from others.
#include "kit/model/model_description.h"

#include <array>

#include "vorn/vorn.h"

namespace vorn::kit {
namespace {

struct ElementType {
  uint32_t code;
  std::string_view name;
  uint64_t bits;
};

constexpr ElementType kElementTypes[] = {
    {VORN_FLOAT32, "float32", 32}, {VORN_FLOAT16, "float16", 16}, {VORN_INT8, "int8", 8},
    {VORN_INT32, "int32", 32},     {VORN_UINT8, "uint8", 8},      {VORN_UINT32, "uint32", 32},
    {VORN_INT16, "int16", 16},     {VORN_UINT16, "uint16", 16},   {VORN_INT64, "int64", 64},
    {VORN_UINT64, "uint64", 64},   {VORN_FLOAT64, "float64", 64}, {VORN_BOOL, "bool", 8},
};

constexpr uint64_t kThresholdKinds = 4;
constexpr size_t kScratchInputs = 2;

const ElementType* FindType(uint32_t code) {
  for (const ElementType& type : kElementTypes) {
    if (type.code == code) return &type;
  }
  return nullptr;
}

std::optional<uint64_t> Multiplied(std::optional<uint64_t> value, uint64_t factor) {
  uint64_t product = 0;
  if (!value || __builtin_mul_overflow(*value, factor, &product)) return std::nullopt;
  return product;
}

std::optional<uint64_t> ElementBytes(const TensorDescription& tensor) {
  if (!tensor.elementBits || *tensor.elementBits % 8 != 0) return std::nullopt;
  return *tensor.elementBits / 8;
}

bool LooksLikeThresholds(const TensorDescription& tensor) {
  if (tensor.type != uint32_t{VORN_FLOAT32} || tensor.shape.size() != 2) return false;
  const bool isOfOneClass = tensor.shape[0] == 1 && tensor.shape[1] == kThresholdKinds;
  return isOfOneClass || tensor.shape[0] == kThresholdKinds;
}

}  // namespace

std::optional<uint64_t> TensorDescription::RowBytes() const {
  if (shape.empty() || shape.back() < 0) return std::nullopt;
  return Multiplied(ElementBytes(*this), static_cast<uint64_t>(shape.back()));
}

std::optional<uint64_t> TensorDescription::DenseBytes() const {
  std::optional<uint64_t> bytes = ElementBytes(*this);
  for (const int64_t dimension : shape) {
    if (dimension < 0) return std::nullopt;
    bytes = Multiplied(bytes, static_cast<uint64_t>(dimension));
  }
  return bytes;
}

std::optional<uint64_t> TensorDescription::Rows() const {
  if (!deviceBytes || !strideBytes || *strideBytes == 0) return std::nullopt;
  return *deviceBytes / *strideBytes;
}

std::string TypeName(uint32_t type) {
  const ElementType* known = FindType(type);
  return known != nullptr ? std::string(known->name) : "type " + std::to_string(type);
}

std::optional<uint64_t> BitsOfType(uint32_t type) {
  const ElementType* known = FindType(type);
  return known != nullptr ? std::optional(known->bits) : std::nullopt;
}

std::string FormatName(int32_t format) {
  switch (format) {
    case VORN_FORMAT_NCHW:
      return "NCHW";
    case VORN_FORMAT_NHWC:
      return "NHWC";
    case VORN_FORMAT_ND:
      return "ND";
    default:
      return "format " + std::to_string(format);
  }
}

std::string NetTypeName(int32_t netType) {
  switch (netType) {
    case VORN_NET_FEED_FORWARD:
      return "feed-forward";
    case VORN_NET_DETECTION:
      return "detection";
    case VORN_NET_RECURRENT:
      return "recurrent";
    default:
      return "net type " + std::to_string(netType);
  }
}

std::string_view RoleName(TensorRole role) {
  constexpr std::array<std::string_view, 5> kNames{"data", "thresholds", "task", "work", "output"};
  return kNames[static_cast<size_t>(role)];
}

std::string ShapeText(const std::vector<int64_t>& shape) {
  std::string text;
  for (const int64_t dimension : shape) {
    if (!text.empty()) text += 'x';
    text += std::to_string(dimension);
  }
  return text;
}

void AssignRoles(ModelDescription& description) {
  auto& inputs = description.inputs;
  const bool isDetection = description.netType == int32_t{VORN_NET_DETECTION};
  for (size_t i = 0; i < inputs.size(); ++i) {
    const size_t behind = inputs.size() - 1 - i;
    if (behind < kScratchInputs) {
      inputs[i].role = behind == 0 ? TensorRole::kWork : TensorRole::kTask;
    } else if (isDetection && i > 0 && LooksLikeThresholds(inputs[i])) {
      inputs[i].role = TensorRole::kThresholds;
    } else {
      inputs[i].role = TensorRole::kData;
    }
  }
  for (TensorDescription& output : description.outputs) output.role = TensorRole::kOutput;
}

}  // namespace vorn::kit
