// Reading the names of a graph and writing it with its changes. The fields that matter:
//
//     model      7 graph, 8 operator set (1 domain, 2 version)
//     graph      1 node, 5 initializer, 11 input, 12 output, 13 value, 15 sparse initializer
//     node       1 input, 2 output, 3 name, 4 operator, 5 attribute, 7 domain
//     attribute  1 name, 3 whole number, 5 tensor, 6 graph, 11 graphs
//     tensor     1 dims, 2 type, 8 name; a sparse one has its values in 1
//     value      1 name
#include "host/graph/onnx_graph.h"

#include <algorithm>
#include <utility>

#include "host/common/failure.h"

namespace vorn::host {
namespace {

enum GraphField : uint32_t {
  kNode = 1,
  kInitializer = 5,
  kInput = 11,
  kOutput = 12,
  kValue = 13,
  kSparseInitializer = 15
};
constexpr uint32_t kGraphOfModel = 7;
constexpr uint32_t kOperatorSetOfModel = 8;
constexpr uint32_t kInputOfNode = 1;
constexpr uint32_t kOutputOfNode = 2;
constexpr uint32_t kAttributeOfNode = 5;
constexpr uint32_t kTensorOfAttribute = 5;

void ForEachBody(Bytes node, auto visit) {
  ForEachField(node, kAttributeOfNode, [&](Bytes attribute) {
    for (const uint32_t field : {6U, 11U}) ForEachField(attribute, field, visit);
  });
}

/// The names that a body has of its own: its inputs, its tensors, the results of its nodes.
std::set<std::string_view> OwnNamesOf(Bytes body) {
  std::set<std::string_view> own;
  ForEachField(body, kInput, [&](Bytes value) { own.insert(TextIn(value, 1)); });
  ForEachField(body, kInitializer, [&](Bytes tensor) { own.insert(TextIn(tensor, 8)); });
  ForEachField(body, kSparseInitializer, [&](Bytes sparse) {
    ForEachField(sparse, 1, [&](Bytes values) { own.insert(TextIn(values, 8)); });
  });
  ForEachField(body, kNode, [&](Bytes node) {
    ForEachField(node, kOutputOfNode, [&](Bytes name) { own.insert(TextOf(name)); });
  });
  return own;
}

/// Adds the names that a body reads from outside of it. Bodies lie in bodies no deeper than
/// `InspectOnnxImage` lets messages be.
void AddCaptured(Bytes body, std::set<std::string_view>& captured) {
  std::set<std::string_view> read;
  ForEachField(body, kNode, [&](Bytes node) {
    ForEachField(node, kInputOfNode, [&](Bytes name) { read.insert(TextOf(name)); });
    ForEachBody(node, [&](Bytes inner) { AddCaptured(inner, read); });
  });
  ForEachField(body, kOutput, [&](Bytes value) { read.insert(TextIn(value, 1)); });
  const std::set<std::string_view> own = OwnNamesOf(body);
  std::ranges::set_difference(read, own, std::inserter(captured, captured.end()));
}

bool HasResult(Bytes body, std::string_view name) {
  bool found = false;
  ForEachField(body, kNode, [&](Bytes node) {
    ForEachField(node, kOutputOfNode, [&](Bytes output) { found |= TextOf(output) == name; });
    ForEachBody(node, [&](Bytes inner) { found |= HasResult(inner, name); });
  });
  return found;
}

/// The last whole number in a field of that number.
std::optional<uint64_t> NumberIn(Bytes message, uint32_t number) {
  std::optional<uint64_t> found;
  FieldReader reader(message);
  while (const std::optional<Field> field = reader.Next()) {
    if (field->number == number && field->wireType == kVarint) found = field->value;
  }
  return found;
}

GraphNode ReadNode(Bytes message) {
  GraphNode node;
  node.message = message;
  node.name = TextIn(message, 3);
  node.op = TextIn(message, 4);
  node.domain = TextIn(message, 7);
  if (node.domain == "ai.onnx") node.domain = "";
  ForEachField(message, kInputOfNode, [&](Bytes name) { node.inputs.push_back(TextOf(name)); });
  ForEachField(message, kOutputOfNode, [&](Bytes name) { node.outputs.push_back(TextOf(name)); });
  ForEachBody(message, [&](Bytes body) { AddCaptured(body, node.captured); });
  node.captured.erase("");
  return node;
}

/// The attribute's message with another tensor in it.
std::string WithTensor(Bytes attribute, const std::string& tensor) {
  MessageWriter changed;
  FieldReader reader(attribute);
  while (const std::optional<Field> field = reader.Next()) {
    if (field->number != kTensorOfAttribute) changed.Copy(field->whole);
  }
  return changed.Text(kTensorOfAttribute, tensor).Take();
}

std::string NodeMessage(const GraphNode& node) {
  MessageWriter changed;
  for (const std::string_view name : node.inputs) changed.Text(kInputOfNode, name);
  for (const std::string_view name : node.outputs) changed.Text(kOutputOfNode, name);
  FieldReader reader(node.message);
  while (const std::optional<Field> field = reader.Next()) {
    if (field->number == kInputOfNode || field->number == kOutputOfNode) continue;
    if (field->number == kAttributeOfNode && node.value && TextIn(field->bytes, 1) == "value") {
      changed.Text(kAttributeOfNode, WithTensor(field->bytes, *node.value));
    } else {
      changed.Copy(field->whole);
    }
  }
  return changed.Take();
}

}  // namespace

FileTensor ReadFileTensor(Bytes message) {
  FileTensor tensor;
  tensor.message = message;
  FieldReader reader(message);
  while (const std::optional<Field> field = reader.Next()) {
    if (field->number == 1 && field->wireType == kVarint) {
      tensor.dims.push_back(static_cast<int64_t>(field->value));
    } else if (field->number == 1 && field->wireType == kLength) {
      FieldReader packed(field->bytes);
      while (!packed.IsAtEnd()) tensor.dims.push_back(static_cast<int64_t>(packed.TakeVarint()));
    } else if (field->number == 2 && field->wireType == kVarint) {
      tensor.type = field->value;
    } else if (field->number == 8 && field->wireType == kLength) {
      tensor.name = TextOf(field->bytes);
    }
  }
  return tensor;
}

std::optional<Bytes> AttributeOf(const GraphNode& node, std::string_view name, uint32_t number) {
  std::optional<Bytes> found;
  ForEachField(node.message, kAttributeOfNode, [&](Bytes attribute) {
    if (TextIn(attribute, 1) != name) return;
    ForEachField(attribute, number, [&](Bytes bytes) { found = bytes; });
  });
  return found;
}

int64_t IntAttributeOf(const GraphNode& node, std::string_view name, int64_t otherwise) {
  int64_t number = otherwise;
  ForEachField(node.message, kAttributeOfNode, [&](Bytes attribute) {
    if (TextIn(attribute, 1) != name) return;
    if (const auto found = NumberIn(attribute, 3)) number = static_cast<int64_t>(*found);
  });
  return number;
}

OnnxGraph::OnnxGraph(Bytes image) : image_(image) {
  size_t count = 0;
  ForEachField(image, kGraphOfModel, [&](Bytes graph) {
    graph_ = graph;
    ++count;
  });
  // Readers of the format would make one of them, field by field, and nobody writes such files.
  if (count != 1) {
    throw Failure(VORN_ERROR_MODEL, "the image holds ", count,
                  " graphs; a model that is to be edited has one");
  }
  ForEachField(image, kOperatorSetOfModel, [&](Bytes set) {
    const std::string_view domain = TextIn(set, 1);
    if (!domain.empty() && domain != "ai.onnx") return;
    operatorSet_ = NumberIn(set, 2).value_or(operatorSet_);
  });
  ReadGraph(graph_);
}

void OnnxGraph::ReadGraph(Bytes graph) {
  ForEachField(graph, kNode, [&](Bytes node) { nodes.push_back(ReadNode(node)); });
  ForEachField(graph, kInitializer, [&](Bytes tensor) {
    initializers.push_back({.tensor = ReadFileTensor(tensor), .changed = std::nullopt});
    initializerNames_.insert(initializers.back().tensor.name);
  });
  ForEachField(graph, kSparseInitializer, [&](Bytes sparse) {
    ForEachField(sparse, 1, [&](Bytes values) { initializerNames_.insert(TextIn(values, 8)); });
  });
  ForEachField(graph, kInput, [&](Bytes value) { inputs.push_back(TextIn(value, 1)); });
  ForEachField(graph, kOutput, [&](Bytes value) { outputs.push_back(TextIn(value, 1)); });
  for (size_t i = 0; i < nodes.size(); ++i) {
    for (const std::string_view name : nodes[i].outputs) {
      producers_.emplace(name, i);
      names_.insert(name);
    }
    names_.insert(nodes[i].inputs.begin(), nodes[i].inputs.end());
    // A new name must not be read by a body that has it for one of its own, either.
    ForEachBody(nodes[i].message, [&](Bytes body) {
      for (const std::string_view name : OwnNamesOf(body)) names_.insert(name);
    });
  }
  names_.insert(inputs.begin(), inputs.end());
  names_.insert(initializerNames_.begin(), initializerNames_.end());
  producers_.erase("");
}

const GraphNode* OnnxGraph::ProducerOf(std::string_view name) const {
  const auto found = producers_.find(name);
  return found == producers_.end() ? nullptr : &nodes[found->second];
}

bool OnnxGraph::IsInput(std::string_view name) const {
  return std::ranges::find(inputs, name) != inputs.end();
}

uint64_t OnnxGraph::TypeOfInput(std::string_view name) const {
  uint64_t code = 0;
  ForEachField(graph_, kInput, [&](Bytes value) {
    if (TextIn(value, 1) != name) return;
    ForEachField(value, 2, [&](Bytes type) {
      ForEachField(type, 1, [&](Bytes tensor) { code = NumberIn(tensor, 1).value_or(0); });
    });
  });
  return code;
}

const GraphNode* OnnxGraph::BodyWith(std::string_view name) const {
  const auto found = std::ranges::find_if(nodes, [&](const GraphNode& node) {
    bool isInside = false;
    ForEachBody(node.message, [&](Bytes body) { isInside |= HasResult(body, name); });
    return isInside;
  });
  return found == nodes.end() ? nullptr : &*found;
}

std::string_view OnnxGraph::Keep(std::string text) {
  kept_.push_back(std::move(text));
  return kept_.back();
}

std::string_view OnnxGraph::NewName(const std::string& wanted) {
  std::string name = wanted;
  for (int number = 2; names_.contains(name); ++number) {
    name = wanted + "_" + std::to_string(number);
  }
  return *names_.insert(Keep(std::move(name))).first;
}

void OnnxGraph::KeepNodes(const std::vector<bool>& keeps) {
  std::set<std::string_view> read;
  std::vector<GraphNode> left;
  for (size_t i = 0; i < nodes.size(); ++i) {
    GraphNode& node = nodes[i];
    if (!keeps[i]) {
      removed_.insert(node.message.data());
      removedNames_.insert(node.outputs.begin(), node.outputs.end());
      continue;
    }
    read.insert(node.inputs.begin(), node.inputs.end());
    read.insert(node.captured.begin(), node.captured.end());
    left.push_back(std::move(node));
  }
  nodes = std::move(left);
  producers_.clear();
  for (size_t i = 0; i < nodes.size(); ++i) {
    for (const std::string_view name : nodes[i].outputs) producers_.emplace(name, i);
  }
  producers_.erase("");
  std::erase_if(initializers, [&](const Initializer& initializer) {
    const std::string_view name = initializer.tensor.name;
    // What is an input as well stays as its value.
    if (read.contains(name) || IsInput(name)) return false;
    removed_.insert(initializer.tensor.message.data());
    return true;
  });
}

std::string OnnxGraph::GraphMessage() const {
  MessageWriter graph;
  for (const std::string& node : before) graph.Text(kNode, node);
  size_t node = 0;
  size_t initializer = 0;
  FieldReader reader(graph_);
  while (const std::optional<Field> field = reader.Next()) {
    const bool isMessage = field->wireType == kLength;
    if (isMessage && removed_.contains(field->bytes.data())) continue;
    if (isMessage && field->number == kNode) {
      const GraphNode& next = nodes[node++];
      if (next.isChanged || next.value) {
        graph.Text(kNode, NodeMessage(next));
      } else {
        graph.Copy(field->whole);
      }
      for (const std::string& behind : next.behind) graph.Text(kNode, behind);
    } else if (isMessage && field->number == kInitializer) {
      const std::optional<std::string>& changed = initializers[initializer++].changed;
      if (changed) {
        graph.Text(kInitializer, *changed);
      } else {
        graph.Copy(field->whole);
      }
    } else if (isMessage && field->number == kValue) {
      if (!removedNames_.contains(TextIn(field->bytes, 1))) graph.Copy(field->whole);
    } else if (!isMessage || field->number != kOutput) {
      graph.Copy(field->whole);
    }
  }
  std::unordered_map<std::string_view, Bytes> declared;
  ForEachField(graph_, kOutput, [&](Bytes value) { declared[TextIn(value, 1)] = value; });
  for (const std::string_view name : outputs) {
    const auto found = declared.find(name);
    if (found != declared.end()) {
      graph.Text(kOutput, TextOf(found->second));
    } else {
      graph.Text(kOutput, MessageWriter().Text(1, name).str());
    }
  }
  return graph.Take();
}

std::string OnnxGraph::Image() const {
  MessageWriter model;
  FieldReader reader(image_);
  while (const std::optional<Field> field = reader.Next()) {
    if (field->number != kGraphOfModel || field->wireType != kLength) {
      model.Copy(field->whole);
    } else {
      model.Text(kGraphOfModel, GraphMessage());
    }
  }
  for (const std::string& domain : domains_) {
    const std::string set = MessageWriter().Text(1, domain).Varint(2, 1).Take();
    model.Text(kOperatorSetOfModel, set);
  }
  return model.Take();
}

}  // namespace vorn::host
