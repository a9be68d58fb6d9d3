// The heads of .npy files.
//
//     "\x93NUMPY" | major, minor | length of the text (2 bytes, from version 2 on 4), little-endian
//     |
//     {'descr': '<f4', 'fortran_order': False, 'shape': (2, 3), } blanks, line feed | values
//
// Version 3 has UTF-8 in the text. Arrays of objects, which are pickles and would run code, of
// texts, of records and of complex numbers are refused. Archives of arrays (.npz) are read by
// npz.h.
#ifndef VORN_KIT_TENSOR_NPY_H_
#define VORN_KIT_TENSOR_NPY_H_

#include <cstdint>
#include <string>
#include <string_view>

#include "kit/tensor/stored_tensor.h"

namespace vorn::kit {

/// No head of numbers is longer.
inline constexpr uint64_t kMostNpyHead = (1 << 20) + 16;

/// Reads the head of a file of `fileBytes` bytes that begins with `bytes`. Nothing is allocated by
/// what the head says. Throws a Fault of kInput that names `path`.
[[nodiscard]] StoredTensor ParseNpy(const std::string& path, std::string_view bytes,
                                    uint64_t fileBytes);

[[nodiscard]] StoredTensor OpenNpy(const std::string& path);

}  // namespace vorn::kit

#endif  // VORN_KIT_TENSOR_NPY_H_
