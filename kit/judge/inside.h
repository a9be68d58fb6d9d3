// Where in a network a difference begins, and how it grows along the graph: the tensors of two
// runs, inner ones too, one behind the other.
#ifndef VORN_KIT_JUDGE_INSIDE_H_
#define VORN_KIT_JUDGE_INSIDE_H_

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "kit/json/json.h"
#include "kit/judge/census.h"
#include "kit/judge/floor.h"
#include "kit/tensor/tensor_source.h"

namespace vorn::kit {

/// The outputs of a run as dumps spell them, in the order of the graph.
struct GraphOrder {
  std::vector<std::string> names;
  /// Whether the run tells how many of its outputs were exposed. These stand in the order of the
  /// graph behind the model's own, so that the own ones are put last. Else all stand as the model
  /// lists them.
  bool isTold = false;
  size_t own = 0;  ///< where it is told: the model's own outputs, at the end
};

/// Empty for what is no run, or has no model.json. What a run says beyond that is taken from its
/// log, and from its configuration if that is still the same file.
[[nodiscard]] std::optional<GraphOrder> GraphOrderOf(const TensorSource& source);

/// How many tensors a log of the host runtime says that it exposed: "exposed 9 tensors". Of several
/// processes the last.
[[nodiscard]] std::optional<uint64_t> ExposedIn(std::string_view log);

/// What a run of the host runtime was rounded to, as its log says: "int8", "bfloat16"; empty where
/// it says nothing.
[[nodiscard]] std::string PrecisionOf(const TensorSource& source);

/// The same of a log's text: "rounded 7 weights, 0 inputs and 8 results to bfloat16".
[[nodiscard]] std::string PrecisionIn(std::string_view log);

enum class InsideState { kRight, kWrong, kNotJudged };

/// One tensor on both sides, of all samples.
struct InsideTensor {
  std::string name;
  InsideState state = InsideState::kNotJudged;
  Census census;  ///< of all samples
  /// Where there is a floor and both have the tensor.
  std::optional<FloorComparison> floor{};

  /// RMSE as a share of the expected tensor's root mean square; no number where nothing is finite.
  [[nodiscard]] double RelativeRmse() const;
  [[nodiscard]] double OutsideShare() const;
};

/// An output that one side alone has.
struct UnpairedOutput {
  std::string name;
  bool isActual = false;  ///< the side that has it
};

/// What the precision of a device has to lose, by which a difference counts from there on.
struct InsideFloor {
  std::string precision;  ///< "int8", as the floor's log says; empty where it does not
  double most = kFloorRatio;
};

struct Inside {
  std::vector<InsideTensor> tensors;  ///< in the order of the graph
  std::vector<UnpairedOutput> unpaired;
  std::string order;      ///< half a sentence: where the order is from
  size_t ownOutputs = 0;  ///< of the model, at the end of the tensors; 0: not known
  std::optional<InsideFloor> floor{};

  /// The first tensor that is wrong; with a floor the first that is worse than that has to be.
  [[nodiscard]] std::optional<size_t> Begin() const;
  /// From there on the one with the greatest relative RMSE, with a floor as times that of the
  /// floor.
  [[nodiscard]] std::optional<size_t> Greatest() const;
  /// From a tensor to the next one that could be measured.
  struct Step {
    size_t before = 0;
    size_t at = 0;
    /// dB by which the SNR falls, with a floor by which it falls further below that of the floor.
    double fall = 0;
  };
  /// All falls, the largest first.
  [[nodiscard]] std::vector<Step> Steps() const;
  [[nodiscard]] std::optional<Step> LargestStep() const;
};

/// A table in the order of the graph, what is unpaired, and where the difference begins. Of more
/// than forty tensors, unless all are wanted, those that tell something: the first ones, where the
/// difference begins, the largest steps, and the outputs.
[[nodiscard]] std::string InsideText(const Inside& inside, bool areAllWanted = false);

/// "inside" of verdict.json.
[[nodiscard]] Json InsideJson(const Inside& inside);

/// "1.2 %", "4e-06 %": a share for people.
[[nodiscard]] std::string ShareText(double share);

}  // namespace vorn::kit

#endif  // VORN_KIT_JUDGE_INSIDE_H_
