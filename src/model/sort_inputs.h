// Bringing named input entries into the model's input order.
#ifndef VORN_SRC_MODEL_SORT_INPUTS_H_
#define VORN_SRC_MODEL_SORT_INPUTS_H_

#include <string>
#include <vector>

namespace vorn::run {

/// True if every entry has the form name:path with a name from `inputNames`; true for no entries.
[[nodiscard]] bool CheckInputNames(const std::vector<std::string>& inputFiles,
                                   const std::vector<std::string>& inputNames);

/// Sorts each group of consecutive entries, as many as there are names, by the position of its name
/// (the last one, for a name that occurs twice) and strips the names. Leaves the list as it is when
/// it is not a whole number of groups or fails `CheckInputNames`. No names at all end the process
/// by an integer division fault.
void SortInputsByName(std::vector<std::string>& inputFiles,
                      const std::vector<std::string>& inputNames);

}  // namespace vorn::run

#endif  // VORN_SRC_MODEL_SORT_INPUTS_H_
