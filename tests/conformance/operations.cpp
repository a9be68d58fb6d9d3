// Opening the runtime under test.
#include "operations.h"

#include <dlfcn.h>

namespace conformance {
namespace {

template <typename Operation>
void LookUp(void* library, const char* name, Operation& operation, std::string& missing) {
  operation = reinterpret_cast<Operation>(dlsym(library, name));
  if (operation == nullptr) missing += std::string(missing.empty() ? "" : ", ") + name;
}

std::string Open(const std::string& path) {
  void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) return std::string("the runtime cannot be opened: ") + dlerror();
  std::string missing;
#define VORN_LOOK_UP(name, ...) LookUp(library, #name, name, missing);
  VORN_OPERATIONS(VORN_LOOK_UP, VORN_NO_PARAMETER)
#undef VORN_LOOK_UP
  return missing.empty() ? "" : "the runtime lacks " + missing;
}

}  // namespace

std::string OpenRuntime(const std::string& path) {
  static const std::string problem = Open(path);
  return problem;
}

}  // namespace conformance
