// What the lines mean that vorn-run prints where something is wrong. One table.
#ifndef VORN_KIT_LAUNCH_EXPLANATIONS_H_
#define VORN_KIT_LAUNCH_EXPLANATIONS_H_

#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "kit/common/fault.h"

namespace vorn::kit {

enum class LineRole {
  kCause,     ///< what was wrong
  kFollows,   ///< says which step failed of it
  kOrdinary,  ///< every run says so, and nothing is wrong
};

struct Explanation {
  std::string_view id;       ///< stays the same for ever: "input-empty"
  std::string_view pattern;  ///< of the whole line; '*' stands for anything
  LineRole role = LineRole::kCause;
  ExitStatus status = ExitStatus::kRuntime;  ///< of a run that ended of it
  std::string_view means;
  std::string_view advice;
};

[[nodiscard]] std::span<const Explanation> AllExplanations();

/// Of a line that begins with [ERROR] or [WARN]; null if the table does not have it.
[[nodiscard]] const Explanation* Explain(std::string_view line);

/// Whether a line says that something is wrong, by its first word.
[[nodiscard]] bool IsWarningOrError(std::string_view line);

}  // namespace vorn::kit

#endif  // VORN_KIT_LAUNCH_EXPLANATIONS_H_
