// Where the values of a tensor lie, in whatever kind of file.
#ifndef VORN_KIT_TENSOR_STORED_TENSOR_H_
#define VORN_KIT_TENSOR_STORED_TENSOR_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kit/tensor/element_type.h"

namespace vorn::kit {

using Shape = std::vector<uint64_t>;  ///< outermost first

/// "2x3x4"; "scalar" of no dimensions.
[[nodiscard]] std::string TextOf(const Shape& shape);

/// "[0, 3, 2]" for the element at `index`, the last dimension fastest.
[[nodiscard]] std::string PlaceText(uint64_t index, const Shape& shape);

/// How many elements a shape has; empty if that does not fit.
[[nodiscard]] std::optional<uint64_t> CountElements(const Shape& shape);

/// `elements` values of `type`, dense from `offsetBytes` on. A text holds a number a line instead,
/// as a `.float` file does.
struct StoredTensor {
  std::string path;
  uint64_t offsetBytes = 0;
  ElementType type = ElementType::kFloat32;
  bool isSwapped = false;      ///< in the other byte order than the machine's
  bool isText = false;         ///< offset and type mean nothing then
  bool isColumnMajor = false;  ///< the first dimension varies fastest
  uint64_t elements = 0;
  std::optional<Shape> shape;  ///< as the file tells it
  std::string name;            ///< as the file tells it, else empty

  /// Values are whole numbers that are the bits of floats of 16 bits, which dumps show so.
  enum class Bits { kNone, kFloat16, kBfloat16 };
  Bits bits = Bits::kNone;

  /// Instead of the place in the file: values that do not lie there as they are.
  std::shared_ptr<const std::vector<float>> decoded;

  /// Instead of the place in the file: the values as they would lie there, from the first on.
  std::shared_ptr<const std::byte> unpacked;
};

/// The first bytes of a file, and its size.
struct FileHead {
  std::string path;
  std::string bytes;
  uint64_t fileBytes = 0;
};

/// Throws a Fault of kInput that says what `what` is and what is wrong with the file.
[[nodiscard]] FileHead ReadFileHead(const std::string& path, const std::string& what,
                                    uint64_t mostBytes);

/// A `.bin` of a dump: float32 in the machine's byte order. Throws as above where the size is not a
/// whole number of them.
[[nodiscard]] StoredTensor OpenDump(const std::string& path);

/// A `.float` of a dump, whose lines are counted. Throws as above, also for a line that is no
/// number.
[[nodiscard]] StoredTensor OpenDumpText(const std::string& path);

}  // namespace vorn::kit

#endif  // VORN_KIT_TENSOR_STORED_TENSOR_H_
