// What a runtime said on standard error that the records of a run have to tell, since nothing in
// the program's own log does: it went on, and its results are not what they seem.
//
//     vorn: vorn_mdl_load_from_mem: the file of ranges 'r.json' was measured over another model, …
#ifndef VORN_KIT_LAUNCH_RUNTIME_WORDS_H_
#define VORN_KIT_LAUNCH_RUNTIME_WORDS_H_

#include <string_view>
#include <vector>

#include "kit/run/run_directory.h"

namespace vorn::kit {

/// A warning for each kind of such lines in what processes of a run said one behind the other, with
/// the words of the first.
[[nodiscard]] std::vector<RunWarning> WarningsInWords(std::string_view errors);

}  // namespace vorn::kit

#endif  // VORN_KIT_LAUNCH_RUNTIME_WORDS_H_
