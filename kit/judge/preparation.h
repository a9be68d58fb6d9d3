// Whether the inputs of two runs, made of the same pictures, were made otherwise: by a recipe that
// resizes by another rule, cuts elsewhere or orders colours otherwise. Of outputs that differ that
// is the first thing to suspect.
//
// What a device may have compiled in is no difference: layout, element type, and what is done to
// values. Nor is what recipes say otherwise and do alike: of pictures that have the size already,
// the rule that resizes them.
#ifndef VORN_KIT_JUDGE_PREPARATION_H_
#define VORN_KIT_JUDGE_PREPARATION_H_

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "kit/json/json.h"

namespace vorn::kit {

/// One thing that is said, or came, otherwise.
struct PreparationMember {
  std::string name;  ///< as a recipe spells it: "resize.rule", "colours"; or "random", "signal.hop"
  std::string actual;
  std::string expected;
};

struct PreparationDifference {
  std::string input;          ///< of the run that is judged
  std::string expectedInput;  ///< what the other side calls it
  std::string recipe;         ///< its name; empty where there is none
  std::string expectedRecipe;
  std::vector<PreparationMember> members;
  /// Samples that were made of other pictures, or signals, than the same sample of the other side.
  uint64_t otherSources = 0;
  uint64_t firstOther = 0;  ///< the first of them
  std::string source;       ///< that it was made of
  std::string expectedSource;
};

/// The inputs that were made otherwise, by the manifests beside the files of both runs. `samples`
/// are those of the one run and of the other that are compared. Empty also where there are no
/// manifests, or they cannot be read: this is a hint beside a verdict.
[[nodiscard]] std::vector<PreparationDifference> ComparePreparation(
    const std::string& run, const std::string& expectedRun,
    const std::vector<std::pair<uint64_t, uint64_t>>& samples);

/// A line each.
[[nodiscard]] std::string PreparationText(const std::vector<PreparationDifference>& differences);

/// "preparation" of verdict.json.
[[nodiscard]] Json PreparationJson(const std::vector<PreparationDifference>& differences);

}  // namespace vorn::kit

#endif  // VORN_KIT_JUDGE_PREPARATION_H_
