// Samples that hold the output of the one before or the one behind, as a whole stretch of them: and
// what can be told of those between them that are right.
//
// Where neighbours are exchanged and two of them have the same answer, both pass: that they are not
// wrong does not tell that they were not exchanged.
#ifndef VORN_KIT_JUDGE_NEIGHBOURS_H_
#define VORN_KIT_JUDGE_NEIGHBOURS_H_

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vorn::kit {

enum class NeighbourPattern {
  kExchanged,  ///< by pairs: each holds what belongs to the other
  kBefore,     ///< each holds what belongs to the one before
  kBehind,     ///< each holds what belongs to the one behind
  kEither,     ///< some this, some that
};

/// "exchanged", "before", "behind", "either".
[[nodiscard]] std::string_view NeighbourPatternName(NeighbourPattern pattern);
/// Of another name kEither, of which the least is said.
[[nodiscard]] NeighbourPattern NeighbourPatternOf(std::string_view name);

/// All rising.
struct NeighbourStretch {
  NeighbourPattern pattern = NeighbourPattern::kEither;
  std::vector<uint64_t> wrong;  ///< of which a neighbour's output is the likeliest cause
  /// Between them, or right at the ends: they pass, and would with the neighbour's output, too.
  std::vector<uint64_t> undecided;
  std::vector<uint64_t> right;  ///< between them: they pass, and with the neighbour's would not
};

/// `wrong`: samples that are wrong, with -1 where the likeliest cause is that they hold what
/// belongs to the one before, 1 to the one behind, 0 where it is another one or is not known.
/// `right`: of the others those that were found right, rising. `wouldPass` tells whether a sample
/// would pass for what is expected of another one; nothing where it cannot. Fewer than four are no
/// stretch.
using WouldPass = std::function<std::optional<bool>(uint64_t sample, uint64_t other)>;
[[nodiscard]] std::vector<NeighbourStretch> FindStretches(const std::map<uint64_t, int>& wrong,
                                                          const std::vector<uint64_t>& right,
                                                          const WouldPass& wouldPass);

/// What is wrong with all of them, as half a sentence: "each holds the output of its neighbour, 80
/// that of 81 and 81 that of 80, and so on by pairs", "each holds what belongs to the sample
/// before it". Empty of kEither.
[[nodiscard]] std::string StretchText(const NeighbourStretch& stretch);

/// About those that pass: a sentence of the undecided ones, and one of the right ones; none where
/// there are none.
[[nodiscard]] std::vector<std::string> PassingTexts(const NeighbourStretch& stretch);

}  // namespace vorn::kit

#endif  // VORN_KIT_JUDGE_NEIGHBOURS_H_
