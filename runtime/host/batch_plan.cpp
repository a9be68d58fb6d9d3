// From the caller's strided blocks to the engine's dense tensors, and back.
#include "host/batch_plan.h"

#include <algorithm>
#include <optional>

#include "host/element_type.h"
#include "host/failure.h"
#include "host/log.h"
#include "host/result_fit.h"

namespace vorn::host {
namespace {

DeclaredShape FixedShape(const Shape& shape) {
  DeclaredShape declared;
  for (const int64_t dim : shape) declared.push_back({.size = dim, .symbol = ""});
  return declared;
}

std::vector<DeclaredShape> ShapesOf(const std::vector<Port>& ports) {
  std::vector<DeclaredShape> shapes;
  for (const Port& port : ports) {
    shapes.push_back(port.largest ? FixedShape(*port.largest) : port.tensor.shape);
  }
  return shapes;
}

std::vector<Shape> Batched(std::vector<Shape> shapes, int64_t batch) {
  for (Shape& shape : shapes) shape = WithBatch(std::move(shape), batch);
  return shapes;
}

bool HasNoElements(const Port& port) {
  return !port.largest && std::ranges::any_of(port.tensor.shape,
                                              [](const DeclaredDim& dim) { return dim.size == 0; });
}

/// Whether `items` items at `address` are one dense tensor that the engine can use as it lies.
bool IsDense(const RowMove& move, uint64_t rowBytes, uint64_t stride, const std::byte* address,
             uint64_t items) {
  const bool hasPadding = stride != rowBytes && move.rows * items != 1;
  return !hasPadding && IsSameBytes(move.fromType, move.toType) &&
         reinterpret_cast<uintptr_t>(address) % ElementBytes(move.fromType) == 0;
}

}  // namespace

BatchPlan::BatchPlan(Session& session, Signature signature, const Config& config)
    : session_(session), signature_(std::move(signature)) {
  for (ProvidedInput& constant : signature_.constants) {
    session_.BindConstant(constant.index, constant.bytes.data(), constant.shape);
  }
  LeaveOutEmptyOutputs();
  ClosedShapes shapes =
      CloseShapes(ShapesOf(signature_.inputs), ShapesOf(signature_.outputs), config.dims);
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
  Slot slot;
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

/// An output that is declared without elements has nothing to show.
void BatchPlan::LeaveOutEmptyOutputs() {
  for (const Port& port : signature_.outputs) {
    if (!HasNoElements(port)) continue;
    Log(LogLevel::kError, "vorn_mdl_load_from_mem",
        Join("output '", port.tensor.name, "' is declared without elements and left out"));
  }
  std::erase_if(signature_.outputs, HasNoElements);
  if (signature_.outputs.empty()) {
    throw Failure(VORN_ERROR_MODEL, "the model has no output with elements; there is nothing to ",
                  "execute it for");
  }
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
    throw Failure(VORN_ERROR_MODEL, "the model does not say how large its outputs are, and ",
                  e.what(), "; give its open dimensions a size with 'dims' or 'inputDims'");
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
  } catch (const Failure&) {
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

void BatchPlan::CheckFrames(uint64_t frames) const {
  throw Failure(VORN_ERROR_UNSUPPORTED, "the model is not recurrent; it takes no ", frames,
                " frames");
}

void BatchPlan::Execute(const Call& call) {
  if (IsBoundTo(call)) return RunBound(0, call.batch);
  bound_.batch = 0;
  CheckInputs(call);
  CheckOutputs(call);
  const uint64_t itemsPerRun = isBatchFirst_ ? call.batch : 1;
  SetRunItems(itemsPerRun);
  for (uint64_t item = 0; item < call.batch; item += itemsPerRun) {
    BindInputs(item, itemsPerRun);
    BindOutputs(item, itemsPerRun);
    RunBound(item, itemsPerRun);
  }
  const bool holdsAll = std::all_of(outputs_.begin(), outputs_.end(),
                                    [&](const Slot& slot) { return slot.itemsHeld == call.batch; });
  // What is dropped has to be told every time.
  if (itemsPerRun != call.batch || !holdsAll) return;
  bound_.inputs.assign(call.inputs.begin(), call.inputs.end());
  bound_.outputs.assign(call.outputs.begin(), call.outputs.end());
  bound_.batch = call.batch;
}

bool BatchPlan::IsBoundTo(const Call& call) const {
  return call.batch != 0 && call.batch == bound_.batch &&
         std::ranges::equal(call.inputs, bound_.inputs) &&
         std::ranges::equal(call.outputs, bound_.outputs);
}

void BatchPlan::RunBound(uint64_t firstItem, uint64_t items) {
  StageInputs(firstItem, items);
  try {
    session_.Run();
  } catch (const Failure& e) {
    if (!areShapesFromTrial_) throw;
    throw Failure(e.status(), e.what(),
                  "; if it is an output whose shape depends on the data, give the largest with "
                  "'outputDims'");
  }
  UnstageOutputs(firstItem, items);
}

void BatchPlan::CheckInputs(const Call& call) {
  CheckBlockCount("input", call.inputs, description_->inputs);
  for (size_t i = 0; i < call.inputs.size(); ++i) {
    const bool isData = i < inputs_.size();
    const uint64_t items = isData && inputs_[i].isShared ? 1 : call.batch;
    const uint64_t itemBytes = CheckInputBlock(call.inputs[i], i, description_->inputs[i], items);
    if (!isData) continue;
    inputs_[i].block = call.inputs[i];
    inputs_[i].itemBytes = itemBytes;
  }
  task_ = call.inputs[inputs_.size()];
  work_ = call.inputs[inputs_.size() + 1];
}

void BatchPlan::CheckOutputs(const Call& call) {
  const uint64_t batch = call.batch;
  CheckBlockCount("output", call.outputs, description_->outputs);
  for (size_t i = 0; i < call.outputs.size(); ++i) {
    const TensorDescription& tensor = description_->outputs[i];
    Slot& slot = outputs_[i];
    slot.block = call.outputs[i];
    slot.itemBytes = ItemBytesIn(slot.block, "output", tensor);
    slot.itemsHeld = std::min(batch, slot.block.capacity / slot.itemBytes);
    if (slot.itemsHeld == 0) {
      throw Failure(VORN_ERROR_INVALID_ARGUMENT, "output ", i, " '", tensor.name, "' holds ",
                    slot.block.capacity, " bytes; one batch item needs ", slot.itemBytes);
    }
    // The engine makes the whole batch, also what is dropped then.
    const std::optional<uint64_t> whole = Product(slot.DenseBytes(), batch);
    if (!whole || *whole > kMostBytes) {
      throw Failure(VORN_ERROR_INVALID_ARGUMENT, "output ", i, " '", tensor.name,
                    "' of a batch of ", batch, " exceeds any memory; give a smaller batch");
    }
    if (slot.itemsHeld < batch) {
      Log(LogLevel::kError, "vorn_mdl_execute",
          Join("output ", i, " '", tensor.name, "' holds ", slot.itemsHeld, " of ", batch,
               " batch items; the rest is dropped"));
    }
  }
}

void BatchPlan::SetRunItems(uint64_t items) {
  if (!isBatchFirst_) return;  // one item, as described
  for (size_t i = 0; i < inputs_.size(); ++i) {
    inputs_[i].shape[0] = description_->inputs[i].dims[0] * static_cast<int64_t>(items);
  }
  for (size_t i = 0; i < outputs_.size(); ++i) {
    outputs_[i].shape[0] = description_->outputs[i].dims[0] * static_cast<int64_t>(items);
  }
}

void BatchPlan::BindInputs(uint64_t firstItem, uint64_t items) {
  for (Slot& slot : inputs_) {
    std::byte* data = slot.block.address + (slot.isShared ? 0 : firstItem) * slot.itemBytes;
    slot.isStaged = !IsDense(slot.move, slot.rowBytes, slot.block.stride, data, items);
    if (slot.isStaged) data = PlaceFor(slot, items);
    session_.BindInput(slot.port, data, slot.shape);
  }
}

void BatchPlan::BindOutputs(uint64_t firstItem, uint64_t items) {
  for (Slot& slot : outputs_) {
    // Items beyond the block have no address; they go to the staging place and no further.
    const bool fits = firstItem + items <= slot.itemsHeld;
    std::byte* data = fits ? slot.block.address + firstItem * slot.itemBytes : nullptr;
    slot.isStaged = slot.isOfAnyShape || !fits ||
                    !IsDense(slot.move, slot.rowBytes, slot.block.stride, data, items);
    if (slot.isStaged) data = PlaceFor(slot, items);
    if (!slot.isOfAnyShape) session_.BindOutput(slot.port, data, slot.shape);
  }
}

/// The dense place of a staged tensor in this run.
std::byte* BatchPlan::PlaceFor(Slot& slot, uint64_t items) {
  const uint64_t bytes = slot.DenseBytes() * items;
  slot.place = nullptr;
  if (slot.workOffset) slot.place = PlaceIn(work_, *slot.workOffset * items, bytes);
  if (slot.place == nullptr) slot.place = slot.staging.AtLeast(bytes);
  return slot.place;
}

void BatchPlan::StageInputs(uint64_t firstItem, uint64_t items) {
  TaskTable table(task_);
  for (size_t i = 0; i < inputs_.size(); ++i) {
    const Slot& slot = inputs_[i];
    if (!slot.isStaged) continue;
    RowMove move = slot.move;
    move.from = slot.block.address + (slot.isShared ? 0 : firstItem) * slot.itemBytes;
    move.fromStride = slot.block.stride;
    move.to = slot.place;
    move.toStride = slot.rowBytes;
    move.rows *= items;
    MoveRows(table.Put(i, move));
  }
}

void BatchPlan::UnstageOutputs(uint64_t firstItem, uint64_t items) {
  TaskTable table(task_);
  for (size_t i = 0; i < outputs_.size(); ++i) {
    const Slot& slot = outputs_[i];
    if (!slot.isStaged || firstItem >= slot.itemsHeld) continue;
    if (slot.isOfAnyShape) {
      FitResult(description_->outputs[i].name, session_.Result(slot.port), slot.shape,
                ElementBytes(slot.move.fromType), slot.place);
    }
    RowMove move = slot.move;
    move.from = slot.place;
    move.fromStride = slot.rowBytes;
    move.to = slot.block.address + firstItem * slot.itemBytes;
    move.toStride = slot.block.stride;
    move.rows *= std::min(items, slot.itemsHeld - firstItem);
    MoveRows(table.Put(inputs_.size() + i, move));
  }
}

}  // namespace vorn::host
