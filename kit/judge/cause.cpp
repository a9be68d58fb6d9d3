#include "kit/judge/cause.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include "kit/judge/cause_evidence.h"
#include "kit/judge/rules.h"

namespace vorn::kit {
namespace {

// |one − other| ≤ relative · max(|one|, |other|) + absolute · scale.
struct LevelRow {
  double relative;
  double absolute;
  double certainty;  ///< of what is found at this level, at most
};

constexpr std::array<LevelRow, kLevels> kLevelRows{{
    {2e-6, 0, 1},
    {2e-3, 2e-5, 0.98},
    {2e-2, 4e-3, 0.9},
}};

constexpr double kLeastAlike = 0.97;      // of the elements that a supposition knows
constexpr double kLeastExplained = 0.85;  // of those that the plain expectation does not explain
constexpr double kLeastTold = 0.45;       // of all elements
constexpr double kMostLeft = 0.35;        // of the sum of differences
constexpr size_t kQuick = 512;            // elements looked at first

}  // namespace

Likeness::Likeness(std::span<const float> values, const Tolerance& tolerance)
    : tolerance_(tolerance) {
  double sum = 0;
  size_t count = 0;
  for (const float value : values) {
    if (!std::isfinite(value)) continue;
    sum += static_cast<double>(value) * static_cast<double>(value);
    ++count;
  }
  scale_ = count == 0 ? 0 : std::sqrt(sum / static_cast<double>(count));
}

size_t Likeness::LevelOf(float one, float other) const {
  if (one == other) return 0;
  if (!std::isfinite(one) || !std::isfinite(other)) {
    return std::isnan(one) && std::isnan(other) ? 0 : kLevels;
  }
  const double a = static_cast<double>(one);
  const double b = static_cast<double>(other);
  const double apart = std::abs(a - b);
  const double size = std::max(std::abs(a), std::abs(b));
  for (size_t level = 0; level < kLevels; ++level) {
    const LevelRow& row = kLevelRows[level];
    if (apart <= row.relative * size + row.absolute * scale_) return level;
  }
  return apart <= tolerance_.atol + tolerance_.rtol * std::abs(b) ? kLevels - 1 : kLevels;
}

namespace {

struct LevelCounts {
  std::array<uint64_t, kLevels + 1> supposed{};
  std::array<uint64_t, kLevels + 1> plain{};
  uint64_t told = 0;
  double supposedSum = 0;  // of the differences, where all are finite
  double plainSum = 0;

  // Of both, how many are alike at this level or a stricter one.
  static uint64_t UpTo(const std::array<uint64_t, kLevels + 1>& counts, size_t level) {
    uint64_t sum = 0;
    for (size_t i = 0; i <= level; ++i) sum += counts[i];
    return sum;
  }
};

}  // namespace

Scales::Scales(const CauseQuestion& question)
    : question_(question), likeness_(question.expected, question.tolerance) {
  std::vector<uint64_t> all;
  for (uint64_t element = 0; element < question.actual.size(); ++element) {
    if (likeness_.LevelOf(question.actual[element], question.expected[element]) > 0) {
      all.push_back(element);
    }
  }
  // The quotient of two whole numbers does not fall into step with rows.
  const size_t some = std::min(all.size(), kQuick);
  for (size_t i = 0; i < some; ++i) differing_.push_back(all[i * all.size() / some]);
}

std::optional<Evidence> Scales::Weigh(
    const Likeness& likeness,
    const std::function<std::optional<Told>(uint64_t element)>& told) const {
  const auto look = [&](uint64_t element, LevelCounts& counts) {
    const auto pair = told(element);
    if (!pair) return;
    ++counts.told;
    ++counts.supposed[likeness.LevelOf(pair->is, pair->should)];
    const float actual = question_.actual[element];
    const float expected = question_.expected[element];
    ++counts.plain[likeness.LevelOf(actual, expected)];
    const double left = std::abs(static_cast<double>(pair->is) - static_cast<double>(pair->should));
    const double plain = std::abs(static_cast<double>(actual) - static_cast<double>(expected));
    if (!std::isfinite(left) || !std::isfinite(plain)) return;
    counts.supposedSum += left;
    counts.plainSum += plain;
  };
  // Most suppositions fall here: what differs is what they have to explain.
  constexpr double kLeastQuickly = 0.75;
  LevelCounts quick;
  for (const uint64_t element : differing_) look(element, quick);
  bool isLikely = false;
  for (size_t level = 0; level < kLevels; ++level) {
    const uint64_t supposed = LevelCounts::UpTo(quick.supposed, level);
    const uint64_t plain = LevelCounts::UpTo(quick.plain, level);
    isLikely = isLikely ||
               (supposed > plain && static_cast<double>(supposed - plain) >
                                        kLeastQuickly * static_cast<double>(quick.told - plain));
  }
  if (!isLikely) return std::nullopt;

  ++wholeWeighed_;
  LevelCounts counts;
  const uint64_t count = question_.actual.size();
  for (uint64_t element = 0; element < count; ++element) look(element, counts);
  const auto known = static_cast<double>(counts.told);
  // Small values are alike by the noise that is allowed: what differs has to become less, too.
  if (counts.supposedSum > kMostLeft * counts.plainSum) return std::nullopt;
  if (known < kLeastTold * static_cast<double>(count) || counts.told < 2) return std::nullopt;
  for (size_t level = 0; level < kLevels; ++level) {
    const auto supposed = static_cast<double>(LevelCounts::UpTo(counts.supposed, level));
    const auto plain = static_cast<double>(LevelCounts::UpTo(counts.plain, level));
    const double explained = plain >= known ? 0 : (supposed - plain) / (known - plain);
    if (supposed < kLeastAlike * known || explained < kLeastExplained || supposed - plain < 2) {
      continue;
    }
    return Evidence{level, explained, known / static_cast<double>(count)};
  }
  return std::nullopt;
}

Cause MakeCause(const char* id, std::string text, const Evidence& evidence) {
  // Of two that explain the same, the one that knows of more elements.
  const double known = 0.95 + 0.05 * evidence.told;
  return {id, std::move(text), evidence.explained * kLevelRows[evidence.level].certainty * known};
}

std::string ExplainedText(double certainty) {
  if (certainty >= 1) return "explains all that differs";
  // Rounding up would say more than is true.
  return "explains at least " + NumberText(std::floor(certainty * 1000) / 10) +
         " % of what differs";
}

std::vector<Cause> FindCauses(const CauseQuestion& question) {
  constexpr size_t kMostTold = 3;
  std::vector<Cause> causes;
  if (question.actual.size() < 2) return causes;
  FindRounding(question, causes);
  if (causes.empty()) {
    const Scales scales(question);
    FindOrderCauses(question, scales, causes);
    FindChannelCauses(question, scales, causes);
    FindValueCauses(question, scales, causes);
    if (causes.empty()) FindShortType(question, causes);
  }
  // Of causes that explain as much the one that was found first is the more specific.
  std::stable_sort(causes.begin(), causes.end(), [](const Cause& a, const Cause& b) {
    return a.certainty > b.certainty + 0.005;
  });
  if (causes.size() > kMostTold) causes.resize(kMostTold);
  return causes;
}

}  // namespace vorn::kit
