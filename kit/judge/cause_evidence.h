// How well a supposed cause explains what is there.
//
// A supposition tells of each element what should stand there if it holds, or that it does not
// know. It is believed where nearly all of these elements are as told, and where that explains most
// of what the plain expectation does not. Elements are compared three times, from nearly the same
// bits to the noise of 8-bit arithmetic, and the strictest level at which it holds counts: a cause
// together with coarse arithmetic is found, and near zeros do not pass for alike where the bits
// tell them apart. And it has to take away most of the difference itself: where hardly anything was
// expected nearly everything explains it within the noise.
#ifndef VORN_KIT_JUDGE_CAUSE_EVIDENCE_H_
#define VORN_KIT_JUDGE_CAUSE_EVIDENCE_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "kit/judge/cause.h"

namespace vorn::kit {

inline constexpr size_t kLevels = 3;

/// Compares elements at each level.
class Likeness {
 public:
  /// `values`: what the noise is in proportion to. What the rules let pass is alike at the last
  /// level at least.
  explicit Likeness(std::span<const float> values, const Tolerance& tolerance = {});

  /// The strictest level at which both are alike; kLevels if they are not. NaN is like NaN.
  [[nodiscard]] size_t LevelOf(float one, float other) const;
  [[nodiscard]] bool AreAlike(float one, float other) const {
    return LevelOf(one, other) < kLevels;
  }

 private:
  Tolerance tolerance_;
  double scale_ = 0;  ///< root of the mean square of all finite values
};

struct Evidence {
  size_t level = 0;
  double explained = 0;  ///< share of what the plain expectation leaves unexplained
  double told = 0;       ///< share of elements that the supposition knows
};

/// Of two sides, what stands there and what the supposition tells, by element.
struct Told {
  float is = 0;
  float should = 0;
};

/// Weighs suppositions about one question.
class Scales {
 public:
  explicit Scales(const CauseQuestion& question);

  [[nodiscard]] const Likeness& Usual() const { return likeness_; }

  /// `told` gives the pair of an element, or nothing where it does not know. Empty where the
  /// supposition is not to be believed.
  [[nodiscard]] std::optional<Evidence> Weigh(
      const Likeness& likeness,
      const std::function<std::optional<Told>(uint64_t element)>& told) const;

  /// How many suppositions were likely enough to be held against all elements.
  [[nodiscard]] uint64_t WholeWeighed() const { return wholeWeighed_; }

 private:
  const CauseQuestion& question_;
  Likeness likeness_;
  mutable uint64_t wholeWeighed_ = 0;
  std::vector<uint64_t> differing_;  ///< some of the elements that are not as expected, by place
};

/// A cause of this evidence.
[[nodiscard]] Cause MakeCause(const char* id, std::string text, const Evidence& evidence);

/// The detectors of one kind each; they append what they find.
void FindOrderCauses(const CauseQuestion& question, const Scales& scales,
                     std::vector<Cause>& causes);
void FindChannelCauses(const CauseQuestion& question, const Scales& scales,
                       std::vector<Cause>& causes);
void FindValueCauses(const CauseQuestion& question, const Scales& scales,
                     std::vector<Cause>& causes);
void FindRounding(const CauseQuestion& question, std::vector<Cause>& causes);

/// For what nothing else explains: whether the values are such as a shorter type holds, however far
/// from the expected ones.
void FindShortType(const CauseQuestion& question, std::vector<Cause>& causes);

}  // namespace vorn::kit

#endif  // VORN_KIT_JUDGE_CAUSE_EVIDENCE_H_
