// Edit distances, a row at a time.
#include "host/graph/nearest_name.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <numeric>

namespace vorn::host {
namespace {

constexpr size_t kLongestCompared = 256;

size_t Distance(std::string_view a, std::string_view b) {
  std::vector<size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), size_t{0});
  for (size_t i = 0; i < a.size(); ++i) {
    size_t diagonal = row[0];
    row[0] = i + 1;
    for (size_t j = 0; j < b.size(); ++j) {
      const size_t exchanged = diagonal + (a[i] == b[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({exchanged, row[j] + 1, row[j + 1] + 1});
    }
  }
  return row.back();
}

}  // namespace

std::string_view NearestName(std::string_view wanted, const std::vector<std::string_view>& names) {
  std::string_view nearest;
  size_t least = SIZE_MAX;
  for (const std::string_view name : names) {
    const size_t distance =
        Distance(wanted.substr(0, kLongestCompared), name.substr(0, kLongestCompared));
    if (distance >= least) continue;
    least = distance;
    nearest = name;
  }
  return nearest;
}

}  // namespace vorn::host
