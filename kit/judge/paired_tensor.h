// One output of one sample on both sides, brought into the same order and meaning.
#ifndef VORN_KIT_JUDGE_PAIRED_TENSOR_H_
#define VORN_KIT_JUDGE_PAIRED_TENSOR_H_

#include <optional>
#include <string>

#include "kit/judge/map.h"
#include "kit/tensor/tensor_source.h"

namespace vorn::kit {

/// A tensor, and how it is to be read.
struct ReadableTensor {
  StoredTensor stored;
  ElementOrder order;
  Quantisation quantisation;
  ElementType type = ElementType::kFloat32;  ///< the model's
  bool hasShape = false;

  [[nodiscard]] uint64_t Elements() const;
  [[nodiscard]] TensorReader Read() const { return {stored, order, quantisation}; }
};

/// Thrown where the values of an output are not in what is at hand: what to do is said.
class NotJudgeable : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Opens one side. `side` may be null, `model` as well.
[[nodiscard]] ReadableTensor OpenSide(const OutputPlace& place, const MappedSide* side,
                                      const ModelDescription* model);

/// Item `item` of `items`, each of `itemElements`, that the tensor holds one behind the other.
/// Throws a Fault of kInput that says how many there are.
[[nodiscard]] ReadableTensor ItemOf(const ReadableTensor& stacked, uint64_t item, uint64_t items,
                                    uint64_t itemElements);

/// Brings `expected` into the order that the map tells of.
void Align(const MappedOutput& mapped, ReadableTensor& expected, const std::string& name);

}  // namespace vorn::kit

#endif  // VORN_KIT_JUDGE_PAIRED_TENSOR_H_
