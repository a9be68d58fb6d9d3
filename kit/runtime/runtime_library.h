// One libvorn.so, opened by its path: no program of the kit is linked with one.
#ifndef VORN_KIT_RUNTIME_RUNTIME_LIBRARY_H_
#define VORN_KIT_RUNTIME_RUNTIME_LIBRARY_H_

#include <string>

#include "vorn/operations.h"
#include "vorn/vorn.h"

namespace vorn::kit {

/// The operations of a runtime, each a member of its own name: `runtime.vorn_init("config.json")`.
struct RuntimeLibrary {
// NOLINTNEXTLINE(bugprone-macro-parentheses): it is the name that is declared
#define VORN_KIT_MEMBER(name, needs, role, thing, parameters) decltype(&::name) name = nullptr;
  VORN_OPERATIONS(VORN_KIT_MEMBER, VORN_NO_PARAMETER)
#undef VORN_KIT_MEMBER

  std::string path;  ///< of the file that was mapped
};

/// Opens a library, by the search of the dynamic loader where `path` holds no '/': LD_LIBRARY_PATH,
/// then the folder that vorn-run looks in too, then the system's. It stays open for the life of the
/// process. Throws a Fault of kRuntime with the loader's own reason, or the operation that is
/// missing.
[[nodiscard]] RuntimeLibrary OpenRuntime(const std::string& path);

}  // namespace vorn::kit

#endif  // VORN_KIT_RUNTIME_RUNTIME_LIBRARY_H_
