// Which element types a caller sees, and values on their way into them.
//
// A dump shows float32, int8, uint8, int16 and uint16 as the values that they hold. Outputs of any
// other type are therefore presented in one of these:
//
//     float16, bfloat16, float64, int32, uint32, int64, uint64  ->  float32
//     bool                                                      ->  uint8, 0 or 1
//
// A float32 has 24 bits of precision: whole numbers beyond 2^24 and float64 are rounded to the
// nearest float32, a float64 beyond its range becomes infinite.
//
// A byte of a bool that is neither 0 nor 1 counts as 1.
//
// Asked for native outputs, and for inputs always, a caller sees the model's own type, and bfloat16
// as the uint16 of its bits.
#ifndef VORN_RUNTIME_HOST_TENSOR_PRESENTATION_H_
#define VORN_RUNTIME_HOST_TENSOR_PRESENTATION_H_

#include <cstddef>
#include <cstdint>

#include "vorn/vorn.h"

namespace vorn::host {

/// Whether outputs of types that a dump does not show are presented in another one.
enum class OutputTypes { kPresented, kNative };

/// The type that an input, or an output, of the model's type `native` is shown with.
vorn_data_type ShownInputType(vorn_data_type native);
vorn_data_type ShownOutputType(vorn_data_type native, OutputTypes outputTypes);

/// Whether values of both types are the same bytes. Truth values never are: a caller may have other
/// bytes than 0 and 1 for them, which an engine must not see.
bool IsSameBytes(vorn_data_type native, vorn_data_type shown);

/// Rows of `columns` elements on their way from one place to another; strides are in bytes and at
/// least a row long. The places do not overlap.
struct RowMove {
  const std::byte* from = nullptr;
  uint64_t fromStride = 0;
  std::byte* to = nullptr;
  uint64_t toStride = 0;
  uint64_t rows = 0;
  uint64_t columns = 0;
  vorn_data_type fromType = VORN_FLOAT32;
  vorn_data_type toType = VORN_FLOAT32;  ///< the same bytes, float32, or bool from bool
};

/// Moves the rows and converts their values. Padding between rows is neither read nor written.
void MoveRows(const RowMove& move);

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_TENSOR_PRESENTATION_H_
