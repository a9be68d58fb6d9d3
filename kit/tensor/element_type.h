// The element types of tensors in files, and their values as floats.
//
// Everything is compared as float32, since a dump holds nothing wider: float64 and whole numbers
// beyond 2^24 are rounded to the nearest float32, a float64 beyond its range becomes infinite.
#ifndef VORN_KIT_TENSOR_ELEMENT_TYPE_H_
#define VORN_KIT_TENSOR_ELEMENT_TYPE_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace vorn::kit {

enum class ElementType {
  kFloat32,
  kFloat16,
  kBfloat16,
  kFloat64,
  kInt8,
  kUint8,
  kInt16,
  kUint16,
  kInt32,
  kUint32,
  kInt64,
  kUint64,
  kBool,  ///< a byte; whatever is not 0 is 1
};

[[nodiscard]] size_t ElementBytes(ElementType type);

/// "float32" and so on, as `vorn inspect` spells them.
[[nodiscard]] std::string_view ElementName(ElementType type);
[[nodiscard]] std::optional<ElementType> ElementNamed(std::string_view name);

/// Of a code of vorn_data_type; none of a code that is not known.
[[nodiscard]] std::optional<ElementType> ElementOfCode(uint32_t code);

/// Converts `to.size()` elements that begin at `from`, at any alignment; `isSwapped` for values in
/// the other byte order than the machine's.
void ToFloats(ElementType type, bool isSwapped, const std::byte* from, std::span<float> to);

/// The values of 16 bits; exact.
[[nodiscard]] float Float16Value(uint16_t bits);
[[nodiscard]] float Bfloat16Value(uint16_t bits);

/// The nearest value of 16 bits, ties to even; infinite beyond the range.
[[nodiscard]] float RoundedToFloat16(float value);
[[nodiscard]] float RoundedToBfloat16(float value);

/// The bits of the nearest value of 16 bits, likewise, in one step from a double.
[[nodiscard]] uint16_t Float16Bits(double value);
[[nodiscard]] uint16_t Bfloat16Bits(double value);

}  // namespace vorn::kit

#endif  // VORN_KIT_TENSOR_ELEMENT_TYPE_H_
