// Which tensors are rounded and how, and the nodes that do it.
#include "host/graph/round_results.h"

#include <algorithm>
#include <bit>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <utility>
#include <vector>

#include "host/common/excerpt.h"
#include "host/common/failure.h"
#include "host/graph/dependence.h"
#include "host/graph/rounding.h"
#include "host/graph/short_name.h"
#include "host/graph/weights.h"

namespace vorn::host {
namespace {

/// Operators that hand on values of their first input as they are. What has been rounded stays so.
constexpr std::string_view kMovers[] = {
    "DepthToSpace", "Dropout",  "Expand",  "Flatten",   "Gather",    "GatherElements",
    "GatherND",     "Identity", "MaxPool", "Reshape",   "Slice",     "SpaceToDepth",
    "Split",        "Squeeze",  "Tile",    "Transpose", "Unsqueeze",
};

/// Operators whose sums are 32 bits wide on a device until the operation is done.
constexpr std::string_view kSums[] = {"Conv", "ConvTranspose", "Gemm", "MatMul"};

/// What compilers let an operation end with: it cuts values off, or scales those below zero.
constexpr std::string_view kEnds[] = {"Clip", "LeakyRelu", "Relu"};

bool IsOneOf(const GraphNode& node, std::span<const std::string_view> ops) {
  return node.domain.empty() && std::ranges::find(ops, node.op) != ops.end();
}

bool Is(const GraphNode& node, std::string_view op) { return IsOneOf(node, {&op, 1}); }

std::string FloatAttribute(std::string_view name, float value) {
  // A number of 4 bytes in field 2, and the type of the attribute in field 20.
  std::string text = MessageWriter().Text(1, name).Take();
  text += static_cast<char>(2 << 3 | WireType::kFixed32);
  const auto bits = std::bit_cast<uint32_t>(value);
  for (unsigned byte = 0; byte < sizeof(bits); ++byte) {
    text += static_cast<char>(bits >> (8 * byte) & 0xffU);
  }
  return text + MessageWriter().Varint(20, 1).Take();
}

std::string RoundingNode(std::string_view op, std::string_view from, std::string_view to,
                         const std::vector<std::string>& attributes = {}) {
  MessageWriter node;
  node.Text(1, from).Text(2, to).Text(4, op).Text(7, kRoundingDomain);
  for (const std::string& attribute : attributes) node.Text(5, attribute);
  return node.Take();
}

const char* NameOf(Rounding rounding) {
  switch (rounding) {
    case Rounding::kNone:
      break;
    case Rounding::kToFloat16:
      return "float16";
    case Rounding::kToBfloat16:
      return "bfloat16";
    case Rounding::kToInt8:
      return "int8";
  }
  return "";
}

class Rounder {
 public:
  Rounder(OnnxGraph& graph, const ModelSettings& settings,
          const std::function<bool(std::string_view)>& isFloat,
          const std::set<std::string_view>& exposed)
      : graph_(graph), settings_(settings), isFloat_(isFloat), exposed_(exposed) {
    parameters_ = ParametersOf(graph);
    for (GraphNode& node : graph.nodes) {
      for (size_t i = 0; i < node.inputs.size(); ++i) {
        // Read as both, it stays as it is: another factor would make another shape.
        if (IsParameter(node, i)) parameters_.insert(node.inputs[i]);
        readers_[node.inputs[i]].emplace_back(&node, i);
      }
    }
    onData_ = DependenceOf(graph).onData;
    if (IsInt8() && settings.isFused) FindFused();
  }

  std::string Round() {
    RoundInitializers();
    RequireRanges();
    RoundInputs();
    for (GraphNode& node : graph_.nodes) RoundNode(node);
    graph_.UseDomain(kRoundingDomain);
    std::string done =
        Join("rounded ", Counted(weights_, "weight"), ", ", Counted(inputs_, "input"), " and ",
             Counted(results_, "result"), " to ", NameOf(settings_.round));
    if (fused_.empty()) return done;
    return Join(done, ", and ", fused_.size(), " fused with what reads ",
                fused_.size() == 1 ? "it" : "them");
  }

 private:
  bool IsInt8() const { return settings_.round == Rounding::kToInt8; }

  // ---- What is one operation on a device --------------------------------------------------------

  /// Results that their only reader takes before they are rounded.
  void FindFused() {
    std::set<std::string_view> seen(graph_.outputs.begin(), graph_.outputs.end());
    for (const GraphNode& node : graph_.nodes) {
      seen.insert(node.captured.begin(), node.captured.end());
    }
    for (const GraphNode& node : graph_.nodes) {
      if (node.outputs.size() != 1 || !onData_.contains(node.outputs[0])) continue;
      if (!isFloat_(node.outputs[0])) continue;
      const auto readers = readers_.find(node.outputs[0]);
      if (seen.contains(node.outputs[0]) || readers == readers_.end()) continue;
      if (readers->second.size() != 1) continue;
      const auto& [reader, index] = readers->second[0];
      if (AreFused(node, *reader, index)) fused_.insert(node.outputs[0]);
    }
  }

  bool AreFused(const GraphNode& node, const GraphNode& reader, size_t index) const {
    const bool isSum = IsOneOf(node, kSums);
    if (Is(reader, "Add")) return isSum && IsBias(reader, 1 - index);
    if (index != 0) return false;
    if (Is(reader, "BatchNormalization")) return isSum;
    return IsOneOf(reader, kEnds) && (isSum || Is(node, "BatchNormalization") || Is(node, "Add"));
  }

  /// A number for each channel, or one for all; more of them are an operand of their own.
  bool IsBias(const GraphNode& node, size_t index) const {
    if (index >= node.inputs.size()) return false;
    const std::optional<std::vector<int64_t>> dims = DimsOfConstant(node.inputs[index]);
    return dims && std::ranges::count_if(*dims, [](int64_t dim) { return dim != 1; }) <= 1;
  }

  /// Nothing where it is none that the file holds.
  std::optional<std::vector<int64_t>> DimsOfConstant(std::string_view name) const {
    if (graph_.IsInput(name)) return std::nullopt;
    const auto found = std::ranges::find(graph_.initializers, name,
                                         [](const Initializer& one) { return one.tensor.name; });
    if (found != graph_.initializers.end()) return found->tensor.dims;
    const GraphNode* node = graph_.ProducerOf(name);
    if (node == nullptr || !Is(*node, "Constant")) return std::nullopt;
    const std::optional<Bytes> tensor = AttributeOf(*node, "value", 5);
    if (!tensor) return std::nullopt;
    return ReadFileTensor(*tensor).dims;
  }

  bool IsFusedBias(const GraphNode& node, size_t index) const {
    return Is(node, "Add") && index < 2 && node.inputs.size() == 2 &&
           fused_.contains(node.inputs[1 - index]);
  }

  // ---- Weights ----------------------------------------------------------------------------------

  /// How all readers of a weight would hold it.
  WeightScheme SchemeFor(std::string_view name, size_t rank) const {
    const auto readers = readers_.find(name);
    if (readers == readers_.end()) return {};
    std::optional<WeightScheme> scheme;
    for (const auto& [node, index] : readers->second) {
      WeightScheme one = SchemeOf(*node, index, rank);
      if (IsFusedBias(*node, index)) one = {.kind = WeightScheme::kUntouched, .axis = 0};
      scheme = scheme ? Common(*scheme, one) : one;
    }
    return *scheme;
  }

  /// The tensor's message with rounded numbers; nothing where it stays as it is.
  std::optional<std::string> Rounded(const FileTensor& tensor, std::string_view name) {
    if (parameters_.contains(name)) return std::nullopt;
    const WeightScheme scheme = SchemeFor(name, tensor.dims.size());
    if (IsInt8() && scheme.kind == WeightScheme::kUntouched) return std::nullopt;
    std::optional<std::vector<float>> floats = FloatsOf(tensor);
    if (!floats) return std::nullopt;
    RoundWeight(settings_.round, scheme, tensor.dims, *floats);
    rounded_.insert(name);
    ++weights_;
    return WithFloats(tensor, *floats);
  }

  void RoundInitializers() {
    for (Initializer& initializer : graph_.initializers) {
      initializer.changed = Rounded(initializer.tensor, initializer.tensor.name);
    }
    for (GraphNode& node : graph_.nodes) {
      if (node.op != "Constant" || !node.domain.empty() || node.outputs.size() != 1) continue;
      const std::optional<Bytes> tensor = AttributeOf(node, "value", 5);
      if (!tensor) continue;
      node.value = Rounded(ReadFileTensor(*tensor), node.outputs[0]);
      constants_.insert(node.outputs[0]);
    }
  }

  /// Whether a node's result is to be rounded, in the order of the graph: the nodes behind it ask
  /// whether it was.
  bool IsToBeRounded(const GraphNode& node, std::string_view name) const {
    if (name.empty() || constants_.contains(name) || parameters_.contains(name)) return false;
    if (!isFloat_(name) || MovesRounded(node)) return false;
    if (fused_.contains(name) && !exposed_.contains(name)) return false;
    const bool isConstant = IsInt8() && !onData_.contains(name);
    return !isConstant || SchemeFor(name, 0).kind != WeightScheme::kUntouched;
  }

  bool MovesRounded(const GraphNode& node) const {
    return node.domain.empty() && std::ranges::find(kMovers, node.op) != std::end(kMovers) &&
           !node.inputs.empty() && rounded_.contains(node.inputs[0]);
  }

  /// Whether a range has to be given, and not the values decide.
  bool NeedsRange(std::string_view name) const { return IsInt8() && onData_.contains(name); }

  /// A long name may have been measured, and written down, by its short one.
  const Range* RangeOf(std::string_view name) const {
    auto found = settings_.ranges.find(std::string(name));
    if (found == settings_.ranges.end()) found = settings_.ranges.find(ShortName(name));
    return found == settings_.ranges.end() ? nullptr : &found->second;
  }

  bool IsInputRounded(std::string_view name) const {
    if (graph_.IsInitializer(name) || parameters_.contains(name)) return false;
    if (graph_.TypeOfInput(name) != kFileFloat) return false;
    return !IsInt8() || RangeOf(name) != nullptr;
  }

  /// All at once, before anything is changed, and named after the first.
  void RequireRanges() {
    if (!IsInt8()) return;
    const std::set<std::string_view> before = rounded_;
    for (const std::string_view name : graph_.inputs) {
      if (IsInputRounded(name)) rounded_.insert(name);
    }
    size_t count = 0;
    std::vector<std::string_view> missing;
    for (const GraphNode& node : graph_.nodes) {
      for (const std::string_view name : node.outputs) {
        if (MovesRounded(node) && !name.empty()) rounded_.insert(name);
        if (!IsToBeRounded(node, name)) continue;
        rounded_.insert(name);
        if (!NeedsRange(name)) continue;
        ++count;
        if (RangeOf(name) == nullptr) missing.push_back(name);
      }
    }
    rounded_ = before;
    if (missing.empty()) return;
    throw Failure(VORN_ERROR_MODEL, "'round' needs the range of '", Excerpt(missing[0]), "'",
                  missing.size() == 1 ? "" : Join(" and of ", missing.size() - 1, " more"), ", ",
                  missing.size(), " of ", Counted(count, "result"),
                  "; measure them over inputs like those that are to be run");
  }

  /// The node that rounds `from` into `to`; `name` is that of the tensor outside.
  std::string NodeFor(std::string_view name, std::string_view from, std::string_view to) const {
    if (settings_.round == Rounding::kToFloat16) return RoundingNode("ToFloat16", from, to);
    if (settings_.round == Rounding::kToBfloat16) return RoundingNode("ToBfloat16", from, to);
    if (!NeedsRange(name)) return RoundingNode("ToOwnGrid", from, to);
    const Grid grid = GridFor(*RangeOf(name));
    return RoundingNode("ToGrid", from, to,
                        {FloatAttribute("scale", grid.scale), FloatAttribute("low", grid.low),
                         FloatAttribute("high", grid.high)});
  }

  /// Nodes of the main graph read a rounded copy; the input itself keeps its name.
  void RoundInputs() {
    for (const std::string_view name : graph_.inputs) {
      if (!IsInputRounded(name)) continue;
      const std::string_view rounded = graph_.NewName(std::string(name) + "/rounded");
      graph_.before.push_back(NodeFor(name, name, rounded));
      rounded_.insert(rounded);
      ++inputs_;
      for (GraphNode& node : graph_.nodes) {
        for (std::string_view& input : node.inputs) {
          if (input != name) continue;
          input = rounded;
          node.isChanged = true;
        }
      }
    }
  }

  /// The result keeps its name, so that whatever reads it, bodies and outputs among it, reads what
  /// is rounded; what the node gives gets another one.
  void RoundNode(GraphNode& node) {
    const bool movesRounded = MovesRounded(node);
    for (std::string_view& output : node.outputs) {
      const std::string_view name = output;
      if (movesRounded && !name.empty()) rounded_.insert(name);
      if (!IsToBeRounded(node, name)) continue;
      output = graph_.NewName(std::string(name) + "/unrounded");
      node.isChanged = true;
      node.behind.push_back(NodeFor(name, output, name));
      if (fused_.contains(name)) {
        const auto& [reader, index] = readers_.find(name)->second[0];
        reader->inputs[index] = output;
        reader->isChanged = true;
      }
      rounded_.insert(name);
      ++results_;
    }
  }

  OnnxGraph& graph_;
  const ModelSettings& settings_;
  const std::function<bool(std::string_view)>& isFloat_;
  const std::set<std::string_view>& exposed_;
  std::set<std::string_view> parameters_;
  std::set<std::string_view> onData_;
  std::set<std::string_view> constants_;  // results of nodes that are weights
  std::set<std::string_view> rounded_;    // so far
  std::set<std::string_view> fused_;
  std::map<std::string_view, std::vector<std::pair<GraphNode*, size_t>>> readers_;
  size_t weights_ = 0;
  size_t inputs_ = 0;
  size_t results_ = 0;
};

}  // namespace

std::string RoundGraph(OnnxGraph& graph, const ModelSettings& settings,
                       const std::function<bool(std::string_view)>& isFloat,
                       const std::set<std::string_view>& exposed) {
  return Rounder(graph, settings, isFloat, exposed).Round();
}

}  // namespace vorn::host
