// Handles to what callers said, and the blocks behind it.
#include "host/state/datasets.h"

#include <algorithm>
#include <memory>
#include <optional>

#include "host/common/failure.h"

namespace vorn::host {
namespace {

const char* WordFor(Side side) { return side == Side::kInput ? "input" : "output"; }

}  // namespace

vorn_data_buffer* Datasets::CreateBuffer(void* block, uint64_t size, uint64_t stride) {
  if (block == nullptr || size == 0 || stride == 0) {
    throw Failure(VORN_ERROR_INVALID_ARGUMENT, "a block at ", block, " of ", size,
                  " bytes with a stride of ", stride, "; none of the three may be 0");
  }
  auto* buffer = NewHandle<vorn_data_buffer>();
  buffers_.Add(buffer, std::make_shared<DataBuffer>(
                           DataBuffer{.address = block,
                                      .size = size,
                                      .stride = stride,
                                      .isOurs = blocks_.BytesFrom(block).has_value()}));
  return buffer;
}

void Datasets::DestroyBuffer(vorn_data_buffer* buffer) { buffers_.RequireRemoved(buffer); }

const DataBuffer& Datasets::Buffer(const vorn_data_buffer* buffer) const {
  return buffers_.Require(buffer);
}

vorn_mdl_dataset* Datasets::Create() {
  auto* dataset = NewHandle<vorn_mdl_dataset>();
  datasets_.Add(dataset, std::make_shared<Dataset>());
  return dataset;
}

void Datasets::Destroy(vorn_mdl_dataset* dataset) { datasets_.RequireRemoved(dataset); }

Dataset& Datasets::At(const vorn_mdl_dataset* dataset) const { return datasets_.Require(dataset); }

void Datasets::Add(vorn_mdl_dataset* dataset, vorn_data_buffer* buffer) {
  static_cast<void>(Buffer(buffer));
  At(dataset).buffers.push_back(buffer);
}

void Datasets::SetBatch(vorn_mdl_dataset* dataset, uint64_t index, uint64_t batch) {
  Dataset& live = At(dataset);
  if (index != 0) {
    throw Failure(VORN_ERROR_INVALID_ARGUMENT, "index is ", index, "; it has to be 0");
  }
  if (batch == 0) {
    throw Failure(VORN_ERROR_INVALID_ARGUMENT, "the batch size is 0; it has to be at least 1");
  }
  live.batch = batch;
}

vorn_data_buffer* Datasets::BufferAt(const vorn_mdl_dataset* dataset, uint64_t index) const {
  const std::vector<vorn_data_buffer*>& buffers = At(dataset).buffers;
  if (index >= buffers.size()) {
    throw Failure(VORN_ERROR_INVALID_ARGUMENT, "index is ", index, "; the dataset has ",
                  buffers.size(), " buffers");
  }
  return buffers[index];
}

void Datasets::ViewsOf(const Dataset& dataset, Side side, std::vector<BlockView>& views) const {
  views.clear();
  for (size_t i = 0; i < dataset.buffers.size(); ++i) {
    views.push_back(ViewOf(dataset.buffers[i], side, i));
  }
}

/// How far a block reaches is what was registered, unless it is one of ours: then it is known.
/// A caller may grow an input block after it took the size to register, so an input may reach
/// further than registered. An output is bounded by both.
BlockView Datasets::ViewOf(const vorn_data_buffer* buffer, Side side, size_t index) const {
  const DataBuffer& live = Buffer(buffer);
  const std::optional<uint64_t> real = blocks_.BytesFrom(live.address);
  if (live.isOurs && !real) {
    throw Failure(VORN_ERROR_INVALID_ARGUMENT, "the block of ", WordFor(side), " ", index,
                  " was freed; register a live one");
  }
  const uint64_t known = real.value_or(live.size);
  const bool isInput = side == Side::kInput;
  return {.address = static_cast<std::byte*>(live.address),
          .capacity = isInput ? known : std::min(known, live.size),
          .stride = live.stride,
          .registered = live.size};
}

}  // namespace vorn::host
