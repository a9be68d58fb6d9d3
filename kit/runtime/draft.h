// From a refusal of the host runtime to a configuration.
#ifndef VORN_KIT_RUNTIME_DRAFT_H_
#define VORN_KIT_RUNTIME_DRAFT_H_

#include <optional>
#include <string>

namespace vorn::kit {

/// The host runtime names the keys that it misses, with N for a number of the user's: 'dims'
/// {"height": N}. Returns the file that they would make, on one line, with 1
/// for each N so that it is JSON; empty if `refusal` names
/// none.
[[nodiscard]] std::optional<std::string> DraftConfiguration(const std::string& refusal);

}  // namespace vorn::kit

#endif  // VORN_KIT_RUNTIME_DRAFT_H_
