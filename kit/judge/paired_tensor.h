// One output of one sample on both sides, brought into the same order and meaning.
#ifndef VORN_KIT_JUDGE_PAIRED_TENSOR_H_
#define VORN_KIT_JUDGE_PAIRED_TENSOR_H_

#include <optional>
#include <stdexcept>
#include <string>

#include "kit/common/fault.h"
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

/// Thrown where the file of an output cannot be read or is damaged: the others may be judged.
class UnreadableTensor : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Runs what reads files of an output, and throws an UnreadableTensor for a Fault of kInput.
template <typename Reading>
auto ReadingTensors(const Reading& reading) {
  try {
    return reading();
  } catch (const Fault& fault) {
    if (fault.Status() != ExitStatus::kInput) throw;
    throw UnreadableTensor(fault.what());
  }
}

/// Opens one side. `side` may be null, `model` as well. Throws one of the two above, or a Fault of
/// kInput where the map does not fit.
[[nodiscard]] ReadableTensor OpenSide(const OutputPlace& place, const MappedSide* side,
                                      const ModelDescription* model);

/// How many items of `itemElements` the tensor holds one behind the other, in whole parts of its
/// first dimension; empty where it does not.
[[nodiscard]] std::optional<uint64_t> ItemsIn(const ReadableTensor& stacked, uint64_t itemElements);

/// Item `item` of `items`, as many as the above has found.
[[nodiscard]] ReadableTensor ItemOf(const ReadableTensor& stacked, uint64_t item, uint64_t items);

/// Brings `expected` into the order that the map tells of.
void Align(const MappedOutput& mapped, ReadableTensor& expected, const std::string& name);

}  // namespace vorn::kit

#endif  // VORN_KIT_JUDGE_PAIRED_TENSOR_H_
