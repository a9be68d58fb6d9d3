// The array (.npy) of what vorn-run dumped of an output.
//
//     "\x93NUMPY" | 1, 0 | bytes of the text (2), little-endian
//     {'descr': '<f4', 'fortran_order': False, 'shape': (2, 3), } blanks, line feed | values
//
// The values begin at a multiple of 64 bytes. A dump is 32-bit floats whatever the output's type
// is: of most types the values themselves; of int32 and uint32 their bits; of float16 its bits as a
// number; of types with 64 bits and of bool what cannot be made whole again.
#ifndef VORN_KIT_MODEL_DUMP_ARRAY_H_
#define VORN_KIT_MODEL_DUMP_ARRAY_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "kit/model/model_description.h"

namespace vorn::kit {

/// How long a value of a dump is.
inline constexpr uint64_t kDumpedValueBytes = 4;

/// Whether a dump of the output holds its values. A type that is not known counts as float32.
[[nodiscard]] bool AreValuesDumped(const TensorDescription& output);

/// All before the values.
[[nodiscard]] std::string ArrayHeader(const TensorDescription& output,
                                      const std::vector<uint64_t>& shape);

/// The values of a piece of a dump, which is a multiple of 4 bytes, as the array holds them. A
/// number that cannot be the bits of a float16 becomes NaN.
[[nodiscard]] std::string ArrayValues(const TensorDescription& output, std::string_view dumped);

/// The shape that the values of a dump have: the output's, the batch multiplied into the first
/// dimension; one dimension where that does not come out.
[[nodiscard]] std::vector<uint64_t> ShapeOfDump(const TensorDescription& output, uint64_t batch,
                                                uint64_t values);

/// How many items the values of a dump are of; 1 where that does not come out.
[[nodiscard]] uint64_t BatchOfDump(const TensorDescription& output, uint64_t values);

}  // namespace vorn::kit

#endif  // VORN_KIT_MODEL_DUMP_ARRAY_H_
