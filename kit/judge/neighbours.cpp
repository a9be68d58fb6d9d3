#include "kit/judge/neighbours.h"

#include <algorithm>
#include <optional>

#include "kit/common/number_ranges.h"

namespace vorn::kit {
namespace {

constexpr size_t kFewestInStretch = 4;
constexpr size_t kMostRightBetween = 16;  // of samples that belong to one stretch

// Whose output a sample holds, if the pattern does: of exchanged ones `parity` is that of the first
// of each pair.
struct Supposed {
  NeighbourPattern pattern = NeighbourPattern::kEither;
  uint64_t parity = 0;

  // Of kEither those that come into question.
  [[nodiscard]] std::vector<uint64_t> Others(uint64_t sample) const {
    const bool isFirst = sample % 2 == parity;
    const bool mayBeBefore = pattern == NeighbourPattern::kBefore ||
                             pattern == NeighbourPattern::kEither ||
                             (pattern == NeighbourPattern::kExchanged && !isFirst);
    const bool mayBeBehind = pattern == NeighbourPattern::kBehind ||
                             pattern == NeighbourPattern::kEither ||
                             (pattern == NeighbourPattern::kExchanged && isFirst);
    std::vector<uint64_t> others;
    if (mayBeBefore && sample > 0) others.push_back(sample - 1);
    if (mayBeBehind) others.push_back(sample + 1);
    return others;
  }
};

class StretchFinder {
 public:
  StretchFinder(const std::map<uint64_t, int>& wrong, const std::vector<uint64_t>& right,
                const WouldPass& wouldPass)
      : wrong_(wrong), right_(right), wouldPass_(wouldPass) {}

  NeighbourStretch Take(const std::vector<uint64_t>& told) const {
    const Supposed supposed = SupposedOf(told);
    NeighbourStretch stretch;
    stretch.pattern = supposed.pattern;
    const uint64_t first = told.front();
    const uint64_t last = told.back();
    // Of many that are wrong some alone were looked into.
    for (auto at = wrong_.find(first); at != wrong_.end() && at->first <= last; ++at) {
      if (at->second != 0 || WouldPassForAny(supposed, at->first).value_or(false)) {
        stretch.wrong.push_back(at->first);
      }
    }
    for (auto at = std::lower_bound(right_.begin(), right_.end(), first);
         at != right_.end() && *at < last; ++at) {
      const auto would = WouldPassForAny(supposed, *at);
      if (would) (*would ? stretch.undecided : stretch.right).push_back(*at);
    }
    // It may have begun earlier, and have gone on: as far as that cannot be told.
    const auto isOpen = [&](uint64_t sample) {
      return std::binary_search(right_.begin(), right_.end(), sample) &&
             WouldPassForAny(supposed, sample).value_or(false);
    };
    for (uint64_t by = 1; by <= kMostRightBetween && by <= first && isOpen(first - by); ++by) {
      stretch.undecided.push_back(first - by);
    }
    for (uint64_t by = 1; by <= kMostRightBetween && isOpen(last + by); ++by) {
      stretch.undecided.push_back(last + by);
    }
    std::sort(stretch.undecided.begin(), stretch.undecided.end());
    return stretch;
  }

 private:
  [[nodiscard]] std::optional<bool> WouldPassForAny(const Supposed& supposed,
                                                    uint64_t sample) const {
    std::optional<bool> would;
    for (const uint64_t other : supposed.Others(sample)) {
      const auto one = wouldPass_(sample, other);
      if (one) would = would.value_or(false) || *one;
    }
    return would;
  }

  // The pattern that nearly all fit. A single cause tells less: where the one before and the one
  // behind have the same answer, it tells of either.
  [[nodiscard]] Supposed SupposedOf(const std::vector<uint64_t>& samples) const {
    constexpr double kNearlyAll = 0.9;
    size_t most = 0;
    Supposed best;
    for (const Supposed& supposed :
         {Supposed{NeighbourPattern::kBefore}, Supposed{NeighbourPattern::kBehind},
          Supposed{NeighbourPattern::kExchanged, 0}, Supposed{NeighbourPattern::kExchanged, 1}}) {
      size_t fitting = 0;
      for (const uint64_t sample : samples) {
        for (const uint64_t other : supposed.Others(sample)) {
          const int direction = other < sample ? -1 : 1;
          fitting += wrong_.at(sample) == direction || wouldPass_(sample, other).value_or(false);
        }
      }
      if (fitting <= most) continue;
      most = fitting;
      best = supposed;
    }
    const bool areNearlyAll =
        static_cast<double>(most) >= kNearlyAll * static_cast<double>(samples.size());
    return areNearlyAll ? best : Supposed{};
  }

  const std::map<uint64_t, int>& wrong_;
  const std::vector<uint64_t>& right_;
  const WouldPass& wouldPass_;
};

// Beside which of them they stand: the sentence is read behind others.
std::string WhereText(const NeighbourStretch& stretch) {
  const auto isAmong = [&](uint64_t sample) {
    return sample > stretch.wrong.front() && sample < stretch.wrong.back();
  };
  const auto& undecided = stretch.undecided;
  if (std::all_of(undecided.begin(), undecided.end(), isAmong)) return " among ";
  if (std::none_of(undecided.begin(), undecided.end(), isAmong)) return " beside ";
  return " among and beside ";
}

}  // namespace

std::string_view NeighbourPatternName(NeighbourPattern pattern) {
  switch (pattern) {
    case NeighbourPattern::kExchanged:
      return "exchanged";
    case NeighbourPattern::kBefore:
      return "before";
    case NeighbourPattern::kBehind:
      return "behind";
    case NeighbourPattern::kEither:
      break;
  }
  return "either";
}

NeighbourPattern NeighbourPatternOf(std::string_view name) {
  for (const NeighbourPattern pattern :
       {NeighbourPattern::kExchanged, NeighbourPattern::kBefore, NeighbourPattern::kBehind}) {
    if (NeighbourPatternName(pattern) == name) return pattern;
  }
  return NeighbourPattern::kEither;
}

std::vector<NeighbourStretch> FindStretches(const std::map<uint64_t, int>& wrong,
                                            const std::vector<uint64_t>& right,
                                            const WouldPass& wouldPass) {
  const StretchFinder finder(wrong, right, wouldPass);
  std::vector<NeighbourStretch> stretches;
  std::vector<uint64_t> samples;
  const auto end = [&] {
    if (samples.size() >= kFewestInStretch) stretches.push_back(finder.Take(samples));
    samples.clear();
  };
  for (const auto& [sample, direction] : wrong) {
    if (direction == 0) continue;
    if (!samples.empty()) {
      const auto from = std::lower_bound(right.begin(), right.end(), samples.back());
      const auto to = std::lower_bound(from, right.end(), sample);
      if (to - from > static_cast<ptrdiff_t>(kMostRightBetween)) end();
    }
    samples.push_back(sample);
  }
  end();
  return stretches;
}

std::string StretchText(const NeighbourStretch& stretch) {
  if (stretch.pattern == NeighbourPattern::kEither) return {};
  if (stretch.pattern == NeighbourPattern::kBefore) {
    return "each holds what belongs to the sample before it";
  }
  if (stretch.pattern == NeighbourPattern::kBehind) {
    return "each holds what belongs to the sample behind it";
  }
  // Of the first two that are each other's.
  const auto& wrong = stretch.wrong;
  const auto pair = std::adjacent_find(wrong.begin(), wrong.end(),
                                       [](uint64_t one, uint64_t next) { return next == one + 1; });
  std::string text = "each holds the output of its neighbour";
  if (pair == wrong.end()) return text;
  const std::string one = std::to_string(*pair);
  const std::string other = std::to_string(*pair + 1);
  return text + ", " + one + " that of " + other + " and " + other + " that of " + one +
         ", and so on by pairs";
}

std::vector<std::string> PassingTexts(const NeighbourStretch& stretch) {
  constexpr size_t kMostPlaces = 12;
  const auto who = [](const std::vector<uint64_t>& samples) {
    return (samples.size() == 1 ? "sample " : "samples ") + RangesText(samples, kMostPlaces);
  };
  const bool isExchange = stretch.pattern == NeighbourPattern::kExchanged;
  const std::string these =
      isExchange ? "the exchanged ones" : "those that hold a neighbour's output";
  std::vector<std::string> texts;
  if (!stretch.undecided.empty()) {
    const bool isOne = stretch.undecided.size() == 1;
    const char* what = isExchange ? (isOne ? " was exchanged" : " were exchanged")
                                  : (isOne ? " holds one" : " hold one");
    texts.push_back("Whether " + who(stretch.undecided) + WhereText(stretch) + these + what +
                    ", too, cannot be decided: " +
                    (isOne ? "the neighbour's output is" : "their neighbours' outputs are") +
                    " alike, and what came passes as either.");
  }
  if (!stretch.right.empty()) {
    const bool isOne = stretch.right.size() == 1;
    std::string text = who(stretch.right);
    text[0] = 'S';
    texts.push_back(text + " among " + these + (isOne ? " is" : " are") +
                    " right: what came is not " +
                    (isOne ? "the neighbour's." : "their neighbours'."));
  }
  return texts;
}

}  // namespace vorn::kit
