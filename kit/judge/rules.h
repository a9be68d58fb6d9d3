// When an output counts as right. Read from a JSON file:
//
//     {"schema": 1, "rules": [
//       {"output": "prob*", "atol": 1e-5, "rtol": 1e-3, "nan": "where expected"},
//       {"output": "boxes", "preset": "float16"},
//       {"output": "ids",   "exact": true},
//       {"output": "*",     "metric": "cosine", "atLeast": 0.999},
//       {"output": "*",     "metric": "outside", "atMost": 3}]}
//
// An output has the tolerance of the first entry with one that fits its name, else the preset of
// its element type. It is right where no element is outside that tolerance and all metrics that
// fit its name keep their bounds; where only metrics fit, these alone decide. Whatever the rules,
// NaN and infinities have to be where they are expected, and NaN has to be asked for.
#ifndef VORN_KIT_JUDGE_RULES_H_
#define VORN_KIT_JUDGE_RULES_H_

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kit/judge/census.h"
#include "kit/judge/top_agreement.h"
#include "kit/tensor/element_type.h"

namespace vorn::kit {

/// A tolerance, and where it is from.
struct NamedTolerance {
  Tolerance tolerance;
  std::string source;  ///< "float32, as torch.testing.assert_close has it"
};

struct ToleranceRule {
  std::string output;  ///< a glob
  NamedTolerance tolerance;
};

enum class Metric {
  kOutside,
  kOutsideShare,
  kMaxAbs,
  kMeanAbs,
  kMaxRel,
  kRmse,
  kCosine,
  kSnr,
  kPsnr,
  kUlpMedian,
  kUlp99,
  kUlpMax,
  kTop1,
  kTop5,
  kOverFloor,
};

[[nodiscard]] std::string_view MetricName(Metric metric);

struct MetricRule {
  std::string output;  ///< a glob
  Metric metric = Metric::kOutside;
  bool isLeast = false;  ///< the bound is what it has at least, else at most
  double bound = 0;
};

struct Rules {
  std::vector<ToleranceRule> tolerances;
  std::vector<MetricRule> metrics;
};

/// Whether a rule's glob is about an output.
[[nodiscard]] bool FitsName(const std::string& glob, const std::string& output);

/// Throws a Fault of kInput that says what is wrong where; `what` names the file.
[[nodiscard]] Rules ParseRules(std::string_view text, const std::string& what);

/// "float32", "float16", "bfloat16", "onnx", "exact"; empty for another name.
[[nodiscard]] std::optional<NamedTolerance> Preset(std::string_view name);

/// What holds of one output.
struct OutputRules {
  NamedTolerance tolerance;
  std::vector<MetricRule> metrics;  ///< of the tolerance itself: at most 0 outside
};

/// `step` is the scale of a quantised output: a difference of one step is allowed then.
[[nodiscard]] OutputRules RulesFor(const Rules& rules, const std::string& output, ElementType type,
                                   std::optional<double> step);

/// Whether nothing but `overFloor` decides of it, which tells nothing where the floor is lost.
[[nodiscard]] bool RestsOnFloorAlone(const OutputRules& rules);

/// A metric of one sample's output; empty where it has none: top 1 of no probabilities, measures
/// of no finite pair. `overFloor` is that metric's value, where there is a floor.
[[nodiscard]] std::optional<double> ValueOf(Metric metric, const Census& census,
                                            const TopAgreement& agreement,
                                            std::optional<double> overFloor = std::nullopt);

/// What is broken, a text each; none if the output is right, or nothing of it could be measured
/// because no pair is finite.
[[nodiscard]] std::vector<std::string> BrokenRules(const OutputRules& rules, const Census& census,
                                                   const TopAgreement& agreement,
                                                   std::optional<double> overFloor = std::nullopt);

/// "|a − r| ≤ 1e-05 + 1.3e-06·|r|".
[[nodiscard]] std::string TextOf(const Tolerance& tolerance);

/// "cosine ≥ 0.999".
[[nodiscard]] std::string TextOf(const MetricRule& rule);

/// A number for people: six digits, as short as it goes.
[[nodiscard]] std::string NumberText(double value);

}  // namespace vorn::kit

#endif  // VORN_KIT_JUDGE_RULES_H_
