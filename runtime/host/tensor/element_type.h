// What the runtime knows of an element type.
#ifndef VORN_RUNTIME_HOST_TENSOR_ELEMENT_TYPE_H_
#define VORN_RUNTIME_HOST_TENSOR_ELEMENT_TYPE_H_

#include <cstdint>

#include "vorn/vorn.h"

namespace vorn::host {

/// A type of models that vorn.h does not number: the upper half of a float32. Only within this
/// library; presentation.h says what a caller sees instead.
inline constexpr vorn_data_type kBfloat16 = 0x10000;

/// Bits of one element; 0 for a code that neither vorn.h numbers nor this file. A caller is
/// answered with `NumberedBits` instead.
uint64_t ElementBits(vorn_data_type type);

/// The same for the codes of vorn.h alone; 0 for any other, also of this library's own.
uint64_t NumberedBits(vorn_data_type type);

/// Bytes of one element; 0 likewise.
inline uint64_t ElementBytes(vorn_data_type type) { return ElementBits(type) / 8; }

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_TENSOR_ELEMENT_TYPE_H_
