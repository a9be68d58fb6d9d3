// Floats of 16 bits to and from float32.
//
//     float16   sign 1 | exponent 5, bias 15  | fraction 10
//     bfloat16  sign 1 | exponent 8, bias 127 | fraction 7      the upper half of a float32
#ifndef VORN_RUNTIME_HOST_TENSOR_SMALL_FLOAT_H_
#define VORN_RUNTIME_HOST_TENSOR_SMALL_FLOAT_H_

#include <cstdint>

namespace vorn::host {

/// Exact.
float FromFloat16(uint16_t bits);
float FromBfloat16(uint16_t bits);

/// Rounded to the nearest, ties to even; infinite beyond the range.
uint16_t ToFloat16(float value);
uint16_t ToBfloat16(float value);

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_TENSOR_SMALL_FLOAT_H_
