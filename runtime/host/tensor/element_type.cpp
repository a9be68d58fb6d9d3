// Sizes of element types.
#include "host/tensor/element_type.h"

namespace vorn::host {

uint64_t ElementBits(vorn_data_type type) {
  switch (type) {
    case VORN_INT8:
    case VORN_UINT8:
    case VORN_BOOL:
      return 8;
    case VORN_FLOAT16:
    case kBfloat16:
    case VORN_INT16:
    case VORN_UINT16:
      return 16;
    case VORN_FLOAT32:
    case VORN_INT32:
    case VORN_UINT32:
      return 32;
    case VORN_INT64:
    case VORN_UINT64:
    case VORN_FLOAT64:
      return 64;
    default:
      return 0;
  }
}

uint64_t NumberedBits(vorn_data_type type) { return type == kBfloat16 ? 0 : ElementBits(type); }

}  // namespace vorn::host
