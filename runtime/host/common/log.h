// The runtime's log: silent unless the environment variable VORN_LOG asks for it, on standard error
// then, one line a message:
//
//     vorn: <operation>: <what was wrong, the value seen, what to change>
//
// VORN_LOG unset, empty, "0" or "off": nothing. "info": everything. Any other value ("1", "error"):
// what went wrong, was left out, or was done to a model. The variable is looked at for every line.
#ifndef VORN_RUNTIME_HOST_COMMON_LOG_H_
#define VORN_RUNTIME_HOST_COMMON_LOG_H_

#include <string_view>

namespace vorn::host {

enum class LogLevel {
  kError,  ///< a fault, something that was asked for and not done, or a model that was changed
  kInfo    ///< anything that helps to understand a run
};

/// Whether a message of that level would be written.
bool IsLogged(LogLevel level) noexcept;

/// Writes one line if the level is asked for. Line breaks and other control characters in the
/// message, which may quote a model, become blanks.
void Log(LogLevel level, std::string_view operation, std::string_view message) noexcept;

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_COMMON_LOG_H_
