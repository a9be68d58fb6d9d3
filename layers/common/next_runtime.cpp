#include "layers/common/next_runtime.h"

#include <dlfcn.h>
#include <pthread.h>

#include <atomic>
#include <cstdlib>
#include <cstring>

#include "layers/common/say.h"

namespace vorn::layers {
namespace {

// By hand: what guards a static variable is in the C++ library, which is not linked in.
std::atomic<bool> g_isFound{false};
pthread_mutex_t g_lock = PTHREAD_MUTEX_INITIALIZER;
NextRuntime g_next;  // set once, under the lock

// The file that a function lies in; null where nobody knows.
const char* FileOf(const void* function) {
  Dl_info about{};
  return dladdr(function, &about) != 0 ? about.dli_fname : nullptr;
}

void* OpenNamed(const char* path) {
  void* library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) Say("cannot open VORN_NEXT: %s", dlerror());
  return library;
}

NextRuntime None() {
  NextRuntime none{};
  none.path = "";
  return none;
}

NextRuntime Find() {
  NextRuntime next = None();
  const char* named = std::getenv("VORN_NEXT");
  const bool isNamed = named != nullptr && *named != '\0';
  void* library = isNamed ? OpenNamed(named) : RTLD_NEXT;
  if (library == nullptr && isNamed) return next;
#define VORN_LAYERS_FIND(name, needs, role, thing, parameters) \
  next.name = reinterpret_cast<decltype(next.name)>(dlsym(library, #name));
  VORN_OPERATIONS(VORN_LAYERS_FIND, VORN_NO_PARAMETER)
#undef VORN_LAYERS_FIND

  if (next.vorn_init == nullptr) {
    Say("there is no libvorn.so behind this layer; name one with VORN_NEXT");
    return None();
  }
  const char* path = FileOf(reinterpret_cast<const void*>(next.vorn_init));
  const char* own = FileOf(reinterpret_cast<const void*>(&Find));
  if (path != nullptr && own != nullptr && std::strcmp(path, own) == 0) {
    Say("VORN_NEXT names this layer itself; name the runtime behind it");
    return None();
  }
  next.path = path == nullptr ? "" : path;
  return next;
}

}  // namespace

const NextRuntime& Next() {
  if (!g_isFound.load(std::memory_order_acquire)) {
    pthread_mutex_lock(&g_lock);
    if (!g_isFound.load(std::memory_order_relaxed)) {
      g_next = Find();
      g_isFound.store(true, std::memory_order_release);
    }
    pthread_mutex_unlock(&g_lock);
  }
  return g_next;
}

}  // namespace vorn::layers
