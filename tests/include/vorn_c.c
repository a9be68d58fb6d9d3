/* The headers as C: they compile, and C sees the record and the operations that C++ sees. */
#include <stddef.h>

#include "vorn/operations.h"
#include "vorn/vorn.h"

size_t DimsRecordBytesInC(void) { return sizeof(vorn_mdl_io_dims); }
size_t DimCountOffsetInC(void) { return offsetof(vorn_mdl_io_dims, dimCount); }
size_t DimsOffsetInC(void) { return offsetof(vorn_mdl_io_dims, dims); }

#define VORN_COUNT(name, needs, role, thing, parameters) +1
int OperationsInC(void) { return VORN_OPERATIONS(VORN_COUNT, VORN_NO_PARAMETER); }
