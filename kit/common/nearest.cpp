// Distances by the usual table, of which three rows are kept.
#include "kit/common/nearest.h"

#include <algorithm>
#include <numeric>
#include <vector>

namespace vorn::kit {

namespace {

// Of a word that was cut short.
std::optional<std::string> OnlyWithBeginning(std::string_view word,
                                             std::span<const std::string> names) {
  constexpr size_t kLeast = 4;  // "--x" is the beginning of many
  if (word.size() < kLeast) return std::nullopt;
  std::optional<std::string> only;
  for (const std::string& name : names) {
    if (!name.starts_with(word)) continue;
    if (only) return std::nullopt;
    only = name;
  }
  return only;
}

}  // namespace

size_t EditDistance(std::string_view one, std::string_view other) {
  std::vector<size_t> row(other.size() + 1);  // of the first i characters of `one`
  std::iota(row.begin(), row.end(), size_t{0});
  std::vector<size_t> above = row;
  std::vector<size_t> twoAbove;
  for (size_t i = 1; i <= one.size(); ++i) {
    twoAbove = std::move(above);
    above = row;
    row[0] = i;
    for (size_t j = 1; j <= other.size(); ++j) {
      const size_t changed = above[j - 1] + (one[i - 1] == other[j - 1] ? 0 : 1);
      row[j] = std::min({above[j] + 1, row[j - 1] + 1, changed});
      const bool areExchanged =
          i > 1 && j > 1 && one[i - 1] == other[j - 2] && one[i - 2] == other[j - 1];
      if (areExchanged) row[j] = std::min(row[j], twoAbove[j - 2] + 1);
    }
  }
  return row.back();
}

std::optional<std::string> NearestName(std::string_view word, std::span<const std::string> names) {
  std::optional<std::string> nearest;
  size_t least = std::max<size_t>(1, word.size() / 3) + 1;
  for (const std::string& name : names) {
    // The lengths alone tell of most names that they are too far.
    const size_t apart =
        name.size() > word.size() ? name.size() - word.size() : word.size() - name.size();
    if (apart >= least) continue;
    const size_t distance = EditDistance(word, name);
    if (distance >= least) continue;
    least = distance;
    nearest = name;
  }
  return nearest ? nearest : OnlyWithBeginning(word, names);
}

std::string DidYouMean(std::string_view word, std::span<const std::string> names) {
  const auto nearest = NearestName(word, names);
  return nearest ? "; did you mean '" + *nearest + "'?" : "";
}

}  // namespace vorn::kit
