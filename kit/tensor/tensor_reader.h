// The values of a tensor, a block at a time, in the order and with the meaning that they are
// compared in.
#ifndef VORN_KIT_TENSOR_TENSOR_READER_H_
#define VORN_KIT_TENSOR_TENSOR_READER_H_

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "kit/tensor/input_file.h"
#include "kit/tensor/number_lines.h"
#include "kit/tensor/stored_tensor.h"

namespace vorn::kit {

/// How whole numbers stand for others: (value − zeroPoint) · scale. Of a channel each, if there are
/// several: the stored element at place p is of channel p / stride modulo their number.
struct Quantisation {
  double scale = 1;
  double zeroPoint = 0;
  std::vector<double> scales{};      ///< instead of `scale`, a channel each; empty for all the same
  std::vector<double> zeroPoints{};  ///< as many
  size_t axis = 0;                   ///< the dimension of channels, of what is stored
  uint64_t stride = 1;               ///< from channel to channel, in elements

  /// The coarsest.
  [[nodiscard]] double Step() const;
};

/// Places of a stored tensor's elements: of the element at [i, j, …] it is
/// first + i · strides[0] + j · strides[1] + …, counted in elements.
struct ElementOrder {
  Shape shape;
  std::vector<uint64_t> strides;
  uint64_t first = 0;

  /// As the tensor lies in its file; without a shape of its own one dimension.
  [[nodiscard]] static ElementOrder Of(const StoredTensor& tensor);

  /// One item of the outermost dimension, which goes.
  [[nodiscard]] ElementOrder Slice(uint64_t item) const;

  /// Dimension i is what was dimension `order[i]`.
  [[nodiscard]] ElementOrder Permuted(const std::vector<size_t>& order) const;

  /// Whether the elements lie one behind the other.
  [[nodiscard]] bool IsDense() const;
};

class TensorReader {
 public:
  /// Throws a Fault of kInput, here and when reading, that names the file.
  TensorReader(StoredTensor tensor, ElementOrder order, const Quantisation& quantisation = {});

  [[nodiscard]] uint64_t Elements() const { return elements_; }

  /// Fills the room as far as there are elements; how many came, 0 at the end.
  [[nodiscard]] size_t Next(std::span<float> room);

 private:
  void ReadDense(std::span<float> room);
  void ReadScattered(std::span<float> room);
  void ReadText(std::span<float> room);
  void Decode();
  void DequantiseChannels(std::span<float> room) const;

  StoredTensor tensor_;
  ElementOrder order_;
  Quantisation quantisation_;
  uint64_t elements_ = 0;
  uint64_t done_ = 0;
  bool isDense_ = false;
  std::unique_ptr<InputFile> file_;
  std::unique_ptr<NumberLines> lines_;
  std::vector<std::byte> bytes_;  ///< of a block, where they are not floats as they lie
  std::vector<uint64_t> index_;   ///< of the next element, where they are scattered
  std::vector<uint64_t>
      places_;  ///< of a block's elements, where channels have scales of their own
};

/// All values, at most `mostElements`, which is checked before anything is taken.
[[nodiscard]] std::vector<float> ReadAll(TensorReader& reader, uint64_t mostElements);

}  // namespace vorn::kit

#endif  // VORN_KIT_TENSOR_TENSOR_READER_H_
