// Why a tensor is not what was expected, in plain words, and how sure that is.
#ifndef VORN_KIT_JUDGE_CAUSE_H_
#define VORN_KIT_JUDGE_CAUSE_H_

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "kit/judge/census.h"
#include "kit/tensor/stored_tensor.h"

namespace vorn::kit {

/// Two tensors of as many elements that differ, and what is known around them.
struct CauseQuestion {
  std::span<const float> actual;
  std::span<const float> expected;
  Shape shape;  ///< of both; empty or of one dimension where it is not known
  Tolerance tolerance;

  /// What was expected of the sample before, and of another one that this looks like; empty where
  /// there is none.
  std::span<const float> before;
  std::span<const float> former;  ///< what came of the sample before, on the actual side
  std::span<const float> other;
  std::optional<uint64_t> sample;  ///< its own number, where it is one of several
  std::optional<uint64_t> otherSample;

  double reach = 0;  ///< the greatest magnitude that was expected of any sample; 0 if not known
};

struct Cause {
  std::string id;        ///< "rounded-float16"; the same for ever
  std::string text;      ///< for people, without a full stop
  double certainty = 0;  ///< 0 to 1: the share of what differs that this explains, less what was
                         ///< given way to noise
  int neighbour = 0;     ///< the output of the sample before (-1) or behind (1); 0: of none of them
};

/// Of a certainty: "explains all that differs", "explains at least 90 % of what differs".
[[nodiscard]] std::string ExplainedText(double certainty);

/// Likely causes, the likeliest first, at most three; none where nothing known explains enough.
[[nodiscard]] std::vector<Cause> FindCauses(const CauseQuestion& question);

}  // namespace vorn::kit

#endif  // VORN_KIT_JUDGE_CAUSE_H_
