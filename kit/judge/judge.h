// Judges every output of every sample against what is expected of it.
#ifndef VORN_KIT_JUDGE_JUDGE_H_
#define VORN_KIT_JUDGE_JUDGE_H_

#include <functional>
#include <optional>
#include <string>

#include "kit/judge/floor.h"
#include "kit/judge/labels.h"
#include "kit/judge/map.h"
#include "kit/judge/rules.h"
#include "kit/judge/verdict.h"
#include "kit/tensor/tensor_source.h"

namespace vorn::kit {

struct JudgeRequest {
  TensorSource actual;
  TensorSource expected;
  Map map;
  Rules rules;
  std::vector<OutputLabels> labels;
  size_t worst = 5;                 ///< elements shown an output
  std::optional<std::string> only;  ///< a glob: outputs of other names are left out
  /// All outputs are put into the order of the graph. What one side alone has is no fault, and
  /// causes are looked for of the first that is wrong.
  bool isInside = false;
  /// A reference of reduced precision, of the same samples as the expected side and with its names.
  std::optional<TensorSource> floor;
  double mostOverFloor = kFloorRatio;
};

/// Holds a block of each side in memory, and of each sample a sketch; of the few whose cause is
/// looked for both tensors. Throws a Fault of kInput for files that cannot be read. `onProgress`,
/// if there is one, is called behind each sample with how many are done and how many there are.
[[nodiscard]] Verdict Judge(const JudgeRequest& request,
                            const std::function<void(size_t, size_t)>& onProgress = {});

}  // namespace vorn::kit

#endif  // VORN_KIT_JUDGE_JUDGE_H_
