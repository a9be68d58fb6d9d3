// What pairs two sides that are not alike: names, orders of dimensions, types, quantisation,
// samples. Read from a JSON file:
//
//     {"schema": 1,
//      "samples": "index",                      or "inputs", or pairs [[actual, expected], …]
//      "outputs": [{
//        "actual":   {"name": "prob", "layout": "NHWC", "type": "int8", "scale": 0.1, "zeroPoint":
//        -3}, "expected": {"name": "prob:0", "layout": "NCHW", "shape": [1, 10, 7, 7]}}]}
//
// Lists of scales and zero points go along the dimension "axis" of what is stored.
//
// Instead of two layouts, "order": [0, 2, 3, 1] beside the sides tells for each dimension of the
// actual tensor which one of the expected tensor it is.
#ifndef VORN_KIT_JUDGE_MAP_H_
#define VORN_KIT_JUDGE_MAP_H_

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kit/tensor/tensor_reader.h"

namespace vorn::kit {

/// One side of a pair of outputs. What is empty is taken from the files.
struct MappedSide {
  std::string name;
  std::optional<Shape> shape;       ///< of what is stored
  std::string layout;               ///< a letter a dimension
  std::optional<ElementType> type;  ///< the model's, where a dump holds its bits
  std::optional<Quantisation> quantisation;
};

struct MappedOutput {
  MappedSide actual;
  MappedSide expected;
  std::vector<size_t> order;
};

struct Map {
  enum class Samples { kByIndex, kByInputs, kListed };
  Samples samples = Samples::kByIndex;
  std::vector<std::pair<uint64_t, uint64_t>> listed;  ///< actual and expected index
  std::vector<MappedOutput> outputs;
};

/// Throws a Fault of kInput that says what is wrong where; `what` names the file.
[[nodiscard]] Map ParseMap(std::string_view text, const std::string& what);

/// The expected tensor in the order of the actual one. Dimensions of size 1 may be on one side
/// only. Throws a Fault of kInput that names `what`, both layouts and the shape.
[[nodiscard]] ElementOrder BroughtIntoLayout(const ElementOrder& expected,
                                             const std::string& expectedLayout,
                                             const std::string& actualLayout,
                                             const std::string& what);

}  // namespace vorn::kit

#endif  // VORN_KIT_JUDGE_MAP_H_
