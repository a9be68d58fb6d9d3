// What is really to be seen, by output and sample. Either a text with the number of a class a line,
// for the only output; or JSON:
//
//     {"schema": 1, "outputs": [
//       {"output": "prob",  "classes": [7, 2, …]},                 one an item
//       {"output": "mask",  "masks": "masks.npy", "ignore": 255},  [samples, rows, columns]
//       {"output": "boxes", "boxes": [[[left, top, right, bottom, class], …], …]}]}
//
// The first stands for sample 0. Paths begin at the folder of the file.
#ifndef VORN_KIT_JUDGE_LABELS_H_
#define VORN_KIT_JUDGE_LABELS_H_

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kit/judge/accuracy.h"
#include "kit/judge/verdict.h"

namespace vorn::kit {

struct OutputLabels {
  enum class Kind { kClasses, kMasks, kBoxes };
  std::string output;  ///< empty: the only one
  Kind kind = Kind::kClasses;
  std::vector<uint64_t> classes;
  std::string masksPath;
  std::optional<uint64_t> ignored;
  std::vector<std::vector<Box>> boxes;
};

/// Throws a Fault of kInput that says what is wrong where; `what` names the file, which lies in
/// `folder`.
[[nodiscard]] std::vector<OutputLabels> ParseLabels(std::string_view text, const std::string& what,
                                                    const std::string& folder);

/// Both sides of one output against its labels.
class LabelJudge {
 public:
  explicit LabelJudge(const OutputLabels& labels);

  /// Sample `index` of `items` items. Throws a Fault of kInput where there is no label for it, or
  /// where the output is not of the kind that the labels say.
  void Take(uint64_t index, uint64_t items, std::span<const float> actual,
            std::span<const float> expected);

  [[nodiscard]] std::vector<Accuracy> Result(const std::string& output) const;

 private:
  template <typename Taker>
  struct Sides {
    Taker actual;
    Taker expected;
  };

  void TakeClasses(uint64_t index, uint64_t items, std::span<const float> actual,
                   std::span<const float> expected);
  void TakeMask(uint64_t index, std::span<const float> actual, std::span<const float> expected);
  void TakeBoxes(uint64_t index, std::span<const float> actual, std::span<const float> expected);
  [[noreturn]] void Refuse(uint64_t index, const std::string& reason) const;

  const OutputLabels& labels_;
  std::optional<StoredTensor> masks_;
  Sides<ClassAccuracy> classes_;
  Sides<MaskAccuracy> pixels_;
  Sides<BoxAccuracy> boxes_;
};

}  // namespace vorn::kit

#endif  // VORN_KIT_JUDGE_LABELS_H_
