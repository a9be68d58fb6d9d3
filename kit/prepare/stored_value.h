// Values as an element of a tensor stores them, and what cannot be stored.
#ifndef VORN_KIT_PREPARE_STORED_VALUE_H_
#define VORN_KIT_PREPARE_STORED_VALUE_H_

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "kit/prepare/recipe.h"
#include "kit/tensor/array.h"
#include "kit/tensor/element_type.h"

namespace vorn::kit {

/// With nine digits, by which floats can be told apart: "0.100000001".
[[nodiscard]] std::string TextOfValue(double value);

/// Writes the element that stands for `value`, ElementBytes(type) of them. Floats take the nearest
/// value. Whole numbers take whole numbers within their range; with a quantisation any value but
/// NaN, held to the range. False, and nothing written, where the type cannot hold it.
[[nodiscard]] bool StoreValue(float value, ElementType type,
                              const std::optional<StoredScale>& quantisation, std::byte* to);

/// The array's values as elements of `type`, likewise, and without a detour by floats: a whole
/// number stays what it is. Throws a Fault of kInput that begins with `what`, and names the first
/// element that cannot be stored.
[[nodiscard]] std::vector<std::byte> StoreArray(const Array& array, ElementType type,
                                                const std::optional<StoredScale>& quantisation,
                                                const std::string& what);

/// The values as float32, each the nearest.
[[nodiscard]] std::vector<float> FloatsOf(const Array& array);

}  // namespace vorn::kit

#endif  // VORN_KIT_PREPARE_STORED_VALUE_H_
