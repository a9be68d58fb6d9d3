// The text of a rpn parameter file: floats separated by white space.
#ifndef VORN_SRC_MODEL_RPN_FILE_H_
#define VORN_SRC_MODEL_RPN_FILE_H_

#include <istream>
#include <string>
#include <vector>

namespace vorn::run {

/// Appends the floats of the text to `detPara` as the standard extraction reads them. The value is
/// appended before the end or a fault is looked at: white space behind the last number gives that
/// number once more, and what is no number gives a 0 before 1 is returned.
[[nodiscard]] int ExtractRpnValues(std::istream& text, std::vector<float>& detPara);

/// The same for a file. Returns 1 when it is no regular file, cannot be opened (both printed) or
/// holds something else than numbers (not printed).
[[nodiscard]] int ReadRpnPara(const std::string& path, std::vector<float>& detPara);

}  // namespace vorn::run

#endif  // VORN_SRC_MODEL_RPN_FILE_H_
