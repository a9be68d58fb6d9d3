#include "kit/judge/cause.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include "kit/judge/cause_evidence.h"

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
constexpr size_t kQuick = 512;            // elements looked at first

}  // namespace

Likeness::Likeness(std::span<const float> values) {
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
  return kLevels;
}

namespace {

struct LevelCounts {
  std::array<uint64_t, kLevels + 1> supposed{};
  std::array<uint64_t, kLevels + 1> plain{};
  uint64_t told = 0;

  // Of both, how many are alike at this level or a stricter one.
  static uint64_t UpTo(const std::array<uint64_t, kLevels + 1>& counts, size_t level) {
    uint64_t sum = 0;
    for (size_t i = 0; i <= level; ++i) sum += counts[i];
    return sum;
  }
};

}  // namespace

std::optional<Evidence> Weigh(const CauseQuestion& question, const Likeness& likeness,
                              const std::function<std::optional<Told>(uint64_t element)>& told) {
  const uint64_t count = question.actual.size();
  const auto look = [&](uint64_t element, LevelCounts& counts) {
    const auto pair = told(element);
    if (!pair) return;
    ++counts.told;
    ++counts.supposed[likeness.LevelOf(pair->is, pair->should)];
    ++counts.plain[likeness.LevelOf(question.actual[element], question.expected[element])];
  };
  LevelCounts quick;
  const uint64_t step = std::max<uint64_t>(count / kQuick, 1);
  // Odd steps do not fall into step with rows.
  for (uint64_t element = 0; element < count; element += step | 1U) look(element, quick);
  const uint64_t alike = LevelCounts::UpTo(quick.supposed, kLevels - 1);
  if (static_cast<double>(alike) < 0.9 * static_cast<double>(quick.told)) return std::nullopt;

  LevelCounts counts;
  for (uint64_t element = 0; element < count; ++element) look(element, counts);
  const auto known = static_cast<double>(counts.told);
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
  return {id, std::move(text), evidence.explained * kLevelRows[evidence.level].certainty};
}

std::vector<Cause> FindCauses(const CauseQuestion& question) {
  constexpr size_t kMostTold = 3;
  std::vector<Cause> causes;
  if (question.actual.size() < 2) return causes;
  FindRounding(question, causes);
  if (causes.empty()) {
    std::vector<float> both(question.expected.begin(), question.expected.end());
    const Likeness likeness(both);
    FindOrderCauses(question, likeness, causes);
    FindValueCauses(question, likeness, causes);
  }
  // Of causes that explain as much the one that was found first is the more specific.
  std::stable_sort(causes.begin(), causes.end(), [](const Cause& a, const Cause& b) {
    return a.certainty > b.certainty + 0.005;
  });
  if (causes.size() > kMostTold) causes.resize(kMostTold);
  return causes;
}

}  // namespace vorn::kit
