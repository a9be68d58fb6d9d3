// Closing the dimensions that a model leaves open.
//
// A model may leave dimensions open, with or without a name. Here each gets its size, for one batch
// item, and it is decided how a batch is executed:
//
//   - a dimension whose name the configuration gives a size has that size;
//   - the open first dimension of an input is the batch, 1 for one item;
//   - every other open input dimension is 1; that is left to states and the like, since any other
//     input with such a one is refused before (plan/signature.h);
//   - an open output dimension takes the size of the input dimension of that name. Without one, the
//     whole output stays unknown until a trial execution shows its shape.
//
// All items of a batch are executed at once if every input and every output has the batch as its
// first dimension and nowhere else. Any other model is executed once for each item.
#ifndef VORN_RUNTIME_HOST_TENSOR_SHAPE_H_
#define VORN_RUNTIME_HOST_TENSOR_SHAPE_H_

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace vorn::host {

/// A dimension as a model declares it.
struct DeclaredDim {
  static constexpr int64_t kOpen = -1;
  int64_t size = kOpen;
  std::string symbol;  ///< the name of an open dimension; may be empty
};

using DeclaredShape = std::vector<DeclaredDim>;
using Shape = std::vector<int64_t>;

struct ClosedShapes {
  std::vector<Shape> inputs;
  std::vector<std::optional<Shape>> outputs;  ///< nothing: a trial has to show it
  bool isBatchFirst;                          ///< the known ones allow to execute a batch at once

  bool HasUnknownOutput() const;
};

/// An output without dimensions counts as unknown: an engine shows an output whose shape is not
/// declared in the same way.
ClosedShapes CloseShapes(std::span<const DeclaredShape> inputs,
                         std::span<const DeclaredShape> outputs,
                         const std::map<std::string, int64_t>& sizes);

/// Whether a dimension is declared as 0, so that there is no element whatever the others are.
bool HasNoElements(const DeclaredShape& declared);

/// The declared dimensions with 1 for each open one.
Shape CloseDims(const DeclaredShape& declared);

/// The shape of `batch` items: the first dimension times `batch`. A shape without dimensions stays.
Shape WithBatch(Shape item, int64_t batch);

/// The shape with that dimension put in, if there is one.
Shape WithDim(Shape shape, std::optional<size_t> axis, uint64_t size);

/// "[1, 3, ?]" for messages.
std::string ShapeText(std::span<const int64_t> shape);

/// "[batch, 3, ?]", the last one open and without a name.
std::string ShapeText(const DeclaredShape& declared);

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_TENSOR_SHAPE_H_
