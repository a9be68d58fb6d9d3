// Opens the library by the name that the host runtime was built with.
#include "reference/engine.h"

#include <dlfcn.h>

#include <stdexcept>

namespace reference {

void LoadEngine() {
  void* library = dlopen(VORN_ENGINE_SONAME, RTLD_NOW);
  if (library == nullptr) throw std::runtime_error(dlerror());
  using GetBase = const OrtApiBase*(ORT_API_CALL*)();
  const auto getBase = reinterpret_cast<GetBase>(dlsym(library, "OrtGetApiBase"));
  const OrtApi* api = getBase()->GetApi(ORT_API_VERSION);
  if (api == nullptr) throw std::runtime_error(VORN_ENGINE_SONAME " is older than its headers");
  Ort::InitApi(api);
}

Ort::SessionOptions Options() {
  Ort::SessionOptions options;
  options.SetIntraOpNumThreads(1);
  options.SetInterOpNumThreads(1);
  options.SetGraphOptimizationLevel(ORT_ENABLE_ALL);
  return options;
}

}  // namespace reference
