// A libvorn.so whose every operation ends the process.
#include <cstdlib>

#define VORN_CRASH(name, ...) \
  extern "C" __attribute__((visibility("default"))) void name() { std::abort(); }
#include "vorn/operations.h"
VORN_OPERATIONS(VORN_CRASH, VORN_NO_PARAMETER)
