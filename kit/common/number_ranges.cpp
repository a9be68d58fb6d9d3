#include "kit/common/number_ranges.h"

#include <algorithm>
#include <vector>

namespace vorn::kit {

std::string RangesText(std::span<const uint64_t> numbers, size_t most) {
  constexpr size_t kLeastForRange = 3;
  std::vector<std::string> places;
  size_t told = 0;
  size_t at = 0;
  while (at < numbers.size()) {
    size_t end = at + 1;
    while (end < numbers.size() && numbers[end] == numbers[end - 1] + 1) ++end;
    if (end - at < kLeastForRange) end = at + 1;
    std::string place = std::to_string(numbers[at]);
    if (end > at + 1) place += " to " + std::to_string(numbers[end - 1]);
    places.push_back(std::move(place));
    at = end;
    if (places.size() <= most) told = end;
  }
  const size_t named = std::min(places.size(), most);
  std::string text;
  for (size_t i = 0; i < named; ++i) {
    const bool isLast = i + 1 == named && named == places.size();
    text += (i == 0 ? "" : isLast ? " and " : ", ") + places[i];
  }
  if (told < numbers.size()) text += " and " + std::to_string(numbers.size() - told) + " more";
  return text;
}

}  // namespace vorn::kit
