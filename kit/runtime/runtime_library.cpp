#include "kit/runtime/runtime_library.h"

#include <dlfcn.h>

#include "kit/common/fault.h"
#include "kit/common/printable.h"

namespace vorn::kit {
namespace {

std::string LoaderReason() {
  const char* reason = dlerror();
  return reason == nullptr ? "no reason given" : Printable(reason);
}

template <typename Function>
void Resolve(void* library, const char* name, const std::string& path, Function& function) {
  void* address = dlsym(library, name);
  if (address == nullptr) {
    throw Fault(ExitStatus::kRuntime, "'" + Printable(path) + "' is no vorn runtime: it has no " +
                                          name + ". Name another with --runtime");
  }
  function = reinterpret_cast<Function>(address);
}

}  // namespace

RuntimeLibrary OpenRuntime(const std::string& path) {
  void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    throw Fault(ExitStatus::kRuntime, "cannot open the runtime: " + LoaderReason() +
                                          ". Name one with --runtime, or its folder in "
                                          "LD_LIBRARY_PATH");
  }
  RuntimeLibrary runtime;
#define VORN_KIT_RESOLVE(name, needs, role, thing, parameters) \
  Resolve(library, #name, path, runtime.name);
  VORN_OPERATIONS(VORN_KIT_RESOLVE, VORN_NO_PARAMETER)
#undef VORN_KIT_RESOLVE

  Dl_info about{};
  const bool isKnown = dladdr(reinterpret_cast<void*>(runtime.vorn_init), &about) != 0;
  runtime.path = isKnown && about.dli_fname != nullptr ? about.dli_fname : path;
  return runtime;
}

}  // namespace vorn::kit
