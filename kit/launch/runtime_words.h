// What a runtime said on standard error that the records of a run have to tell, since nothing in
// the program's own log does: it went on, and its results are not what they seem.
//
//     vorn: vorn_mdl_load_from_mem: the file of ranges 'r.json' was measured over another model, …
#ifndef VORN_KIT_LAUNCH_RUNTIME_WORDS_H_
#define VORN_KIT_LAUNCH_RUNTIME_WORDS_H_

#include <span>
#include <string_view>
#include <vector>

#include "kit/run/run_directory.h"

namespace vorn::kit {

struct RuntimeWords {
  std::string_view id;       ///< of the warning; stays the same for ever
  std::string_view pattern;  ///< of what stands behind the operation; '*' stands for anything
};

[[nodiscard]] std::span<const RuntimeWords> AllRuntimeWords();

/// Whether a warning is one of these, which are found again as often as they are looked for.
[[nodiscard]] bool IsOfRuntimeWords(std::string_view id);

/// A warning for each kind of such lines in what processes of a run said one behind the other, with
/// the words of the first.
[[nodiscard]] std::vector<RunWarning> WarningsInWords(std::string_view errors);

}  // namespace vorn::kit

#endif  // VORN_KIT_LAUNCH_RUNTIME_WORDS_H_
