// A graph whose numbers are rounded as on a device of lower precision: weights in the file, results
// of nodes by nodes of this library behind them.
//
//     name of the operator   attributes         what it gives
//     ToFloat16              -                  the numbers of float16
//     ToBfloat16             -                  those of bfloat16
//     ToGrid                 scale, low, high   those of a grid (rounding.h)
//     ToOwnGrid              -                  those of the grid for its own values, symmetric
//
// Each takes and gives a float32 tensor of any shape. They are operators of a domain of our own,
// which the engine serves (engine_rounding.h), and not pairs of ONNX's own: pairs of Cast, or of
// QuantizeLinear and DequantizeLinear, need a version of the operator set that the model may not
// have, and are what an optimiser looks for. It knows nothing of ours, so it neither removes nor
// moves nor fuses them.
#ifndef VORN_RUNTIME_HOST_GRAPH_ROUND_RESULTS_H_
#define VORN_RUNTIME_HOST_GRAPH_ROUND_RESULTS_H_

#include <functional>
#include <set>
#include <string>
#include <string_view>

#include "host/config/model_settings.h"
#include "host/graph/onnx_graph.h"

namespace vorn::host {

inline constexpr const char* kRoundingDomain = "vorn.rounding";

/// Rounds what `settings.round` asks for; `isFloat` tells results that are float32 tensors, and
/// `exposed` are those that are to be given beside the graph's outputs. Fails with VORN_ERROR_MODEL
/// where a range is missing. Returns what was done, for the log.
///
/// To 8 bits, what compilers make one operation of is rounded once, behind it all. What is exposed
/// from within is given rounded, as a device would give it, and nothing else reads that: the
/// results behind are the same whatever is looked at.
std::string RoundGraph(OnnxGraph& graph, const ModelSettings& settings,
                       const std::function<bool(std::string_view)>& isFloat,
                       const std::set<std::string_view>& exposed);

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_GRAPH_ROUND_RESULTS_H_
