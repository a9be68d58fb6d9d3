// A libvorn.so whose operations never return.
#include <unistd.h>

#define VORN_HANG(name, ...)                                      \
  extern "C" __attribute__((visibility("default"))) void name() { \
    for (;;) pause();                                             \
  }
#include "vorn/operations.h"
VORN_OPERATIONS(VORN_HANG, VORN_NO_PARAMETER)
