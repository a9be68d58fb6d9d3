// From the caller's strided blocks to the engine's dense tensors, and back.
#include "host/batch_plan.h"

#include <algorithm>
#include <optional>

#include "host/failure.h"
#include "host/log.h"
#include "strided/row_copy.h"

namespace vorn::host {
namespace {

std::vector<DeclaredShape> ShapesOf(const std::vector<DeclaredTensor>& tensors) {
  std::vector<DeclaredShape> shapes;
  for (const DeclaredTensor& tensor : tensors) shapes.push_back(tensor.shape);
  return shapes;
}

std::vector<Shape> Batched(std::vector<Shape> shapes, int64_t batch) {
  for (Shape& shape : shapes) shape = WithBatch(std::move(shape), batch);
  return shapes;
}

/// Whether `items` items at `address` are one dense tensor that the engine can use as it lies.
bool IsDense(const TensorLayout& layout, uint64_t stride, const std::byte* address,
             uint64_t items) {
  const bool hasPadding = stride != layout.rowBytes && layout.rows * items != 1;
  return !hasPadding && reinterpret_cast<uintptr_t>(address) % layout.elementBytes == 0;
}

}  // namespace

BatchPlan::BatchPlan(Session& session, const Config& config) : session_(session) {
  ClosedShapes shapes =
      CloseShapes(ShapesOf(session_.inputs()), ShapesOf(session_.outputs()), config.dims);
  auto description = std::make_shared<ModelDescription>();
  const auto describe = [&](const char* kind, const DeclaredTensor& tensor, const Shape& shape) {
    return DescribeTensor(kind, tensor.name, tensor.type, shape, config.rowAlignment);
  };
  // Inputs first: what is refused here must not reach a trial execution.
  for (size_t i = 0; i < shapes.inputs.size(); ++i) {
    description->inputs.push_back(describe("input", session_.inputs()[i], shapes.inputs[i]));
  }
  const std::vector<Shape> outputShapes = ShowOutputShapes(shapes);
  for (size_t i = 0; i < outputShapes.size(); ++i) {
    description->outputs.push_back(describe("output", session_.outputs()[i], outputShapes[i]));
  }
  AppendScratchInputs(*description, config.rowAlignment);

  isBatchFirst_ = shapes.isBatchFirst;
  inputs_.resize(shapes.inputs.size());
  outputs_.resize(outputShapes.size());
  for (size_t i = 0; i < inputs_.size(); ++i) inputs_[i].shape = shapes.inputs[i];
  for (size_t i = 0; i < outputs_.size(); ++i) outputs_[i].shape = outputShapes[i];
  description_ = std::move(description);
}

/// The output shapes of one item, by trial where they are unknown; clears `isBatchFirst` unless two
/// items lead to twice the first dimension.
std::vector<Shape> BatchPlan::ShowOutputShapes(ClosedShapes& shapes) {
  if (!shapes.HasUnknownOutput()) {
    std::vector<Shape> known;
    for (const auto& shape : shapes.outputs) known.push_back(*shape);
    return known;
  }
  std::vector<Shape> shown;
  try {
    shown = session_.Try(shapes.inputs);
  } catch (const Failure& e) {
    throw Failure(VORN_ERROR_MODEL, "the model does not say how large its outputs are, and ",
                  e.what(), "; give its open dimensions a size with the key 'dims'");
  }
  if (!shapes.isBatchFirst) return shown;
  try {
    shapes.isBatchFirst = std::none_of(shown.begin(), shown.end(),
                                       [](const Shape& shape) { return shape.empty(); }) &&
                          session_.Try(Batched(shapes.inputs, 2)) == Batched(shown, 2);
  } catch (const Failure&) {
    // It takes one item only, whatever its first dimension promises.
    shapes.isBatchFirst = false;
  }
  return shown;
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
  session_.Run();
  UnstageOutputs(firstItem, items);
}

void BatchPlan::CheckInputs(const Call& call) {
  CheckBlockCount("input", call.inputs, description_->inputs);
  for (size_t i = 0; i < call.inputs.size(); ++i) {
    const uint64_t itemBytes =
        CheckInputBlock(call.inputs[i], i, description_->inputs[i], call.batch);
    if (i >= inputs_.size()) continue;  // the scratch inputs
    inputs_[i].block = call.inputs[i];
    inputs_[i].itemBytes = itemBytes;
  }
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
    const std::optional<uint64_t> whole = Product(tensor.layout.DenseBytes(), batch);
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
  for (size_t i = 0; i < inputs_.size(); ++i) {
    const TensorLayout& layout = description_->inputs[i].layout;
    Slot& slot = inputs_[i];
    std::byte* data = slot.block.address + firstItem * slot.itemBytes;
    slot.isStaged = !IsDense(layout, slot.block.stride, data, items);
    if (slot.isStaged) {
      data = slot.staging.AtLeast(layout.DenseBytes() * items);
    }
    session_.BindInput(i, data, slot.shape);
  }
}

void BatchPlan::BindOutputs(uint64_t firstItem, uint64_t items) {
  for (size_t i = 0; i < outputs_.size(); ++i) {
    const TensorLayout& layout = description_->outputs[i].layout;
    Slot& slot = outputs_[i];
    // Items beyond the block have no address; they go to the staging place and no further.
    const bool fits = firstItem + items <= slot.itemsHeld;
    std::byte* data = fits ? slot.block.address + firstItem * slot.itemBytes : nullptr;
    slot.isStaged = !fits || !IsDense(layout, slot.block.stride, data, items);
    if (slot.isStaged) {
      data = slot.staging.AtLeast(layout.DenseBytes() * items);
    }
    session_.BindOutput(i, data, slot.shape);
  }
}

void BatchPlan::StageInputs(uint64_t firstItem, uint64_t items) {
  for (size_t i = 0; i < inputs_.size(); ++i) {
    const TensorLayout& layout = description_->inputs[i].layout;
    const Slot& slot = inputs_[i];
    if (!slot.isStaged) continue;
    CopyRows(slot.block.address + firstItem * slot.itemBytes, slot.block.stride,
             slot.staging.data(), layout.rowBytes, layout.rowBytes, layout.rows * items);
  }
}

void BatchPlan::UnstageOutputs(uint64_t firstItem, uint64_t items) {
  for (size_t i = 0; i < outputs_.size(); ++i) {
    const TensorLayout& layout = description_->outputs[i].layout;
    const Slot& slot = outputs_[i];
    if (!slot.isStaged || firstItem >= slot.itemsHeld) continue;
    const uint64_t written = std::min(items, slot.itemsHeld - firstItem);
    CopyRows(slot.staging.data(), layout.rowBytes, slot.block.address + firstItem * slot.itemBytes,
             slot.block.stride, layout.rowBytes, layout.rows * written);
  }
}

}  // namespace vorn::host
