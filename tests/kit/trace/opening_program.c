/* Opens the library that the first word names, and calls it past whatever is preloaded. */
#include <dlfcn.h>
#include <stdint.h>

int main(int argc, char** argv) {
  void* library = argc > 1 ? dlopen(argv[1], RTLD_NOW | RTLD_LOCAL) : 0;
  if (library == 0) return 1;
  uint64_t (*size)(uint32_t) = (uint64_t(*)(uint32_t))dlsym(library, "vorn_data_type_size");
  return size == 0 || size(0) != 32;
}
