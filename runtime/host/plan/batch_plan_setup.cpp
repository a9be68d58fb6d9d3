// What a caller sees of a model that executes batches, and whether it takes a batch at once.
#include <algorithm>
#include <optional>

#include "host/common/failure.h"
#include "host/plan/batch_plan.h"
#include "host/tensor/element_type.h"

namespace vorn::host {
namespace {

DeclaredShape FixedShape(const Shape& shape) {
  DeclaredShape declared;
  for (const int64_t dim : shape) declared.push_back({.size = dim, .symbol = ""});
  return declared;
}

DeclaredShape ShapeOf(const Port& port) {
  return port.largest ? FixedShape(*port.largest) : port.tensor.shape;
}

std::vector<DeclaredShape> ShapesOf(const std::vector<Port>& ports) {
  std::vector<DeclaredShape> shapes;
  for (const Port& port : ports) shapes.push_back(ShapeOf(port));
  return shapes;
}

std::vector<Shape> Batched(std::vector<Shape> shapes, int64_t batch) {
  for (Shape& shape : shapes) shape = WithBatch(std::move(shape), batch);
  return shapes;
}

}  // namespace

BatchPlan::BatchPlan(Session& session, Signature signature, const Config& config)
    : session_(session), signature_(std::move(signature)) {
  for (ProvidedInput& constant : signature_.constants) {
    session_.BindConstant(constant.index, constant.bytes.data(), constant.shape);
  }
  ClosedShapes shapes =
      CloseShapes(ShapesOf(signature_.inputs), ShapesOf(signature_.outputs), config.dims);
  for (size_t i = 0; i < signature_.outputs.size(); ++i) {
    if (!signature_.outputs[i].largest) continue;
    shapes.outputs[i] = signature_.outputs[i].largest;  // known also where it has no dimensions
    shapes.isBatchFirst = false;
  }
  const bool hasOpenConstant = std::ranges::any_of(
      signature_.constants, [](const ProvidedInput& constant) { return constant.hadOpenDims; });
  if (hasOpenConstant || signature_.rpnCount != 0) shapes.isBatchFirst = false;

  auto description = std::make_shared<ModelDescription>();
  // Inputs first: what is refused here must not reach a trial execution.
  for (size_t i = 0; i < signature_.inputs.size(); ++i) {
    const DeclaredTensor& tensor = signature_.inputs[i].tensor;
    description->inputs.push_back(DescribeTensor("input", tensor.name, ShownInputType(tensor.type),
                                                 shapes.inputs[i], config.rowAlignment));
  }
  const std::vector<Shape> outputShapes = ShowOutputShapes(shapes);
  for (size_t i = 0; i < outputShapes.size(); ++i) {
    const DeclaredTensor& tensor = signature_.outputs[i].tensor;
    description->outputs.push_back(DescribeTensor("output", tensor.name,
                                                  ShownOutputType(tensor.type, config.outputTypes),
                                                  outputShapes[i], config.rowAlignment));
  }

  isBatchFirst_ = shapes.isBatchFirst;
  WorkLayout work;
  for (size_t i = 0; i < signature_.inputs.size(); ++i) {
    inputs_.push_back(
        SlotFor(signature_.inputs[i], description->inputs[i], shapes.inputs[i], work));
    inputs_[i].isShared = i + signature_.rpnCount >= signature_.inputs.size();
  }
  for (size_t i = 0; i < outputShapes.size(); ++i) {
    outputs_.push_back(
        SlotFor(signature_.outputs[i], description->outputs[i], outputShapes[i], work));
    if (outputs_[i].isOfAnyShape) session_.BindOutputOfAnyShape(outputs_[i].port);
  }
  AppendScratchInputs(*description, kScratchUnit * (inputs_.size() + outputs_.size()), work.bytes(),
                      config.rowAlignment);
  description_ = std::move(description);
}

BatchPlan::Slot BatchPlan::SlotFor(const Port& port, const TensorDescription& tensor,
                                   const Shape& shape, WorkLayout& work) const {
  Slot slot{};
  slot.port = port.index;
  slot.shape = shape;
  slot.move = {.rows = tensor.layout.rows,
               .columns = tensor.layout.rowBytes / tensor.layout.elementBytes,
               .fromType = port.tensor.type,
               .toType = tensor.type};
  slot.rowBytes = slot.move.columns * ElementBytes(port.tensor.type);
  slot.isOfAnyShape = port.largest.has_value();
  const bool isStaged = slot.isOfAnyShape || tensor.layout.stride != slot.rowBytes ||
                        !IsSameBytes(slot.move.fromType, slot.move.toType);
  if (isStaged) slot.workOffset = work.Reserve(slot.DenseBytes());
  return slot;
}

/// The output shapes of one item, by trial where they are unknown; clears `isBatchFirst` unless two
/// items lead to twice the first dimension.
std::vector<Shape> BatchPlan::ShowOutputShapes(ClosedShapes& shapes) {
  std::vector<Shape> shown;
  if (!shapes.HasUnknownOutput()) {
    for (const auto& shape : shapes.outputs) shown.push_back(*shape);
    return shown;
  }
  areShapesFromTrial_ = true;
  try {
    shown = Try(shapes.inputs);
  } catch (const Failure& e) {
    if (e.status() != VORN_ERROR_EXECUTION) throw;
    throw Failure(
        VORN_ERROR_MODEL, "the model does not say how large its outputs are, and ", e.what(),
        "; give its open dimensions a size with 'dims' or 'inputDims', or the outputs one with "
        "'outputDims'");
  }
  for (size_t i = 0; i < shown.size(); ++i) {
    if (std::ranges::find(shown[i], 0) == shown[i].end()) continue;
    throw Failure(VORN_ERROR_MODEL, "output '", signature_.outputs[i].tensor.name,
                  "' has the shape ", ShapeText(shown[i]), " in a trial with zero inputs; ",
                  "give the largest that it takes with 'outputDims'");
  }
  if (!shapes.isBatchFirst) return shown;
  try {
    shapes.isBatchFirst = std::none_of(shown.begin(), shown.end(),
                                       [](const Shape& shape) { return shape.empty(); }) &&
                          Try(Batched(shapes.inputs, 2)) == Batched(shown, 2);
  } catch (const Failure& e) {
    if (e.status() != VORN_ERROR_EXECUTION) throw;
    // It takes one item only, whatever its first dimension promises.
    shapes.isBatchFirst = false;
  }
  return shown;
}

/// Those of the outputs that a caller sees; the largest where the data decide.
std::vector<Shape> BatchPlan::Try(const std::vector<Shape>& inputShapes) {
  std::vector<Shape> all(session_.inputs().size());
  for (size_t i = 0; i < inputShapes.size(); ++i) all[signature_.inputs[i].index] = inputShapes[i];
  const std::vector<Shape> results = session_.Try(all);
  std::vector<Shape> shown;
  for (const Port& port : signature_.outputs) {
    shown.push_back(port.largest ? *port.largest : results[port.index]);
  }
  return shown;
}

}  // namespace vorn::host
