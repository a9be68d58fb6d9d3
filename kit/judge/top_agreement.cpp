#include "kit/judge/top_agreement.h"

#include <algorithm>
#include <cmath>

namespace vorn::kit {

void TopFive::Take(float value, uint64_t index) {
  if (std::isnan(value) || (count_ == values_.size() && !(value > values_.back()))) return;
  size_t at = count_ < values_.size() ? count_++ : count_ - 1;
  for (; at > 0 && value > values_[at - 1]; --at) {
    values_[at] = values_[at - 1];
    indices_[at] = indices_[at - 1];
  }
  values_[at] = value;
  indices_[at] = index;
}

bool TopFive::Holds(uint64_t index) const {
  const auto* end = indices_.begin() + count_;
  return std::find(indices_.begin(), end, index) != end;
}

void TopAgreement::Merge(const TopAgreement& other) {
  items += other.items;
  top1 += other.top1;
  top5 += other.top5;
  tied1 += other.tied1;
  tied5 += other.tied5;
  pairsLeftOut += other.pairsLeftOut;
  for (const auto& [pair, count] : other.pairs) TakePair(pair, count);
}

void TopAgreement::TakePair(const std::pair<uint64_t, uint64_t>& pair, uint64_t count) {
  const auto at = pairs.find(pair);
  if (at != pairs.end()) {
    at->second += count;
  } else if (pairs.size() < kMostPairs) {
    pairs.emplace(pair, count);
  } else {
    pairsLeftOut += count;
  }
}

void TopAgreementTaker::Take(std::span<const float> actual, std::span<const float> expected) {
  for (size_t i = 0; i < actual.size(); ++i) {
    actual_.Take(actual[i], at_);
    TakeExpected(actual[i], expected[i]);
    sum_ += static_cast<double>(expected[i]);
    isAnyNegative_ = isAnyNegative_ || expected[i] < 0;
    if (++at_ == classes_) EndItem();
  }
}

void TopAgreementTaker::TakeExpected(float actual, float expected) {
  if (std::isnan(expected)) return;
  if (!isAnyExpected_ || expected > mostExpected_) {
    isAnyExpected_ = true;
    mostExpected_ = expected;
    expectedClass_ = at_;
    actualThere_ = actual;
  } else if (expected == mostExpected_) {
    actualThere_ = std::fmax(actualThere_, actual);  // a number before a NaN
  }
}

void TopAgreementTaker::EndItem() {
  constexpr double kSlack = 0.01;
  if (!isAnyNegative_ && std::abs(sum_ - 1) <= kSlack && isAnyExpected_) {
    ++agreement_.items;
    if (actual_.Count() > 0) {
      const bool isFirst = actual_.Index(0) == expectedClass_;
      const bool isHeld = actual_.Holds(expectedClass_);
      const bool isTied = !isFirst && actualThere_ == actual_.Value(0);
      agreement_.top1 += isFirst ? 1 : 0;
      agreement_.top5 += isHeld ? 1 : 0;
      agreement_.tied1 += isTied ? 1 : 0;
      agreement_.tied5 += !isHeld && actualThere_ >= actual_.Value(actual_.Count() - 1) ? 1 : 0;
      if (!isTied) agreement_.TakePair({expectedClass_, actual_.Index(0)}, 1);
    }
  }
  actual_ = {};
  isAnyExpected_ = false;
  at_ = 0;
  sum_ = 0;
  isAnyNegative_ = false;
}

std::optional<uint64_t> ClassesOf(const Shape& shape) {
  constexpr uint64_t kMostClasses = 100000;
  uint64_t classes = 1;
  for (size_t axis = shape.size() > 1 ? 1 : 0; axis < shape.size(); ++axis) {
    if (shape[axis] == 1) continue;
    if (classes != 1) return std::nullopt;
    classes = shape[axis];
  }
  if (classes < 2 || classes > kMostClasses) return std::nullopt;
  return classes;
}

}  // namespace vorn::kit
