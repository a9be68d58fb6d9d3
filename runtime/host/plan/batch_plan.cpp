// From the caller's strided blocks to the engine's dense tensors, and back.
#include "host/plan/batch_plan.h"

#include <algorithm>
#include <optional>
#include <string_view>

#include "host/common/failure.h"
#include "host/common/log.h"
#include "host/plan/result_fit.h"
#include "host/tensor/element_type.h"

namespace vorn::host {
namespace {

/// Whether `items` items at `address` are one dense tensor that the engine can use as it lies.
bool IsDense(const RowMove& move, uint64_t rowBytes, uint64_t stride, const std::byte* address,
             uint64_t items) {
  const bool hasPadding = stride != rowBytes && move.rows * items != 1;
  return !hasPadding && IsSameBytes(move.fromType, move.toType) &&
         reinterpret_cast<uintptr_t>(address) % ElementBytes(move.fromType) == 0;
}

/// Whether the reason is an output of another shape than the place that was made for it. The
/// execution library has words for that, and no code.
bool IsShapeOfOutput(std::string_view reason) {
  return reason.find("but the computed output shape for this run is") != reason.npos;
}

}  // namespace

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
    if (!areShapesFromTrial_ && !IsShapeOfOutput(e.what())) throw;
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
