// Files that hold a dense tensor and nothing else.
#ifndef EXAMPLES_REFERENCE_TENSOR_FILE_H_
#define EXAMPLES_REFERENCE_TENSOR_FILE_H_

#include <string>

#include "reference/engine.h"

namespace reference {

/// The bytes of a file. Throws std::runtime_error.
std::string ReadBytes(const std::string& path);

/// Writes the elements of a tensor in its own type. Throws std::runtime_error, also for strings and
/// what has elements of no whole byte.
void WriteTensor(const std::string& path, const Ort::Value& tensor);

}  // namespace reference

#endif  // EXAMPLES_REFERENCE_TENSOR_FILE_H_
