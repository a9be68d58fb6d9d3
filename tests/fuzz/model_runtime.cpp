#include "fuzz/model_runtime.h"

#include <cstdlib>
#include <cstring>

#include "fuzz/property.h"

namespace fuzz {

ModelRuntime g_modelRuntime;

void ModelRuntime::Reset() {
  for (const auto& [block, size] : blocks) std::free(block);
  *this = ModelRuntime();
}

namespace {

const Tensor* At(const std::vector<Tensor>& tensors, uint64_t index) {
  return index < tensors.size() ? &tensors[index] : nullptr;
}

const Tensor* Input(uint64_t index) { return At(g_modelRuntime.inputs, index); }
const Tensor* Output(uint64_t index) { return At(g_modelRuntime.outputs, index); }

}  // namespace
}  // namespace fuzz

using fuzz::g_modelRuntime;
using fuzz::Input;
using fuzz::Output;

extern "C" {

vorn_status vorn_rt_malloc(void** block, uint64_t size, vorn_rt_mem_policy policy) {
  fuzz::Require(policy == VORN_MEM_NORMAL_ONLY, "memory of another policy");
  if (size > fuzz::ModelRuntime::kBlockLimit) return VORN_ERROR_OUT_OF_MEMORY;
  void* fresh = std::malloc(size);
  if (fresh == nullptr) std::abort();
  std::memset(fresh, fuzz::ModelRuntime::kFill, size);
  g_modelRuntime.blocks[fresh] = size;
  *block = fresh;
  return VORN_SUCCESS;
}

vorn_status vorn_rt_free(void* block) {
  if (block == nullptr) return VORN_SUCCESS;
  fuzz::Require(g_modelRuntime.blocks.erase(block) == 1, "release of what is no live block");
  std::free(block);
  return VORN_SUCCESS;
}

vorn_status vorn_ext_get_mdl_net_type(uint32_t, vorn_net_type* netType) {
  if (g_modelRuntime.netTypeStatus == VORN_SUCCESS) *netType = g_modelRuntime.netType;
  return g_modelRuntime.netTypeStatus;
}

uint64_t vorn_mdl_get_input_size_by_index(const vorn_mdl_desc*, uint64_t index) {
  return Input(index) == nullptr ? 0 : Input(index)->size;
}

uint64_t vorn_mdl_get_input_default_stride(const vorn_mdl_desc*, uint64_t index) {
  return Input(index) == nullptr ? 0 : Input(index)->stride;
}

vorn_data_type vorn_mdl_get_input_data_type(const vorn_mdl_desc*, uint64_t index) {
  return Input(index) == nullptr ? 0 : Input(index)->type;
}

vorn_status vorn_mdl_get_output_dims(const vorn_mdl_desc*, uint64_t index, vorn_mdl_io_dims* dims) {
  if (Output(index) == nullptr) return VORN_ERROR_INVALID_ARGUMENT;
  if (Output(index)->dimsStatus == VORN_SUCCESS) *dims = Output(index)->dims;
  return Output(index)->dimsStatus;
}

uint64_t vorn_mdl_get_output_size_by_index(const vorn_mdl_desc*, uint64_t index) {
  return Output(index) == nullptr ? 0 : Output(index)->size;
}

uint64_t vorn_mdl_get_output_default_stride(const vorn_mdl_desc*, uint64_t index) {
  return Output(index) == nullptr ? 0 : Output(index)->stride;
}

vorn_data_type vorn_mdl_get_output_data_type(const vorn_mdl_desc*, uint64_t index) {
  return Output(index) == nullptr ? 0 : Output(index)->type;
}

const char* vorn_mdl_get_output_name_by_index(const vorn_mdl_desc*, uint64_t index) {
  return Output(index) == nullptr || !Output(index)->name ? nullptr : Output(index)->name->c_str();
}

uint64_t vorn_data_type_size(vorn_data_type type) {
  for (const auto* tensors : {&g_modelRuntime.inputs, &g_modelRuntime.outputs}) {
    for (const fuzz::Tensor& tensor : *tensors) {
      if (tensor.type == type) return tensor.bits;
    }
  }
  return 0;
}

uint64_t vorn_mdl_get_dataset_num_buffers(const vorn_mdl_dataset* dataset) {
  return dataset->buffers.size();
}

vorn_data_buffer* vorn_mdl_get_dataset_buffer(const vorn_mdl_dataset* dataset, uint64_t index) {
  fuzz::Require(index < dataset->buffers.size(), "a buffer behind the end of the dataset");
  const auto& buffer = dataset->buffers[index];
  return buffer ? const_cast<vorn_data_buffer*>(&*buffer) : nullptr;
}

void* vorn_get_data_buffer_addr(const vorn_data_buffer* buffer) { return buffer->address; }
uint64_t vorn_get_data_buffer_size(const vorn_data_buffer* buffer) { return buffer->size; }
}
