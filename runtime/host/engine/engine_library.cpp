// dlopen instead of a link, so that a program's list of libraries shows the runtime and nothing
// behind it.
#include "host/engine/engine_library.h"

#include <dlfcn.h>
#include <onnxruntime_c_api.h>

#include <string>

#include "host/common/failure.h"

namespace vorn::host {
namespace {

constexpr const char* kSoname = VORN_ENGINE_SONAME;

/// The folder of the library or program that this code is in, with a slash; empty if unknown.
std::string OwnFolder() {
  Dl_info info = {};
  if (dladdr(reinterpret_cast<void*>(&LoadEngineLibrary), &info) == 0) return "";
  const std::string path = info.dli_fname;
  return path.substr(0, path.rfind('/') + 1);
}

void* OpenLibrary() {
  // By its bare name: found through LD_LIBRARY_PATH, our own run path, then the system.
  void* library = dlopen(kSoname, RTLD_NOW | RTLD_LOCAL);
  if (library != nullptr) return library;
  const char* said = dlerror();
  const std::string reason = said == nullptr ? "no reason given" : said;
  // A sanitizer's dlopen stands in between and makes the search use its own run path.
  const std::string folder = OwnFolder();
  if (!folder.empty()) library = dlopen((folder + kSoname).c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library != nullptr) return library;
  throw Failure(VORN_ERROR_INTERNAL, kSoname, " cannot be loaded (", reason,
                "); put it beside libvorn.so or into LD_LIBRARY_PATH");
}

const OrtApi* LoadTable() {
  // Stays open: its threads and statics outlive every session.
  void* library = OpenLibrary();
  using GetBase = const OrtApiBase*(ORT_API_CALL*)();
  const auto getBase = reinterpret_cast<GetBase>(dlsym(library, "OrtGetApiBase"));
  const OrtApiBase* base = getBase == nullptr ? nullptr : getBase();
  if (base == nullptr) {
    throw Failure(VORN_ERROR_INTERNAL, kSoname,
                  " is not the library that it should be; replace it");
  }
  const OrtApi* table = base->GetApi(ORT_API_VERSION);
  if (table == nullptr) {
    throw Failure(VORN_ERROR_INTERNAL, kSoname, " is version ", base->GetVersionString(),
                  "; it has to be 1.", ORT_API_VERSION, " or later");
  }
  return table;
}

}  // namespace

const OrtApi* LoadEngineLibrary() {
  static const OrtApi* table = LoadTable();
  return table;
}

}  // namespace vorn::host
