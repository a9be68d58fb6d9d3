/*
 * A libvorn.so to link with where there is no other: it has the names of all operations and does
 * nothing. It is never shipped and never run.
 */
#include <stdlib.h>

#include "vorn/operations.h"

#define DEFINED(name, needs, role, thing, parameters) \
  void name(void);                                    \
  void name(void) { abort(); }
VORN_OPERATIONS(DEFINED, VORN_NO_PARAMETER)
