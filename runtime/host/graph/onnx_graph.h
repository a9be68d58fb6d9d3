// The main graph of an ONNX file, open to changes.
//
// The file is one protocol-buffers message; what is read of it here are the names that tell what
// depends on what. Everything else stays the bytes that it is and is written as it was read, so
// that nothing of a model gets lost that this file does not know: attributes, bodies of control
// flow, local functions, fields of later versions of the format. Weights are not copied unless they
// are changed. Field numbers are those of the ONNX format.
#ifndef VORN_RUNTIME_HOST_GRAPH_ONNX_GRAPH_H_
#define VORN_RUNTIME_HOST_GRAPH_ONNX_GRAPH_H_

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "host/graph/wire.h"

namespace vorn::host {

/// The codes of element types in a file, as far as they are asked for here.
inline constexpr uint64_t kFileFloat = 1;

/// A tensor in the file.
struct FileTensor {
  std::string_view name;
  uint64_t type = 0;
  std::vector<int64_t> dims;
  Bytes message;
};

struct GraphNode {
  std::string_view name;
  std::string_view op;
  std::string_view domain;                ///< empty for ONNX's own
  std::vector<std::string_view> inputs;   ///< empty where an optional one is left out
  std::vector<std::string_view> outputs;  ///< likewise
  std::set<std::string_view> captured;    ///< names of this graph that its bodies read
  Bytes message;

  bool isChanged = false;            ///< `inputs` or `outputs` are others than in `message`
  std::optional<std::string> value;  ///< a tensor instead of the one of a Constant
  std::vector<std::string> behind;   ///< messages of nodes that come right behind
};

/// A tensor that the file carries beside the nodes.
struct Initializer {
  FileTensor tensor;
  std::optional<std::string> changed;  ///< a message instead
};

/// Views point into the image, which has to outlive the graph, or are kept by it. Not synchronised.
class OnnxGraph {
 public:
  /// Reads an image that `RequireOneFile` takes. Fails with VORN_ERROR_MODEL where it is more than
  /// one graph, or no message within.
  explicit OnnxGraph(Bytes image);
  OnnxGraph(const OnnxGraph&) = delete;
  OnnxGraph& operator=(const OnnxGraph&) = delete;

  std::vector<GraphNode> nodes;  ///< in the order of the file
  std::vector<Initializer> initializers;
  std::vector<std::string_view> inputs;   ///< those that are initializers as well among them
  std::vector<std::string_view> outputs;  ///< may be changed: new ones need no type
  std::vector<std::string> before;        ///< messages of nodes that come in front of all others

  /// The node that a name is a result of; null where it is none of the main graph.
  const GraphNode* ProducerOf(std::string_view name) const;
  bool IsInitializer(std::string_view name) const { return initializerNames_.contains(name); }
  bool IsInput(std::string_view name) const;
  /// The code of the elements of an input; 0 where it is no tensor.
  uint64_t TypeOfInput(std::string_view name) const;
  /// The node whose bodies, however deep, have a result of that name; null where there is none.
  const GraphNode* BodyWith(std::string_view name) const;

  /// The version of ONNX's own operators; 1 where the file says none.
  uint64_t operatorSet() const { return operatorSet_; }

  /// A name that nothing has yet, which begins with `wanted`; kept by the graph.
  std::string_view NewName(const std::string& wanted);

  /// Keeps a text as long as the graph lives.
  std::string_view Keep(std::string text);

  /// Has the model use a domain of operators, in version 1.
  void UseDomain(std::string_view domain) { domains_.emplace(domain); }

  /// Leaves out the nodes for which `keeps` is false, and what nothing reads any more for that.
  void KeepNodes(const std::vector<bool>& keeps);

  /// The image with all changes.
  std::string Image() const;

 private:
  void ReadGraph(Bytes graph);
  std::string GraphMessage() const;

  Bytes image_;
  Bytes graph_;
  uint64_t operatorSet_ = 1;
  std::set<const std::byte*> removed_;  // nodes and initializers, by where their messages begin
  std::set<std::string_view> removedNames_;
  std::set<std::string_view> initializerNames_;
  std::unordered_map<std::string_view, size_t> producers_;
  std::set<std::string_view> names_;
  std::set<std::string, std::less<>> domains_;
  std::deque<std::string> kept_;
};

/// The tensor in a message of the file.
FileTensor ReadFileTensor(Bytes message);

/// The bytes of the message in an attribute of the node, of that name and field; nothing if it has
/// none.
std::optional<Bytes> AttributeOf(const GraphNode& node, std::string_view name, uint32_t field);

/// The whole number in an attribute, or `otherwise`.
int64_t IntAttributeOf(const GraphNode& node, std::string_view name, int64_t otherwise);

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_GRAPH_ONNX_GRAPH_H_
