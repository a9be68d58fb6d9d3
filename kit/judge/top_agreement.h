// Whether two sides name the same class, where an output holds probabilities.
#ifndef VORN_KIT_JUDGE_TOP_AGREEMENT_H_
#define VORN_KIT_JUDGE_TOP_AGREEMENT_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <utility>

#include "kit/tensor/stored_tensor.h"

namespace vorn::kit {

/// The greatest values of one item so far, of equal ones the first. NaN is never among them.
class TopFive {
 public:
  void Take(float value, uint64_t index);
  [[nodiscard]] size_t Count() const { return count_; }
  [[nodiscard]] uint64_t Index(size_t rank) const { return indices_[rank]; }
  [[nodiscard]] float Value(size_t rank) const { return values_[rank]; }
  [[nodiscard]] bool Holds(uint64_t index) const;

 private:
  std::array<float, 5> values_{};
  std::array<uint64_t, 5> indices_{};
  size_t count_ = 0;
};

/// Counted over items whose expected values are probabilities: none below 0, their sum 1 to a
/// hundredth. Of equal values the first counts as greatest. Devices that compute in few bits give
/// many equal ones; where that alone decides, an item is told apart, but does not agree: else an
/// output of one value throughout would name every class.
struct TopAgreement {
  uint64_t items = 0;
  uint64_t top1 = 0;   ///< both have their greatest at one place
  uint64_t top5 = 0;   ///< the expected greatest is among the actual five greatest
  uint64_t tied1 = 0;  ///< not so, but they would if equal values stood in another order
  uint64_t tied5 = 0;  ///< likewise
  /// Items by the expected and the actual class that is greatest, without those of tied1, of
  /// kMostPairs pairs at most, and the items of all others.
  std::map<std::pair<uint64_t, uint64_t>, uint64_t> pairs{};
  uint64_t pairsLeftOut = 0;

  static constexpr size_t kMostPairs = 100000;

  /// Counts `count` items of a pair.
  void TakePair(const std::pair<uint64_t, uint64_t>& pair, uint64_t count);

  void Merge(const TopAgreement& other);
};

/// Takes the elements of both sides in their order.
class TopAgreementTaker {
 public:
  /// `classes`: elements an item.
  explicit TopAgreementTaker(uint64_t classes) : classes_(classes) {}

  void Take(std::span<const float> actual, std::span<const float> expected);
  [[nodiscard]] const TopAgreement& Result() const { return agreement_; }

 private:
  void TakeExpected(float actual, float expected);
  void EndItem();

  uint64_t classes_;
  uint64_t at_ = 0;
  TopFive actual_;
  // The greatest that is expected, the first place that has it, and the greatest actual value of
  // all places that have it.
  float mostExpected_ = 0;
  uint64_t expectedClass_ = 0;
  float actualThere_ = 0;
  bool isAnyExpected_ = false;
  double sum_ = 0;
  bool isAnyNegative_ = false;
  TopAgreement agreement_;
};

/// How many classes a tensor of this shape can hold an item: all of its size is in one dimension
/// behind the first, or it has a single one. Empty for other shapes, and for one class or too many.
[[nodiscard]] std::optional<uint64_t> ClassesOf(const Shape& shape);

}  // namespace vorn::kit

#endif  // VORN_KIT_JUDGE_TOP_AGREEMENT_H_
