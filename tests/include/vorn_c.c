/* The runtime's header as C: it compiles, and C sees the record that C++ sees. */
#include <stddef.h>

#include "vorn/vorn.h"

size_t DimsRecordBytesInC(void) { return sizeof(vorn_mdl_io_dims); }
size_t DimCountOffsetInC(void) { return offsetof(vorn_mdl_io_dims, dimCount); }
size_t DimsOffsetInC(void) { return offsetof(vorn_mdl_io_dims, dims); }
