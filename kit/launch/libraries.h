// The libraries that a program gets: a mistyped LD_LIBRARY_PATH silently takes another runtime.
#ifndef VORN_KIT_LAUNCH_LIBRARIES_H_
#define VORN_KIT_LAUNCH_LIBRARIES_H_

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vorn::kit {

/// What the loader would map for a program, which is asked with the environment of this process and
/// does not run.
struct LinkedLibraries {
  std::vector<std::string> found;    ///< paths
  std::vector<std::string> missing;  ///< names
};

/// Empty for what can be executed and has no loader that could be asked: a script, or a program
/// that is linked statically. Throws a Fault of kRuntime if there is no such program.
[[nodiscard]] std::optional<LinkedLibraries> AskLoader(const std::string& program);

/// The same out of the loader's lines "libvorn.so => /path/libvorn.so (0x...)".
[[nodiscard]] LinkedLibraries ParseLoaderLines(std::string_view lines);

/// The libvorn.so among the libraries of a program. Throws a Fault of kRuntime that tells how to
/// name one, or that it needs something that is missing.
[[nodiscard]] std::string FindRuntime(const std::string& program, const LinkedLibraries& libraries);

/// Paths of the libraries that a process has mapped by now, each once, in their order.
[[nodiscard]] std::vector<std::string> MappedLibraries(pid_t pid);

/// What the linker noted in a file for telling builds apart, as hexadecimal digits.
[[nodiscard]] std::optional<std::string> BuildIdOf(const std::string& path);

}  // namespace vorn::kit

#endif  // VORN_KIT_LAUNCH_LIBRARIES_H_
