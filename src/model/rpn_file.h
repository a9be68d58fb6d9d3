// The text of an rpn parameter file: floats separated by white space.
#ifndef VORN_SRC_MODEL_RPN_FILE_H_
#define VORN_SRC_MODEL_RPN_FILE_H_

#include <istream>
#include <string>
#include <vector>

namespace vorn::run {

/// Appends the floats of the text to `detPara` as the standard extraction reads them. The value is
/// appended before the end of the text or a fault is noticed: white space behind the last number
/// gives that number once more, and text that is not a number gives a 0 before 1 is returned.
[[nodiscard]] int ExtractRpnValues(std::istream& text, std::vector<float>& detPara);

/// The same for a file. Returns 1 when it is not a regular file, cannot be opened (both printed) or
/// holds anything but numbers (not printed).
[[nodiscard]] int ReadRpnPara(const std::string& path, std::vector<float>& detPara);

}  // namespace vorn::run

#endif  // VORN_SRC_MODEL_RPN_FILE_H_
