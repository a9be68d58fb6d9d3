// What is counted and measured of one tensor against another, without holding either.
#ifndef VORN_KIT_JUDGE_CENSUS_H_
#define VORN_KIT_JUDGE_CENSUS_H_

#include <array>
#include <cstdint>
#include <limits>
#include <span>
#include <vector>

namespace vorn::kit {

/// An element is within if |actual − expected| ≤ atol + rtol · |expected|, in double. Infinities
/// have to be equal. A NaN is outside, also beside another, unless `isNanExpected` and both are.
struct Tolerance {
  double atol = 0;
  double rtol = 0;
  bool isNanExpected = false;
};

/// How far pairs of floats are apart, counted in floats between them.
///
/// Distances up to 16 are told apart, beyond that the eighths of each power of two.
class UlpHistogram {
 public:
  static constexpr size_t kBuckets = 256;

  void Add(size_t bucket, uint64_t count) { counts_[bucket] += count; }
  void Merge(const UlpHistogram& other);

  /// The distance that the given share of all pairs does not exceed, as the least one of its
  /// bucket; 0 of none.
  [[nodiscard]] uint64_t Percentile(double share) const;

  /// The least distance of a bucket.
  [[nodiscard]] static uint64_t LeastOf(size_t bucket);

 private:
  std::array<uint64_t, kBuckets> counts_{};
};

/// Counts and sums, of one tensor or of many. "Finite" are pairs with no infinity and no NaN; all
/// measures are of these.
struct Census {
  uint64_t elements = 0;
  uint64_t equal = 0;  ///< 0 and −0 are; infinities of one sign are
  uint64_t within = 0;
  uint64_t outside = 0;  ///< with the other two all elements

  uint64_t actualNan = 0;
  uint64_t expectedNan = 0;
  uint64_t onlyActualNan = 0;
  uint64_t onlyExpectedNan = 0;
  uint64_t actualInfinite = 0;
  uint64_t expectedInfinite = 0;
  uint64_t onlyActualInfinite = 0;
  uint64_t onlyExpectedInfinite = 0;
  uint64_t oppositeInfinite = 0;

  uint64_t finite = 0;
  double maxAbs = 0;
  double sumAbs = 0;
  double sumSquares = 0;  ///< of the differences
  double sumActualSquares = 0;
  double sumExpectedSquares = 0;
  double sumProducts = 0;
  float leastExpected = std::numeric_limits<float>::infinity();
  float greatestExpected = -std::numeric_limits<float>::infinity();

  /// By the exponent of the expected value, which is what tells where it matters.
  std::array<float, 256> maxRelByExponent{};

  uint32_t maxUlp = 0;
  UlpHistogram ulp;

  void Merge(const Census& other);

  /// No number where no finite pair was met: nothing was compared.
  [[nodiscard]] double MeanAbs() const;
  [[nodiscard]] double Rmse() const;
  /// Greatest |difference| / |expected| where |expected| has at least a 1024th of the greatest
  /// one's magnitude, as powers of two.
  [[nodiscard]] double MaxRel() const;
  /// 1 if both are zero, 0 if one is.
  [[nodiscard]] double Cosine() const;
  /// In dB; infinite if there is no difference. The signal is the expected tensor, its peak the
  /// distance of its greatest and least value.
  [[nodiscard]] double Snr() const;
  /// Of two that are equal no more than float32 can hold, 150.5 dB, and no less than that below 0:
  /// from equal to rounded otherwise is a step that tells nothing.
  [[nodiscard]] double CappedSnr() const;
  [[nodiscard]] double Psnr() const;
};

/// One pair of elements.
struct Difference {
  uint64_t index = 0;  ///< in the order in which they were taken
  float actual = 0;
  float expected = 0;
  double size = 0;  ///< |actual − expected|; infinite where one is no number or infinite
};

/// Takes the census of one pair of tensors, block by block.
class CensusTaker {
 public:
  /// Keeps the `worst` greatest differences of elements that are outside.
  CensusTaker(const Tolerance& tolerance, size_t worst) : tolerance_(tolerance), most_(worst) {}

  /// The next elements of both, as many of one as of the other.
  void Take(std::span<const float> actual, std::span<const float> expected);

  [[nodiscard]] const Census& Result() const { return census_; }

  /// The greatest first, of equal ones the first.
  [[nodiscard]] std::vector<Difference> Worst() const;

 private:
  void TakeChunk(std::span<const float> actual, std::span<const float> expected);
  bool TakeUnusual(float actual, float expected);
  void NoteWorst(std::span<const float> actual, std::span<const float> expected);

  Tolerance tolerance_;
  size_t most_;
  Census census_;
  uint64_t taken_ = 0;
  std::vector<Difference> worst_;  ///< a heap, the least of them first
};

}  // namespace vorn::kit

#endif  // VORN_KIT_JUDGE_CENSUS_H_
