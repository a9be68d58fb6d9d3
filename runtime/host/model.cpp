// From the caller's strided blocks to the engine's dense tensors, and back.
#include "host/model.h"

#include <algorithm>
#include <optional>
#include <string_view>

#include "host/failure.h"
#include "host/log.h"
#include "strided/row_copy.h"

namespace vorn::host {
namespace {

constexpr uint64_t kMostBytes = INT64_MAX;  // of a whole batch; the engine counts with a sign

std::vector<DeclaredShape> ShapesOf(const std::vector<DeclaredTensor>& tensors) {
  std::vector<DeclaredShape> shapes;
  for (const DeclaredTensor& tensor : tensors) shapes.push_back(tensor.shape);
  return shapes;
}

bool HasSymbol(const std::vector<DeclaredTensor>& tensors, std::string_view name) {
  return std::any_of(tensors.begin(), tensors.end(), [&](const DeclaredTensor& tensor) {
    return std::any_of(tensor.shape.begin(), tensor.shape.end(),
                       [&](const DeclaredDim& dim) { return dim.symbol == name; });
  });
}

void LogUnusedSizes(const Session& session, const Config& config) {
  for (const auto& [name, size] : config.dims) {
    if (HasSymbol(session.inputs(), name)) continue;
    Log(LogLevel::kInfo, "vorn_mdl_load_from_mem",
        Join("'dims' gives '", name, "' the size ", size, ", but no input leaves it open"));
  }
}

std::vector<Shape> Batched(std::vector<Shape> shapes, int64_t batch) {
  for (Shape& shape : shapes) shape = WithBatch(std::move(shape), batch);
  return shapes;
}

/// Bytes of one batch item in a block with rows `block.stride` apart.
uint64_t ItemBytes(const char* kind, const TensorDescription& tensor, const BlockView& block) {
  if (block.stride < tensor.layout.rowBytes) {
    throw Failure(VORN_ERROR_INVALID_ARGUMENT, kind, " '", tensor.name, "' has a stride of ",
                  block.stride, " bytes; a row has ", tensor.layout.rowBytes);
  }
  const std::optional<uint64_t> bytes = Product(tensor.layout.rows, block.stride);
  if (!bytes) {
    throw Failure(VORN_ERROR_INVALID_ARGUMENT, kind, " '", tensor.name, "' has a stride of ",
                  block.stride, " bytes; its ", tensor.layout.rows, " rows reach beyond any block");
  }
  return *bytes;
}

void CheckCount(const char* kind, size_t have, size_t want) {
  if (have == want) return;
  throw Failure(VORN_ERROR_INVALID_ARGUMENT, "the ", kind, " dataset has ", have,
                " buffers; the model has ", want, " ", kind, "s");
}

/// Whether `items` items at `address` are one dense tensor that the engine can use as it lies.
bool IsDense(const TensorLayout& layout, uint64_t stride, const std::byte* address,
             uint64_t items) {
  const bool hasPadding = stride != layout.rowBytes && layout.rows * items != 1;
  return !hasPadding && reinterpret_cast<uintptr_t>(address) % layout.elementBytes == 0;
}

}  // namespace

Model::Model(Engine& engine, std::span<const std::byte> image, const Config& config)
    : session_(engine.Open(image, config)) {
  if (session_->outputs().empty()) {
    throw Failure(VORN_ERROR_MODEL, "the model has no output; there is nothing to execute it for");
  }
  LogUnusedSizes(*session_, config);
  Describe(config);
}

void Model::Describe(const Config& config) {
  ClosedShapes shapes =
      CloseShapes(ShapesOf(session_->inputs()), ShapesOf(session_->outputs()), config.dims);
  auto description = std::make_shared<ModelDescription>();
  const auto describe = [&](const char* kind, const DeclaredTensor& tensor, const Shape& shape) {
    return DescribeTensor(kind, tensor.name, tensor.type, shape, config.rowAlignment);
  };
  // Inputs first: what is refused here must not reach a trial execution.
  for (size_t i = 0; i < shapes.inputs.size(); ++i) {
    description->inputs.push_back(describe("input", session_->inputs()[i], shapes.inputs[i]));
  }
  const std::vector<Shape> outputShapes = ShowOutputShapes(shapes);
  for (size_t i = 0; i < outputShapes.size(); ++i) {
    description->outputs.push_back(describe("output", session_->outputs()[i], outputShapes[i]));
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
std::vector<Shape> Model::ShowOutputShapes(ClosedShapes& shapes) {
  if (!shapes.HasUnknownOutput()) {
    std::vector<Shape> known;
    for (const auto& shape : shapes.outputs) known.push_back(*shape);
    return known;
  }
  std::vector<Shape> shown;
  try {
    shown = session_->Try(shapes.inputs);
  } catch (const Failure& e) {
    throw Failure(VORN_ERROR_MODEL, "the model does not say how large its outputs are, and ",
                  e.what(), "; give its open dimensions a size with the key 'dims'");
  }
  if (!shapes.isBatchFirst) return shown;
  try {
    shapes.isBatchFirst = std::none_of(shown.begin(), shown.end(),
                                       [](const Shape& shape) { return shape.empty(); }) &&
                          session_->Try(Batched(shapes.inputs, 2)) == Batched(shown, 2);
  } catch (const Failure&) {
    // It takes one item only, whatever its first dimension promises.
    shapes.isBatchFirst = false;
  }
  return shown;
}

void Model::Execute(std::span<const BlockView> inputs, std::span<const BlockView> outputs,
                    uint64_t batch) {
  const std::lock_guard lock(mutex_);
  if (IsBoundTo(inputs, outputs, batch)) return RunBound(0, batch);
  bound_.batch = 0;
  CheckInputs(inputs, batch);
  CheckOutputs(outputs, batch);
  const uint64_t itemsPerRun = isBatchFirst_ ? batch : 1;
  SetRunItems(itemsPerRun);
  for (uint64_t item = 0; item < batch; item += itemsPerRun) {
    BindInputs(item, itemsPerRun);
    BindOutputs(item, itemsPerRun);
    RunBound(item, itemsPerRun);
  }
  const bool holdsAll = std::all_of(outputs_.begin(), outputs_.end(),
                                    [&](const Slot& slot) { return slot.itemsHeld == batch; });
  // What is dropped has to be told every time.
  if (itemsPerRun != batch || !holdsAll) return;
  bound_.inputs.assign(inputs.begin(), inputs.end());
  bound_.outputs.assign(outputs.begin(), outputs.end());
  bound_.batch = batch;
}

bool Model::IsBoundTo(std::span<const BlockView> inputs, std::span<const BlockView> outputs,
                      uint64_t batch) const {
  return batch != 0 && batch == bound_.batch && std::ranges::equal(inputs, bound_.inputs) &&
         std::ranges::equal(outputs, bound_.outputs);
}

void Model::RunBound(uint64_t firstItem, uint64_t items) {
  StageInputs(firstItem, items);
  session_->Run();
  UnstageOutputs(firstItem, items);
}

void Model::CheckInputs(std::span<const BlockView> blocks, uint64_t batch) {
  CheckCount("input", blocks.size(), description_->inputs.size());
  for (size_t i = 0; i < blocks.size(); ++i) {
    const TensorDescription& tensor = description_->inputs[i];
    const uint64_t itemBytes = ItemBytes("input", tensor, blocks[i]);
    const std::optional<uint64_t> wanted = Product(itemBytes, batch);
    if (!wanted || *wanted > kMostBytes || blocks[i].capacity < *wanted) {
      throw Failure(VORN_ERROR_INVALID_ARGUMENT, "input ", i, " '", tensor.name, "' holds ",
                    blocks[i].capacity, " bytes; a batch of ", batch, " needs ", batch, " times ",
                    itemBytes);
    }
    if (i >= inputs_.size()) continue;  // the scratch inputs
    inputs_[i].block = blocks[i];
    inputs_[i].itemBytes = itemBytes;
  }
}

void Model::CheckOutputs(std::span<const BlockView> blocks, uint64_t batch) {
  CheckCount("output", blocks.size(), description_->outputs.size());
  for (size_t i = 0; i < blocks.size(); ++i) {
    const TensorDescription& tensor = description_->outputs[i];
    Slot& slot = outputs_[i];
    slot.block = blocks[i];
    slot.itemBytes = ItemBytes("output", tensor, blocks[i]);
    slot.itemsHeld = std::min(batch, blocks[i].capacity / slot.itemBytes);
    if (slot.itemsHeld == 0) {
      throw Failure(VORN_ERROR_INVALID_ARGUMENT, "output ", i, " '", tensor.name, "' holds ",
                    blocks[i].capacity, " bytes; one batch item needs ", slot.itemBytes);
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

void Model::SetRunItems(uint64_t items) {
  if (!isBatchFirst_) return;  // one item, as described
  for (size_t i = 0; i < inputs_.size(); ++i) {
    inputs_[i].shape[0] = description_->inputs[i].dims[0] * static_cast<int64_t>(items);
  }
  for (size_t i = 0; i < outputs_.size(); ++i) {
    outputs_[i].shape[0] = description_->outputs[i].dims[0] * static_cast<int64_t>(items);
  }
}

void Model::BindInputs(uint64_t firstItem, uint64_t items) {
  for (size_t i = 0; i < inputs_.size(); ++i) {
    const TensorLayout& layout = description_->inputs[i].layout;
    Slot& slot = inputs_[i];
    std::byte* data = slot.block.address + firstItem * slot.itemBytes;
    slot.isStaged = !IsDense(layout, slot.block.stride, data, items);
    if (slot.isStaged) {
      data = slot.staging.AtLeast(layout.DenseBytes() * items);
    }
    session_->BindInput(i, data, slot.shape);
  }
}

void Model::BindOutputs(uint64_t firstItem, uint64_t items) {
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
    session_->BindOutput(i, data, slot.shape);
  }
}

void Model::StageInputs(uint64_t firstItem, uint64_t items) {
  for (size_t i = 0; i < inputs_.size(); ++i) {
    const TensorLayout& layout = description_->inputs[i].layout;
    const Slot& slot = inputs_[i];
    if (!slot.isStaged) continue;
    CopyRows(slot.block.address + firstItem * slot.itemBytes, slot.block.stride,
             slot.staging.data(), layout.rowBytes, layout.rowBytes, layout.rows * items);
  }
}

void Model::UnstageOutputs(uint64_t firstItem, uint64_t items) {
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
