// Tensors that a model carries, and how a device of 8 bits would hold them.
#ifndef VORN_RUNTIME_HOST_GRAPH_WEIGHTS_H_
#define VORN_RUNTIME_HOST_GRAPH_WEIGHTS_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "host/config/model_settings.h"
#include "host/graph/onnx_graph.h"

namespace vorn::host {

/// How many grids a weight of 8 bits has.
struct WeightScheme {
  enum Kind { kUntouched, kPerTensor, kPerChannel } kind = kPerTensor;
  size_t axis = 0;  ///< of the channels

  bool operator==(const WeightScheme&) const = default;
};

/// How a reader of a weight, at input `index`, would hold it: by output channels in Conv,
/// ConvTranspose without groups, Gemm and MatMul, untouched where it is added to sums of 32 bits or
/// folded into other numbers (biases, normalisations), as a whole elsewhere.
WeightScheme SchemeOf(const GraphNode& node, size_t index, size_t rank);

/// What serves both readers: the whole where they differ, the one that touches it where one does
/// not.
WeightScheme Common(const WeightScheme& a, const WeightScheme& b);

/// The numbers of a float32 tensor; nothing where it is none, or has another count of them than its
/// dimensions say, which the engine refuses.
std::optional<std::vector<float>> FloatsOf(const FileTensor& tensor);

/// The tensor's message with these numbers instead.
std::string WithFloats(const FileTensor& tensor, std::span<const float> floats);

/// Rounds the numbers of a tensor of these dimensions.
void RoundWeight(Rounding rounding, const WeightScheme& scheme, std::span<const int64_t> dims,
                 std::vector<float>& floats);

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_GRAPH_WEIGHTS_H_
