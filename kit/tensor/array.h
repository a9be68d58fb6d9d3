// An array in memory, as it is: no value was rounded on the way, unlike what TensorReader gives.
#ifndef VORN_KIT_TENSOR_ARRAY_H_
#define VORN_KIT_TENSOR_ARRAY_H_

#include <cstddef>
#include <cstdint>
#include <vector>

#include "kit/tensor/element_type.h"
#include "kit/tensor/stored_tensor.h"

namespace vorn::kit {

struct Array {
  ElementType type = ElementType::kFloat32;
  Shape shape;                   ///< outermost first
  std::vector<std::byte> bytes;  ///< dense, the last dimension fastest, in the machine's byte order

  [[nodiscard]] uint64_t Elements() const { return bytes.size() / ElementBytes(type); }
};

/// The elements of item `item` of the outermost dimension, whose shape goes without it. The tensor
/// has a shape of one dimension at least, and more items than `item`. Throws a Fault of kInput that
/// names the file, and one of kLimit beyond `mostBytes`.
[[nodiscard]] Array ReadItem(const StoredTensor& tensor, uint64_t item, uint64_t mostBytes);

/// All of it; without a shape of its own in one dimension. Throws likewise.
[[nodiscard]] Array ReadArray(const StoredTensor& tensor, uint64_t mostBytes);

}  // namespace vorn::kit

#endif  // VORN_KIT_TENSOR_ARRAY_H_
