// What of a graph depends on the values of its inputs, and what only on their shapes.
//
// Exported models are full of nodes that work out shapes: Shape, Gather, Concat, Reshape. Their
// numbers are not data, and neither are the factors of a Resize: they say how, not what.
#ifndef VORN_RUNTIME_HOST_GRAPH_DEPENDENCE_H_
#define VORN_RUNTIME_HOST_GRAPH_DEPENDENCE_H_

#include <cstddef>
#include <set>
#include <string_view>

#include "host/graph/onnx_graph.h"

namespace vorn::host {

/// Whether input `index` of the node says how it works (a shape, axes, factors, a count, the scale
/// of a quantisation) and is not what it works on.
bool IsParameter(const GraphNode& node, size_t index);

struct Dependence {
  std::set<std::string_view> onData;       ///< names whose values depend on those of an input
  std::set<std::string_view> shapeOnData;  ///< names whose shapes may do so, too
  /// Data are read as parameters somewhere: a trial with zeros may fail there, whatever is looked
  /// at.
  bool isSteeredByData = false;
};

/// What of the main graph depends on its inputs. Local functions and operators of other domains
/// count as if shapes of theirs could depend on anything.
Dependence DependenceOf(const OnnxGraph& graph);

/// Names that are read for nothing but parameters, at once or by way of nodes of which nothing else
/// is read: numbers of which another precision would make other shapes. Outputs are not among them.
std::set<std::string_view> ParametersOf(const OnnxGraph& graph);

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_GRAPH_DEPENDENCE_H_
