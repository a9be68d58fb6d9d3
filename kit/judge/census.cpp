#include "kit/judge/census.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include "kit/judge/census_kernel.h"

namespace vorn::kit {
namespace {

constexpr double kNoNumber = std::numeric_limits<double>::quiet_NaN();

bool IsGreater(const Difference& one, const Difference& other) {
  return one.size != other.size ? one.size > other.size : one.index < other.index;
}

double SizeOf(float actual, float expected) {
  if (!std::isfinite(actual) || !std::isfinite(expected)) {
    return std::numeric_limits<double>::infinity();
  }
  return std::abs(static_cast<double>(actual) - static_cast<double>(expected));
}

bool IsOutside(const Tolerance& tolerance, float actual, float expected) {
  if (std::isnan(actual) || std::isnan(expected)) {
    return !(tolerance.isNanExpected && std::isnan(actual) && std::isnan(expected));
  }
  if (std::isinf(actual) || std::isinf(expected)) return actual != expected;
  const double allowed = tolerance.atol + tolerance.rtol * std::abs(static_cast<double>(expected));
  return SizeOf(actual, expected) > allowed;
}

}  // namespace

uint64_t UlpHistogram::LeastOf(size_t bucket) {
  if (bucket == 0) return 0;
  const auto power = static_cast<int>((bucket - 1) / 8);
  const auto eighths = static_cast<double>((bucket - 1) % 8);
  return static_cast<uint64_t>(std::ceil(std::ldexp(1 + eighths / 8, power)));
}

void UlpHistogram::Merge(const UlpHistogram& other) {
  for (size_t i = 0; i < kBuckets; ++i) counts_[i] += other.counts_[i];
}

uint64_t UlpHistogram::Percentile(double share) const {
  uint64_t all = 0;
  for (const uint64_t count : counts_) all += count;
  const auto wanted = static_cast<uint64_t>(std::ceil(share * static_cast<double>(all)));
  uint64_t passed = 0;
  for (size_t i = 0; i < kBuckets; ++i) {
    passed += counts_[i];
    if (passed >= std::max<uint64_t>(wanted, 1)) return LeastOf(i);
  }
  return 0;
}

void Census::Merge(const Census& other) {
  elements += other.elements;
  equal += other.equal;
  within += other.within;
  outside += other.outside;
  actualNan += other.actualNan;
  expectedNan += other.expectedNan;
  onlyActualNan += other.onlyActualNan;
  onlyExpectedNan += other.onlyExpectedNan;
  actualInfinite += other.actualInfinite;
  expectedInfinite += other.expectedInfinite;
  onlyActualInfinite += other.onlyActualInfinite;
  onlyExpectedInfinite += other.onlyExpectedInfinite;
  oppositeInfinite += other.oppositeInfinite;
  finite += other.finite;
  maxAbs = std::max(maxAbs, other.maxAbs);
  sumAbs += other.sumAbs;
  sumSquares += other.sumSquares;
  sumActualSquares += other.sumActualSquares;
  sumExpectedSquares += other.sumExpectedSquares;
  sumProducts += other.sumProducts;
  leastExpected = std::min(leastExpected, other.leastExpected);
  greatestExpected = std::max(greatestExpected, other.greatestExpected);
  for (size_t i = 0; i < maxRelByExponent.size(); ++i) {
    maxRelByExponent[i] = std::max(maxRelByExponent[i], other.maxRelByExponent[i]);
  }
  maxUlp = std::max(maxUlp, other.maxUlp);
  ulp.Merge(other.ulp);
}

double Census::MeanAbs() const {
  return finite == 0 ? kNoNumber : sumAbs / static_cast<double>(finite);
}

double Census::Rmse() const {
  return finite == 0 ? kNoNumber : std::sqrt(sumSquares / static_cast<double>(finite));
}

double Census::MaxRel() const {
  if (finite == 0) return kNoNumber;
  constexpr size_t kPowersBelow = 10;
  const float greatest = std::max(std::abs(leastExpected), std::abs(greatestExpected));
  const size_t top = std::bit_cast<uint32_t>(greatest) >> 23;
  float most = 0;
  for (size_t i = std::max(top, kPowersBelow + 1) - kPowersBelow; i <= top; ++i) {
    most = std::max(most, maxRelByExponent[i]);
  }
  return static_cast<double>(most);
}

double Census::Cosine() const {
  if (finite == 0) return kNoNumber;
  if (sumActualSquares == 0 && sumExpectedSquares == 0) return 1;
  if (sumActualSquares == 0 || sumExpectedSquares == 0) return 0;
  return std::clamp(sumProducts / std::sqrt(sumActualSquares * sumExpectedSquares), -1.0, 1.0);
}

double Census::Snr() const {
  if (finite == 0) return kNoNumber;
  if (sumSquares == 0) return std::numeric_limits<double>::infinity();
  return 10 * std::log10(sumExpectedSquares / sumSquares);
}

double Census::CappedSnr() const {
  constexpr double kMost = 150.5;  // 20 · log10(2^25): the last bit is that far below its value
  return std::max(-kMost, std::min(Snr(), kMost));
}

double Census::Psnr() const {
  if (finite == 0) return kNoNumber;
  if (sumSquares == 0) return std::numeric_limits<double>::infinity();
  const double peak = static_cast<double>(greatestExpected) - static_cast<double>(leastExpected);
  return 20 * std::log10(peak / Rmse());
}

void CensusTaker::Take(std::span<const float> actual, std::span<const float> expected) {
  for (size_t at = 0; at < actual.size(); at += kCensusChunk) {
    const size_t count = std::min(kCensusChunk, actual.size() - at);
    TakeChunk(actual.subspan(at, count), expected.subspan(at, count));
    taken_ += count;
  }
}

void CensusTaker::TakeChunk(std::span<const float> actual, std::span<const float> expected) {
  census_.elements += actual.size();
  const uint64_t outsideBefore = census_.outside;
  double greatest = 0;
  if (AreAllFinite(actual.data(), actual.size()) &&
      AreAllFinite(expected.data(), expected.size())) {
    greatest = AddFinitePairs(tolerance_, actual.data(), expected.data(), actual.size(), census_);
  } else {
    std::array<float, kCensusChunk> finiteActual;
    std::array<float, kCensusChunk> finiteExpected;
    size_t count = 0;
    for (size_t i = 0; i < actual.size(); ++i) {
      if (TakeUnusual(actual[i], expected[i])) continue;
      finiteActual[count] = actual[i];
      finiteExpected[count++] = expected[i];
    }
    AddFinitePairs(tolerance_, finiteActual.data(), finiteExpected.data(), count, census_);
    greatest = std::numeric_limits<double>::infinity();
  }
  const bool hasRoom = worst_.size() < most_;
  if (census_.outside > outsideBefore && most_ > 0 && (hasRoom || greatest > worst_.front().size)) {
    NoteWorst(actual, expected);
  }
}

// Counts a pair with an infinity or a NaN; false for a pair of finite numbers.
bool CensusTaker::TakeUnusual(float actual, float expected) {
  if (std::isfinite(actual) && std::isfinite(expected)) return false;
  const bool isActualNan = std::isnan(actual);
  const bool isExpectedNan = std::isnan(expected);
  census_.actualNan += isActualNan ? 1 : 0;
  census_.expectedNan += isExpectedNan ? 1 : 0;
  census_.onlyActualNan += isActualNan && !isExpectedNan ? 1 : 0;
  census_.onlyExpectedNan += isExpectedNan && !isActualNan ? 1 : 0;
  const bool isActualInfinite = std::isinf(actual);
  const bool isExpectedInfinite = std::isinf(expected);
  census_.actualInfinite += isActualInfinite ? 1 : 0;
  census_.expectedInfinite += isExpectedInfinite ? 1 : 0;
  census_.onlyActualInfinite += isActualInfinite && !isExpectedInfinite ? 1 : 0;
  census_.onlyExpectedInfinite += isExpectedInfinite && !isActualInfinite ? 1 : 0;
  census_.oppositeInfinite += isActualInfinite && isExpectedInfinite && actual != expected ? 1 : 0;
  if (actual == expected) {
    ++census_.equal;
  } else if (IsOutside(tolerance_, actual, expected)) {
    ++census_.outside;
  } else {
    ++census_.within;
  }
  return true;
}

void CensusTaker::NoteWorst(std::span<const float> actual, std::span<const float> expected) {
  for (size_t i = 0; i < actual.size(); ++i) {
    if (actual[i] == expected[i] || !IsOutside(tolerance_, actual[i], expected[i])) continue;
    const Difference found{taken_ + i, actual[i], expected[i], SizeOf(actual[i], expected[i])};
    if (worst_.size() == most_) {
      if (!IsGreater(found, worst_.front())) continue;
      std::pop_heap(worst_.begin(), worst_.end(), IsGreater);
      worst_.pop_back();
    }
    worst_.push_back(found);
    std::push_heap(worst_.begin(), worst_.end(), IsGreater);
  }
}

std::vector<Difference> CensusTaker::Worst() const {
  std::vector<Difference> worst = worst_;
  std::sort(worst.begin(), worst.end(), IsGreater);
  return worst;
}

}  // namespace vorn::kit
