// What a run's program said on standard error of the names of outputs.
//
//     vorn: vorn_mdl_load_from_mem: 'front~0123456789abcdef~end' stands for 'the whole name'
//
// The host runtime gives inner tensors whose names no file can have under short ones, and says so.
#ifndef VORN_KIT_RUN_OUTPUT_NAMES_H_
#define VORN_KIT_RUN_OUTPUT_NAMES_H_

#include <map>
#include <string>
#include <string_view>

namespace vorn::kit {

/// Empty where it is not kept: a run of another hand need not have it.
[[nodiscard]] std::string ProgramErrorsOf(const std::string& run);

/// The whole names by the short ones, as a log of the host runtime tells them. Names that two short
/// ones stand for, which a log that is cut may look like, are left out.
[[nodiscard]] std::map<std::string, std::string> LongNamesIn(std::string_view log);

}  // namespace vorn::kit

#endif  // VORN_KIT_RUN_OUTPUT_NAMES_H_
