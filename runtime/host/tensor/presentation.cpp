// Types as they are shown; rows converted element by element.
#include "host/tensor/presentation.h"

#include <cstring>

#include "host/tensor/element_type.h"
#include "host/tensor/small_float.h"
#include "shared/rows/row_copy.h"

namespace vorn::host {
namespace {

float Plain(auto value) { return static_cast<float>(value); }

/// One row; elements may lie unaligned.
template <typename From, typename Convert>
void ConvertRow(const std::byte* from, std::byte* to, uint64_t columns, Convert convert) {
  for (uint64_t i = 0; i < columns; ++i) {
    From value;
    std::memcpy(&value, from + i * sizeof(From), sizeof(From));
    const float converted = convert(value);
    std::memcpy(to + i * sizeof(float), &converted, sizeof(float));
  }
}

void ConvertRow(vorn_data_type type, const std::byte* from, std::byte* to, uint64_t columns) {
  switch (type) {
    case VORN_FLOAT16:
      return ConvertRow<uint16_t>(from, to, columns, FromFloat16);
    case kBfloat16:
      return ConvertRow<uint16_t>(from, to, columns, FromBfloat16);
    case VORN_FLOAT64:
      return ConvertRow<double>(from, to, columns, Plain<double>);
    case VORN_INT32:
      return ConvertRow<int32_t>(from, to, columns, Plain<int32_t>);
    case VORN_UINT32:
      return ConvertRow<uint32_t>(from, to, columns, Plain<uint32_t>);
    case VORN_INT64:
      return ConvertRow<int64_t>(from, to, columns, Plain<int64_t>);
    case VORN_UINT64:
      return ConvertRow<uint64_t>(from, to, columns, Plain<uint64_t>);
    default:
      return;  // every other type is shown with its own bytes
  }
}

/// Any other byte than 0 becomes 1. The engine takes a byte for a bool, which may be neither 0 nor
/// 1 in a file.
void NormaliseRow(const std::byte* from, std::byte* to, uint64_t columns) {
  for (uint64_t i = 0; i < columns; ++i) to[i] = std::byte{from[i] != std::byte{0}};
}

}  // namespace

vorn_data_type ShownInputType(vorn_data_type native) {
  return native == kBfloat16 ? vorn_data_type{VORN_UINT16} : native;
}

vorn_data_type ShownOutputType(vorn_data_type native, OutputTypes outputTypes) {
  if (outputTypes == OutputTypes::kNative) return ShownInputType(native);
  switch (native) {
    case VORN_INT8:
    case VORN_UINT8:
    case VORN_INT16:
    case VORN_UINT16:
      return native;
    case VORN_BOOL:
      return VORN_UINT8;
    default:
      return VORN_FLOAT32;
  }
}

bool IsSameBytes(vorn_data_type native, vorn_data_type shown) {
  if (shown == VORN_BOOL) return false;
  return native == shown || shown != VORN_FLOAT32;
}

void MoveRows(const RowMove& move) {
  if (IsSameBytes(move.fromType, move.toType)) {
    return CopyRows(move.from, move.fromStride, move.to, move.toStride,
                    move.columns * ElementBytes(move.toType), move.rows);
  }
  for (uint64_t row = 0; row < move.rows; ++row) {
    const std::byte* from = move.from + row * move.fromStride;
    std::byte* to = move.to + row * move.toStride;
    if (move.toType == VORN_BOOL) {
      NormaliseRow(from, to, move.columns);
    } else {
      ConvertRow(move.fromType, from, to, move.columns);
    }
  }
}

}  // namespace vorn::host
