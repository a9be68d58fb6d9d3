// Sorts by position with the standard unstable sort.
#include "model/sort_inputs.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "common/input_entry.h"
#include "model/division.h"

namespace vorn::run {
namespace {

struct KeyedEntry {
  uint64_t position;  // of the model input that it names
  std::string path;
};

std::string PathOf(const std::string& entry) { return entry.substr(entry.find(':') + 1); }

}  // namespace

bool CheckInputNames(const std::vector<std::string>& inputFiles,
                     const std::vector<std::string>& inputNames) {
  const std::unordered_set<std::string_view> known(inputNames.begin(), inputNames.end());
  return std::ranges::all_of(inputFiles, [&known](std::string_view entry) {
    return HasInputNamePrefix(entry) && known.contains(InputNamePrefix(entry));
  });
}

void SortInputsByName(std::vector<std::string>& inputFiles,
                      const std::vector<std::string>& inputNames) {
  const size_t groupSize = inputNames.size();
  if (RemainderOrFault(inputFiles.size(), groupSize) != 0) return;
  if (!CheckInputNames(inputFiles, inputNames)) return;

  std::unordered_map<std::string_view, uint64_t> positionOf;
  for (size_t i = 0; i < groupSize; ++i) positionOf[inputNames[i]] = i;

  std::vector<KeyedEntry> group(groupSize);
  for (size_t first = 0; first < inputFiles.size(); first += groupSize) {
    for (size_t i = 0; i < groupSize; ++i) {
      const std::string& entry = inputFiles[first + i];
      group[i] = {positionOf.at(InputNamePrefix(entry)), PathOf(entry)};
    }
    std::ranges::sort(group, {}, &KeyedEntry::position);
    for (size_t i = 0; i < groupSize; ++i) inputFiles[first + i] = std::move(group[i].path);
  }
}

}  // namespace vorn::run
