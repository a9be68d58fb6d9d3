// From declared to closed shapes.
#include "host/tensor/shape.h"

#include <algorithm>
#include <set>

namespace vorn::host {
namespace {

using Sizes = std::map<std::string, int64_t>;

/// The declared shape with the configured sizes put in.
DeclaredShape WithSizes(DeclaredShape shape, const Sizes& sizes) {
  for (DeclaredDim& dim : shape) {
    if (dim.size >= 0) continue;
    const auto found = sizes.find(dim.symbol);
    if (!dim.symbol.empty() && found != sizes.end()) dim = {.size = found->second, .symbol = ""};
  }
  return shape;
}

bool HasOpenFirstDim(const DeclaredShape& shape) { return !shape.empty() && shape[0].size < 0; }

/// The names of open dimensions among the inputs.
struct Symbols {
  std::set<std::string> batch;  // first dimensions
  std::set<std::string> inner;  // all others
};

Symbols SymbolsOf(std::span<const DeclaredShape> inputs) {
  Symbols symbols;
  for (const DeclaredShape& shape : inputs) {
    for (size_t i = 0; i < shape.size(); ++i) {
      if (shape[i].size >= 0 || shape[i].symbol.empty()) continue;
      (i == 0 ? symbols.batch : symbols.inner).insert(shape[i].symbol);
    }
  }
  return symbols;
}

bool HaveCommon(const std::set<std::string>& a, const std::set<std::string>& b) {
  return std::any_of(a.begin(), a.end(), [&](const std::string& name) { return b.contains(name); });
}

std::optional<Shape> CloseOutput(const DeclaredShape& declared, const Symbols& symbols) {
  if (declared.empty()) return std::nullopt;
  Shape shape;
  for (const DeclaredDim& dim : declared) {
    const bool isKnown =
        dim.size >= 0 || symbols.batch.contains(dim.symbol) || symbols.inner.contains(dim.symbol);
    if (!isKnown) return std::nullopt;
    shape.push_back(dim.size < 0 ? 1 : dim.size);
  }
  return shape;
}

/// Whether the batch is the first dimension of an output and no other one.
bool IsBatchFirst(const DeclaredShape& declared, const Symbols& symbols) {
  const auto isBatch = [&](const DeclaredDim& dim) {
    return dim.size < 0 && symbols.batch.contains(dim.symbol);
  };
  return !declared.empty() && isBatch(declared[0]) &&
         std::none_of(declared.begin() + 1, declared.end(), isBatch);
}

std::vector<DeclaredShape> WithSizes(std::span<const DeclaredShape> shapes, const Sizes& sizes) {
  std::vector<DeclaredShape> sized;
  for (const DeclaredShape& shape : shapes) sized.push_back(WithSizes(shape, sizes));
  return sized;
}

}  // namespace

bool ClosedShapes::HasUnknownOutput() const {
  return std::any_of(outputs.begin(), outputs.end(), [](const auto& shape) { return !shape; });
}

ClosedShapes CloseShapes(std::span<const DeclaredShape> inputs,
                         std::span<const DeclaredShape> outputs, const Sizes& sizes) {
  const std::vector<DeclaredShape> sizedInputs = WithSizes(inputs, sizes);
  const std::vector<DeclaredShape> sizedOutputs = WithSizes(outputs, sizes);
  const Symbols symbols = SymbolsOf(sizedInputs);

  ClosedShapes closed{};
  closed.isBatchFirst = !sizedInputs.empty() &&
                        std::all_of(sizedInputs.begin(), sizedInputs.end(), HasOpenFirstDim) &&
                        !HaveCommon(symbols.batch, symbols.inner);
  for (const DeclaredShape& shape : sizedInputs) closed.inputs.push_back(CloseDims(shape));
  for (const DeclaredShape& shape : sizedOutputs) {
    closed.outputs.push_back(CloseOutput(shape, symbols));
    const bool isKnown = closed.outputs.back().has_value();
    if (isKnown && !IsBatchFirst(shape, symbols)) closed.isBatchFirst = false;
  }
  return closed;
}

bool HasNoElements(const DeclaredShape& declared) {
  return std::ranges::any_of(declared, [](const DeclaredDim& dim) { return dim.size == 0; });
}

Shape CloseDims(const DeclaredShape& declared) {
  Shape shape;
  for (const DeclaredDim& dim : declared) shape.push_back(dim.size < 0 ? 1 : dim.size);
  return shape;
}

Shape WithBatch(Shape item, int64_t batch) {
  if (!item.empty()) item[0] *= batch;
  return item;
}

Shape WithDim(Shape shape, std::optional<size_t> axis, uint64_t size) {
  if (axis) shape[*axis] = static_cast<int64_t>(size);
  return shape;
}

std::string ShapeText(std::span<const int64_t> shape) {
  std::string text = "[";
  for (size_t i = 0; i < shape.size(); ++i) {
    if (i != 0) text += ", ";
    text += shape[i] < 0 ? "?" : std::to_string(shape[i]);
  }
  return text + "]";
}

std::string ShapeText(const DeclaredShape& declared) {
  std::string text = "[";
  for (size_t i = 0; i < declared.size(); ++i) {
    const DeclaredDim& dim = declared[i];
    if (i != 0) text += ", ";
    text += dim.size >= 0 ? std::to_string(dim.size) : dim.symbol.empty() ? "?" : dim.symbol;
  }
  return text + "]";
}

}  // namespace vorn::host
