// Two walks over a graph: with its arrows for data, against them for parameters.
#include "host/graph/dependence.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

namespace vorn::host {
namespace {

constexpr size_t kAndAllBehind = 32;

/// Inputs of an operator that say how it works, as bits; `kAndAllBehind` stands for those from the
/// last one on.
struct Parameters {
  std::string_view op;
  uint32_t inputs;
};

constexpr uint32_t Bits(auto... indices) { return ((1U << indices) | ...); }

constexpr Parameters kParameters[] = {
    {"AffineGrid", Bits(1)},
    {"BitShift", Bits(1)},
    {"BlackmanWindow", Bits(0)},
    {"CenterCropPad", Bits(1)},
    {"Col2Im", Bits(1, 2)},
    {"Compress", Bits(1)},
    {"ConstantOfShape", Bits(0)},
    {"CumSum", Bits(1)},
    {"DFT", Bits(1, 2)},
    {"DequantizeLinear", Bits(1, 2)},
    {"Dropout", Bits(1, 2)},
    {"Expand", Bits(1)},
    {"HammingWindow", Bits(0)},
    {"HannWindow", Bits(0)},
    {"MaxUnpool", Bits(2)},
    {"MelWeightMatrix", Bits(0, 1, 2, 3, 4)},
    {"NonMaxSuppression", Bits(2, 3, 4)},
    {"OneHot", Bits(1)},
    {"Pad", Bits(1, 3)},
    {"QLinearConv", Bits(1, 2, 4, 5, 6, 7)},
    {"QLinearMatMul", Bits(1, 2, 4, 5, 6, 7)},
    {"QuantizeLinear", Bits(1, 2)},
    {"Range", Bits(0, 1, 2)},
    {"ReduceL1", Bits(1)},
    {"ReduceL2", Bits(1)},
    {"ReduceLogSum", Bits(1)},
    {"ReduceLogSumExp", Bits(1)},
    {"ReduceMax", Bits(1)},
    {"ReduceMean", Bits(1)},
    {"ReduceMin", Bits(1)},
    {"ReduceProd", Bits(1)},
    {"ReduceSum", Bits(1)},
    {"ReduceSumSquare", Bits(1)},
    {"Reshape", Bits(1)},
    {"Resize", Bits(1, 2, 3)},
    {"STFT", Bits(1, 3)},
    {"Slice", Bits(1, 2, 3, 4)},
    {"Split", Bits(1)},
    {"SplitToSequence", Bits(1)},
    {"Squeeze", Bits(1)},
    {"Tile", Bits(1)},
    {"TopK", Bits(1)},
    {"Trilu", Bits(1)},
    {"Unsqueeze", Bits(1)},
    {"Upsample", Bits(1)},
};

/// Operators whose results have as many elements as the values decide.
constexpr std::string_view kShapedByData[] = {"Compress", "NonMaxSuppression", "NonZero", "Unique"};

/// Operators that make numbers of a shape alone.
bool ReadsShapesOnly(const GraphNode& node) {
  return node.domain.empty() && (node.op == "Shape" || node.op == "Size");
}

/// Whether nothing is known of how shapes of results come to be.
bool IsOpaque(const GraphNode& node) { return !node.domain.empty() || !node.captured.empty(); }

bool HasBodies(const GraphNode& node) {
  return node.op == "If" || node.op == "Loop" || node.op == "Scan" || node.op == "SequenceMap";
}

bool AnyOf(const auto& names, const std::set<std::string_view>& set) {
  return std::ranges::any_of(names, [&](std::string_view name) { return set.contains(name); });
}

bool IsShapeFromData(const GraphNode& node, const Dependence& so) {
  const bool isOnData = AnyOf(node.inputs, so.onData) || AnyOf(node.captured, so.onData);
  if (AnyOf(node.inputs, so.shapeOnData) || AnyOf(node.captured, so.shapeOnData)) return true;
  if (IsOpaque(node) || HasBodies(node)) return isOnData;
  if (isOnData && std::ranges::find(kShapedByData, node.op) != std::end(kShapedByData)) return true;
  for (size_t i = 0; i < node.inputs.size(); ++i) {
    if (IsParameter(node, i) && so.onData.contains(node.inputs[i])) return true;
  }
  return false;
}

bool InsertAll(const std::vector<std::string_view>& names, std::set<std::string_view>& set) {
  bool isNew = false;
  for (const std::string_view name : names) {
    if (!name.empty()) isNew |= set.insert(name).second;
  }
  return isNew;
}

/// One pass; true if it found anything new. A file has its nodes in an order in which one pass
/// finds all and a second one finds nothing, but it need not.
bool Extend(const OnnxGraph& graph, Dependence& so) {
  bool isNew = false;
  for (const GraphNode& node : graph.nodes) {
    const bool isOnShape = AnyOf(node.inputs, so.shapeOnData);
    const bool isOnData = AnyOf(node.inputs, so.onData) || AnyOf(node.captured, so.onData);
    if (ReadsShapesOnly(node)) {
      if (isOnShape) isNew |= InsertAll(node.outputs, so.onData);
      continue;
    }
    if (isOnData) isNew |= InsertAll(node.outputs, so.onData);
    if (IsShapeFromData(node, so)) {
      isNew |= InsertAll(node.outputs, so.shapeOnData);
      isNew |= InsertAll(node.outputs, so.onData);
    }
  }
  return isNew;
}

}  // namespace

bool IsParameter(const GraphNode& node, size_t index) {
  if (!node.domain.empty() || index >= kAndAllBehind) return false;
  const auto found = std::ranges::find(kParameters, node.op, &Parameters::op);
  return found != std::end(kParameters) && (found->inputs >> index & 1U) != 0;
}

Dependence DependenceOf(const OnnxGraph& graph) {
  Dependence so;
  for (const std::string_view input : graph.inputs) {
    if (!graph.IsInitializer(input)) so.onData.insert(input);
  }
  while (Extend(graph, so)) {
  }
  for (const GraphNode& node : graph.nodes) {
    for (size_t i = 0; i < node.inputs.size(); ++i) {
      so.isSteeredByData |= IsParameter(node, i) && so.onData.contains(node.inputs[i]);
    }
  }
  return so;
}

std::set<std::string_view> ParametersOf(const OnnxGraph& graph) {
  // First all that are read as data, by nodes of which something is.
  std::set<std::string_view> data(graph.outputs.begin(), graph.outputs.end());
  for (bool isNew = true; isNew;) {
    isNew = false;
    for (auto node = graph.nodes.rbegin(); node != graph.nodes.rend(); ++node) {
      // A body may do anything with what it reads.
      for (const std::string_view name : node->captured) isNew |= data.insert(name).second;
      if (!AnyOf(node->outputs, data)) continue;
      for (size_t i = 0; i < node->inputs.size(); ++i) {
        if (!IsParameter(*node, i)) isNew |= data.insert(node->inputs[i]).second;
      }
    }
  }
  std::set<std::string_view> parameters;
  for (const GraphNode& node : graph.nodes) {
    for (const std::string_view name : node.inputs) {
      if (!data.contains(name)) parameters.insert(name);
    }
  }
  parameters.erase("");
  return parameters;
}

}  // namespace vorn::host
