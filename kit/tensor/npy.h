// The heads of .npy files.
//
//     "\x93NUMPY" | major, minor | length of the text (2 bytes, from version 2 on 4), little-endian
//     |
//     {'descr': '<f4', 'fortran_order': False, 'shape': (2, 3), } blanks, line feed | values
//
// Version 3 has UTF-8 in the text. Arrays of objects, which are pickles and would run code, of
// texts, of records and of complex numbers are refused, and so are archives of arrays (.npz): they
// are mostly compressed, and could not be read in blocks from any place on.
#ifndef VORN_KIT_TENSOR_NPY_H_
#define VORN_KIT_TENSOR_NPY_H_

#include <string>
#include <string_view>

#include "kit/tensor/stored_tensor.h"

namespace vorn::kit {

/// What is said of an archive, behind its name.
inline constexpr const char* kNoArchives =
    "is an archive of arrays (.npz), which is not read; save each array as a .npy file of its own";

/// Reads the head of a file of `fileBytes` bytes that begins with `bytes`. Nothing is allocated by
/// what the head says. Throws a Fault of kInput that names `path`.
[[nodiscard]] StoredTensor ParseNpy(const std::string& path, std::string_view bytes,
                                    uint64_t fileBytes);

[[nodiscard]] StoredTensor OpenNpy(const std::string& path);

}  // namespace vorn::kit

#endif  // VORN_KIT_TENSOR_NPY_H_
