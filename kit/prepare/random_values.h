// Random numbers that are the same on every machine and with every compiler.
//
// One series an input and sample: the words of xoshiro256**, whose state is four words of
// SplitMix64 that begins with a mixture of the seed, the input's name and the sample's index. A
// sample's numbers so depend on nothing else: not on how many samples there are, nor on which
// thread makes them.
//
// A fraction u is the upper 53 bits of a word, from 0 to below 1.
//
//     uniform   low + (high - low) * u
//     normal    Marsaglia's polar method, two numbers a pair of fractions that is taken
//     integers  the fewest upper bits of a word that can hold the range, until they lie in it
//     bool      1 where u < share, else 0
//
// Nothing of this is left to the C library, whose logarithms differ in the last bit: beside the
// four rules of arithmetic there is a square root, which IEEE 754 fixes as it fixes those.
#ifndef VORN_KIT_PREPARE_RANDOM_VALUES_H_
#define VORN_KIT_PREPARE_RANDOM_VALUES_H_

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "kit/json/json.h"

namespace vorn::kit {

/// What a person asks for.
struct RandomRecipe {
  enum class Distribution { kUniform, kNormal, kIntegers, kBool };
  Distribution distribution = Distribution::kUniform;
  double low = 0;        ///< kUniform: included; kIntegers: included, a whole number
  double high = 1;       ///< kUniform: left out, as far as doubles go; kIntegers: included
  double mean = 0;       ///< kNormal
  double deviation = 1;  ///< kNormal; 0 for the mean alone
  double share = 0.5;    ///< kBool: of ones, from 0 to 1
  uint64_t seed = 0;
  /// The name that takes the input's place in the mixture, for the numbers of another input.
  std::optional<std::string> series{};
};

/// Of {"distribution": "uniform", "low": 0, "high": 1, "seed": 0} and so on, and "series" with any
/// of them; only "distribution" has to be there, and "low" and "high" of integers, which lie
/// between -2^53 and 2^53. Throws a JsonError.
[[nodiscard]] RandomRecipe ParseRandomRecipe(const Json& object);

/// With everything that counts, whether it was asked for or not.
[[nodiscard]] Json ToJson(const RandomRecipe& recipe);

/// xoshiro256** 1.0 of David Blackman and Sebastiano Vigna.
class RandomWords {
 public:
  /// The state as it is; not all of it 0.
  explicit RandomWords(const std::array<uint64_t, 4>& state) : state_(state) {}

  [[nodiscard]] uint64_t Next();

 private:
  std::array<uint64_t, 4> state_;
};

/// The next word of SplitMix64, whose state goes on.
[[nodiscard]] uint64_t NextSplitMix(uint64_t& state);

/// The words of one sample's input.
[[nodiscard]] RandomWords WordsFor(uint64_t seed, std::string_view input, uint64_t sample);

/// The numbers of one sample's input. Each is a double; integers and bools are whole ones.
class RandomSeries {
 public:
  RandomSeries(const RandomRecipe& recipe, std::string_view input, uint64_t sample);

  [[nodiscard]] double Next();

  /// The next numbers, as many as there is room: pieces of any size give the same series.
  void Fill(std::span<double> room);

 private:
  double Fraction();
  double Normal();
  double Integer();

  RandomRecipe recipe_;
  RandomWords words_;
  std::optional<double> second_;  ///< of a pair of normal numbers
};

}  // namespace vorn::kit

#endif  // VORN_KIT_PREPARE_RANDOM_VALUES_H_
