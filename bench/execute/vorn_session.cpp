// The calls of vorn-run for one inference, with the making of the datasets left out of Run.
#include "execute/vorn_session.h"

#include <cstring>
#include <stdexcept>

namespace {

void Require(bool isDone, const char* step) {
  if (!isDone) throw std::runtime_error(std::string(step) + " failed; VORN_LOG=error says why");
}

std::byte* Allocate(uint64_t size) {
  void* block = nullptr;
  Require(vorn_rt_malloc(&block, size, VORN_MEM_NORMAL_ONLY) == VORN_SUCCESS, "vorn_rt_malloc");
  return static_cast<std::byte*>(block);
}

}  // namespace

VornRuntime::VornRuntime(const std::string& configPath) {
  Require(vorn_init(configPath.c_str()) == VORN_SUCCESS, "vorn_init");
  Require(vorn_rt_set_device(0) == VORN_SUCCESS, "vorn_rt_set_device");
  Require(vorn_rt_create_context(&context_, 0) == VORN_SUCCESS, "vorn_rt_create_context");
  Require(vorn_rt_create_stream(&stream_) == VORN_SUCCESS, "vorn_rt_create_stream");
}

VornRuntime::~VornRuntime() {
  vorn_rt_destroy_stream(stream_);
  vorn_rt_destroy_context(context_);
  vorn_rt_reset_device(0);
  vorn_finalize();
}

VornSession::VornSession(std::span<const std::byte> image) {
  image_ = Allocate(image.size());
  std::memcpy(image_, image.data(), image.size());
  Require(vorn_mdl_load_from_mem(image_, image.size(), &modelId_) == VORN_SUCCESS,
          "vorn_mdl_load_from_mem");
  desc_ = vorn_mdl_create_desc();
  Require(vorn_mdl_get_desc(desc_, modelId_) == VORN_SUCCESS, "vorn_mdl_get_desc");
  inputs_.handle = vorn_mdl_create_dataset();
  for (uint64_t i = 0; i < vorn_mdl_get_num_inputs(desc_); ++i) {
    Add(inputs_, vorn_mdl_get_input_size_by_index(desc_, i),
        vorn_mdl_get_input_default_stride(desc_, i));
  }
  outputs_.handle = vorn_mdl_create_dataset();
  for (uint64_t i = 0; i < vorn_mdl_get_num_outputs(desc_); ++i) {
    Add(outputs_, vorn_mdl_get_output_size_by_index(desc_, i),
        vorn_mdl_get_output_default_stride(desc_, i));
  }
}

VornSession::~VornSession() {
  Destroy(inputs_);
  Destroy(outputs_);
  vorn_mdl_unload(modelId_);
  vorn_mdl_destroy_desc(desc_);
  vorn_rt_free(image_);
}

void VornSession::Add(Dataset& dataset, uint64_t size, uint64_t stride) {
  std::byte* block = Allocate(size);
  std::memset(block, 0, size);
  vorn_data_buffer* buffer = vorn_create_data_buffer(block, size, stride);
  Require(vorn_mdl_add_dataset_buffer(dataset.handle, buffer) == VORN_SUCCESS,
          "vorn_mdl_add_dataset_buffer");
  dataset.blocks.push_back({block, size, stride, buffer});
}

void VornSession::Destroy(Dataset& dataset) {
  for (const Block& block : dataset.blocks) {
    vorn_destroy_data_buffer(block.buffer);
    vorn_rt_free(block.address);
  }
  vorn_mdl_destroy_dataset(dataset.handle);
}

void VornSession::PutInput(std::span<const std::byte> dense, uint64_t rowBytes) {
  const Block& block = inputs_.blocks[0];
  for (uint64_t row = 0; row * rowBytes < dense.size(); ++row) {
    std::memcpy(block.address + row * block.stride, dense.data() + row * rowBytes, rowBytes);
  }
}

std::vector<std::byte> VornSession::TakeOutput(uint64_t rowBytes) const {
  const Block& block = outputs_.blocks[0];
  std::vector<std::byte> dense(block.size / block.stride * rowBytes);
  for (uint64_t row = 0; row * rowBytes < dense.size(); ++row) {
    std::memcpy(dense.data() + row * rowBytes, block.address + row * block.stride, rowBytes);
  }
  return dense;
}

std::vector<std::string> VornSession::TensorNames() const {
  std::vector<std::string> names;
  vorn_mdl_io_dims dims = {};
  for (uint64_t i = 0; i < vorn_mdl_get_num_inputs(desc_); ++i) {
    Require(vorn_mdl_get_input_dims(desc_, i, &dims) == VORN_SUCCESS, "vorn_mdl_get_input_dims");
    names.emplace_back(dims.name);
  }
  for (uint64_t i = 0; i < vorn_mdl_get_num_outputs(desc_); ++i) {
    names.emplace_back(vorn_mdl_get_output_name_by_index(desc_, i));
  }
  return names;
}

void VornSession::Run() {
  Require(vorn_mdl_execute(modelId_, inputs_.handle, outputs_.handle) == VORN_SUCCESS,
          "vorn_mdl_execute");
}
