// A file with a number a line, as the `.float` file of a dump.
#ifndef VORN_KIT_TENSOR_NUMBER_LINES_H_
#define VORN_KIT_TENSOR_NUMBER_LINES_H_

#include <cstdint>
#include <string>

#include "kit/tensor/input_file.h"

namespace vorn::kit {

/// Reads piece by piece. Faults are those of InputFile, and name the line.
class NumberLines {
 public:
  NumberLines(const std::string& path, const std::string& what) : file_(path, what) {}

  /// The next number, "nan" and "inf" included; false at the end. A last line may lack its end.
  [[nodiscard]] bool Next(float& value);

 private:
  bool Fill();

  InputFile file_;
  std::string piece_;
  size_t at_ = 0;        ///< in the piece
  uint64_t offset_ = 0;  ///< of what follows the piece in the file
  uint64_t line_ = 0;
};

}  // namespace vorn::kit

#endif  // VORN_KIT_TENSOR_NUMBER_LINES_H_
