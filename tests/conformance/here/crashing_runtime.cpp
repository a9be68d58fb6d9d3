// A libvorn.so whose every operation ends the process.
#include <cstdlib>

#define VORN_CRASH(name) \
  extern "C" __attribute__((visibility("default"))) void name() { std::abort(); }
#include "conformance/operation_names.h"
VORN_OPERATIONS(VORN_CRASH)
