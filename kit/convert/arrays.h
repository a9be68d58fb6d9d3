// The dumps of a run as arrays (.npy).
#ifndef VORN_KIT_CONVERT_ARRAYS_H_
#define VORN_KIT_CONVERT_ARRAYS_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vorn::kit {

struct ArraysWritten {
  uint64_t arrays = 0;
  uint64_t samples = 0;          ///< of which arrays were written
  uint64_t absent = 0;           ///< samples that have no outputs, or whose dumps changed
  bool isUnfinished = false;     ///< the run goes on, or ended early: there may be more
  std::vector<std::string> why;  ///< for people: what is not there as an array, and why
};

/// Puts an array for each output of each sample of a run directory beside its dump, or into
/// FOLDER/SAMPLE/. The array is named as the dump, is in the shape that the run's model.json tells
/// (one dimension without it), and replaces what was there. Throws a Fault of kInput for what is no
/// run directory, of kLimit for what cannot be written; arrays that were written before stay.
[[nodiscard]] ArraysWritten WriteArrays(const std::string& run,
                                        const std::optional<std::string>& folder);

}  // namespace vorn::kit

#endif  // VORN_KIT_CONVERT_ARRAYS_H_
