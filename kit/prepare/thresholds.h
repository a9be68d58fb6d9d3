// Files of thresholds for detection models, as vorn-run -r reads them.
//
//     single class    0.5 0.3 0 0            four numbers, [1, 4]
//
//     several         0.5 0.6 0.7            four rows, one a kind; a column a class, [4, classes]
//                     0.3 0.3 0.3
//                     0 0 0
//                     0 0 0                  and nothing behind the last digit: white space there
//                                            would count the last number twice
#ifndef VORN_KIT_PREPARE_THRESHOLDS_H_
#define VORN_KIT_PREPARE_THRESHOLDS_H_

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "kit/json/json.h"
#include "kit/model/model_description.h"

namespace vorn::kit {

/// The text of a file: `columns` numbers a line. Read back it gives the same floats, bit for bit.
/// The values are finite, since vorn-run reads no others.
[[nodiscard]] std::string ThresholdText(std::span<const float> values, uint64_t columns);

struct ThresholdFile {
  std::string input;  ///< its name
  std::string text;
};

/// Of {"input": numbers, …}, an entry for each input of thresholds that the model has; a file each,
/// in the order in which -r takes them. The numbers are a list of as many as the input's shape has,
/// or four lists with a number a class. Empty where the model takes no thresholds and none are
/// given.
///
/// Throws a JsonError for an input that is not there or lacks numbers, for another count of them,
/// and for what no float holds; a Fault of kModel where vorn-run could give the model none.
[[nodiscard]] std::vector<ThresholdFile> MakeThresholds(const Json& object,
                                                        const ModelDescription& model);

}  // namespace vorn::kit

#endif  // VORN_KIT_PREPARE_THRESHOLDS_H_
