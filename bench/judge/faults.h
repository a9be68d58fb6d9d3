// Faults planted into outputs that networks really gave, to find out how often their cause is
// named: the truth is known.
#ifndef VORN_BENCH_JUDGE_FAULTS_H_
#define VORN_BENCH_JUDGE_FAULTS_H_

#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "kit/judge/cause.h"
#include "kit/tensor/element_type.h"

namespace vorn::bench {

/// An output of several samples.
struct RealOutput {
  std::string name;
  kit::Shape shape;  ///< of one sample, the batch of 1 in front
  /// Of the output. One of 8 bits is quantised: its values are whole numbers of steps.
  kit::ElementType type = kit::ElementType::kFloat32;
  std::vector<std::vector<float>> samples;

  /// The greatest magnitude of all samples.
  [[nodiscard]] double Reach() const;
};

/// What the output's type is held to: a step, where it is quantised.
[[nodiscard]] kit::Tolerance ToleranceOf(const RealOutput& output);

/// The arrays of a file, or of all files of a folder, whose first dimension is that of samples.
[[nodiscard]] std::vector<RealOutput> ReadOutputs(const std::string& path);

struct PlantedFault {
  std::string id;  ///< of the cause; kHonest where there is none
  kit::Shape shape;
  std::vector<float> actual;
  std::vector<float> expected;
  std::vector<float> before;
  std::vector<float> other;
  std::vector<std::string> alsoRight;  ///< faults that lead to the same values
};

/// Differences that every other machine or library makes: no cause is to be named.
inline constexpr const char* kHonest = "(honest)";
inline constexpr const char* kNone = "(none)";

/// Each kind of fault once, with its places and sizes drawn by chance, those without effect left
/// out: an exchange of dimensions of size 1.
[[nodiscard]] std::vector<PlantedFault> PlantFaults(const RealOutput& output,
                                                    std::mt19937_64& random);

/// What was planted, what was named, how often.
class Confusion {
 public:
  void Add(const PlantedFault& fault, const std::vector<kit::Cause>& causes);

  /// Shares of planted faults named right, and of honest differences for which a cause was named.
  [[nodiscard]] double Right() const;
  [[nodiscard]] double HonestNamed() const;

  /// A table of Markdown: a line a fault.
  [[nodiscard]] std::string Table() const;

 private:
  std::map<std::string, std::map<std::string, size_t>>
      counts_;  ///< by what was planted, then named
};

/// Plants and asks, `rounds` times over all outputs.
[[nodiscard]] Confusion Confuse(const std::vector<RealOutput>& outputs, size_t rounds,
                                uint64_t seed);

}  // namespace vorn::bench

#endif  // VORN_BENCH_JUDGE_FAULTS_H_
