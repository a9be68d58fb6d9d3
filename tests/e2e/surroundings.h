// Launchers for a stage: what a test can change about the place that the command runs in. Each may
// be more than the machine allows; a test asks first and is skipped otherwise.
#ifndef VORN_TESTS_E2E_SURROUNDINGS_H_
#define VORN_TESTS_E2E_SURROUNDINGS_H_

#include <string>
#include <vector>

namespace e2e {

using Launcher = std::vector<std::string>;

/// Runs these words of the shell and then becomes the command: `ulimit -f 64`, `exec <&-`.
[[nodiscard]] Launcher AfterShell(const std::string& words);

/// The permissions of files hold for the command even where the superuser runs it.
[[nodiscard]] Launcher WithoutPrivileges();

/// The same as `AfterShell`, in file systems of its own: what is mounted goes away with the run.
[[nodiscard]] Launcher WithOwnMounts(const std::string& words);

/// True if a program can be started by this launcher.
[[nodiscard]] bool CanLaunch(const Launcher& launcher);

}  // namespace e2e

#endif  // VORN_TESTS_E2E_SURROUNDINGS_H_
