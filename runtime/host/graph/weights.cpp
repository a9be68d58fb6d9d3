// Fields of a tensor: 1 dims, 4 floats, 9 raw bytes, which stand instead of the floats.
#include "host/graph/weights.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "host/graph/rounding.h"

namespace vorn::host {
namespace {

constexpr uint32_t kFloats = 4;
constexpr uint32_t kRaw = 9;

/// Inputs that a device keeps in more than 8 bits, from the first one on.
struct Untouched {
  std::string_view op;
  size_t first;
};

constexpr Untouched kUntouchedInputs[] = {
    {"BatchNormalization", 1},
    {"Conv", 2},
    {"ConvTranspose", 2},
    {"GRU", 3},
    {"Gemm", 2},
    {"GroupNormalization", 1},
    {"InstanceNormalization", 1},
    {"LSTM", 3},
    {"LayerNormalization", 1},
    {"RNN", 3},
};

WeightScheme PerChannel(size_t axis) { return {.kind = WeightScheme::kPerChannel, .axis = axis}; }

/// Rounds by a grid for each index of the axis.
void RoundChannels(size_t axis, std::span<const int64_t> dims, std::vector<float>& floats) {
  size_t inner = 1;
  for (size_t i = axis + 1; i < dims.size(); ++i) inner *= static_cast<size_t>(dims[i]);
  const auto channels = static_cast<size_t>(dims[axis]);
  std::vector<float> channel;
  for (size_t c = 0; c < channels; ++c) {
    channel.clear();
    for (size_t at = c * inner; at < floats.size(); at += channels * inner) {
      channel.insert(channel.end(), floats.begin() + static_cast<std::ptrdiff_t>(at),
                     floats.begin() + static_cast<std::ptrdiff_t>(at + inner));
    }
    const Grid grid = SymmetricGridFor(channel);
    for (size_t at = c * inner; at < floats.size(); at += channels * inner) {
      RoundToGrid(grid, &floats[at], &floats[at], inner);
    }
  }
}

}  // namespace

WeightScheme SchemeOf(const GraphNode& node, size_t index, size_t rank) {
  if (!node.domain.empty()) return {};
  const auto untouched = std::ranges::find(kUntouchedInputs, node.op, &Untouched::op);
  if (untouched != std::end(kUntouchedInputs) && index >= untouched->first) {
    return {.kind = WeightScheme::kUntouched, .axis = 0};
  }
  if (index != 1 || rank < 2) return {};
  if (node.op == "Conv") return PerChannel(0);
  if (node.op == "ConvTranspose" && IntAttributeOf(node, "group", 1) == 1) return PerChannel(1);
  if (node.op == "Gemm") return PerChannel(IntAttributeOf(node, "transB", 0) != 0 ? 0 : 1);
  if (node.op == "MatMul") return PerChannel(rank - 1);
  return {};
}

WeightScheme Common(const WeightScheme& a, const WeightScheme& b) {
  if (a == b || b.kind == WeightScheme::kUntouched) return a;
  if (a.kind == WeightScheme::kUntouched) return b;
  return {};
}

std::optional<std::vector<float>> FloatsOf(const FileTensor& tensor) {
  if (tensor.type != kFileFloat) return std::nullopt;
  std::string bytes;
  bool isRaw = false;
  FieldReader reader(tensor.message);
  while (const std::optional<Field> field = reader.Next()) {
    if (field->number == kRaw && field->wireType == kLength) {
      bytes = TextOf(field->bytes);
      isRaw = true;
    } else if (field->number == kFloats && field->wireType == kLength && !isRaw) {
      bytes += TextOf(field->bytes);
    } else if (field->number == kFloats && field->wireType == kFixed32 && !isRaw) {
      bytes += TextOf(field->whole.last(sizeof(float)));
    }
  }
  // Divided and not multiplied, which could come out right by chance.
  size_t left = bytes.size() / sizeof(float);
  for (const int64_t dim : tensor.dims) {
    if (dim <= 0 || left % static_cast<uint64_t>(dim) != 0) return std::nullopt;
    left /= static_cast<size_t>(dim);
  }
  if (left != 1 || bytes.size() % sizeof(float) != 0) return std::nullopt;
  std::vector<float> floats(bytes.size() / sizeof(float));
  std::memcpy(floats.data(), bytes.data(), bytes.size());
  return floats;
}

std::string WithFloats(const FileTensor& tensor, std::span<const float> floats) {
  MessageWriter changed;
  FieldReader reader(tensor.message);
  while (const std::optional<Field> field = reader.Next()) {
    if (field->number != kFloats && field->number != kRaw) changed.Copy(field->whole);
  }
  return changed.Text(kRaw, TextOf(std::as_bytes(floats))).Take();
}

void RoundWeight(Rounding rounding, const WeightScheme& scheme, std::span<const int64_t> dims,
                 std::vector<float>& floats) {
  float* const values = floats.data();
  switch (rounding) {
    case Rounding::kNone:
      return;
    case Rounding::kToFloat16:
      return RoundToFloat16(values, values, floats.size());
    case Rounding::kToBfloat16:
      return RoundToBfloat16(values, values, floats.size());
    case Rounding::kToInt8:
      break;
  }
  if (scheme.kind == WeightScheme::kPerChannel) return RoundChannels(scheme.axis, dims, floats);
  if (scheme.kind == WeightScheme::kUntouched) return;
  RoundToGrid(SymmetricGridFor(floats), values, values, floats.size());
}

}  // namespace vorn::host
