// The operations of vorn.h, each as a runtime whose model does nothing would ordinarily do it.

#include <algorithm>
#include <cstring>

#include "scripted/execution.h"
#include "scripted/scripted.h"
#include "scripted/state.h"

using scripted::Area;
using scripted::Call;
using scripted::Handle;
using scripted::Kind;
using scripted::Place;
using scripted::Tensor;

namespace {

constexpr unsigned char kNoName = 0xA5;  // behind the end of a name, where nothing should be read
constexpr int64_t kNoDim = -0x5A5A5A5A5A5A5A5A;

template <typename T>
T* As(void* handle) {
  return static_cast<T*>(handle);
}

/// Destroys a handle of any kind.
vorn_status Destroy(Call* call, const void* value, Kind kind) {
  call->AnyHandle(value);
  return call->Status([&] {
    Handle* handle = call->Want(value, kind);
    if (handle == nullptr) return vorn_status{VORN_ERROR_INVALID_HANDLE};
    if (kind == Kind::kContext) call->state().contexts.erase(handle);
    call->state().handles.Release(handle);
    return vorn_status{VORN_SUCCESS};
  });
}

/// The description if it is live and filled.
Handle* Filled(Call* call, const vorn_mdl_desc* value) {
  Handle* desc = call->Want(value, Kind::kDesc);
  if (desc == nullptr) return nullptr;
  if (!desc->filled) call->Complain(desc->Name() + " describes no model yet");
  return desc->filled ? desc : nullptr;
}

const Tensor* At(const std::vector<Tensor>& tensors, uint64_t index) {
  return index < tensors.size() ? &tensors[index] : nullptr;
}

/// The model's input or output that a query is about, or null. Names the arguments too.
const Tensor* Queried(Call* call, const vorn_mdl_desc* desc, uint64_t index, bool ofInputs) {
  call->AnyHandle(desc).Number(index);
  if (Filled(call, desc) == nullptr) return nullptr;
  const auto& script = call->state().script;
  return At(ofInputs ? script.inputs : script.outputs, index);
}

void FillDims(const Tensor& tensor, vorn_mdl_io_dims* dims) {
  std::memset(dims->name, kNoName, sizeof dims->name);
  const std::string& name = tensor.name;
  // One byte more than the name for its end, as far as there is room.
  std::memcpy(dims->name, name.c_str(), std::min(name.size() + 1, sizeof dims->name));
  dims->dimCount = tensor.rank.value_or(tensor.dims.size());
  for (size_t k = 0; k < VORN_MAX_DIMS; ++k) {
    dims->dims[k] = k < tensor.dims.size() ? tensor.dims[k] : kNoDim;
  }
}

vorn_status GetDims(Call* call, const vorn_mdl_desc* desc, uint64_t index, bool ofInputs,
                    vorn_mdl_io_dims* dims) {
  const Tensor* tensor = Queried(call, desc, index, ofInputs);
  return call->Status([&] {
    if (!call->HasPlace(dims) || tensor == nullptr) return vorn_status{VORN_ERROR_INVALID_ARGUMENT};
    FillDims(*tensor, dims);
    return vorn_status{VORN_SUCCESS};
  });
}

/// The model, or complains. A caller may ask about a model that failed to load.
bool IsLoaded(const Call& call, uint32_t modelId) {
  return call.state().models.count(modelId) != 0;
}

/// The blocks behind a dataset's buffers; empty and a complaint if one of them is unusable.
bool Collect(Call* call, const vorn_mdl_dataset* value, size_t wanted, std::vector<Area>* areas) {
  const Handle* dataset = call->Want(value, Kind::kDataset);
  if (dataset == nullptr) return false;
  if (dataset->buffers.size() != wanted) {
    call->Complain(dataset->Name() + " has " + std::to_string(dataset->buffers.size()) +
                   " buffers, the model wants " + std::to_string(wanted));
  }
  for (const Handle* buffer : dataset->buffers) {
    if (call->Want(buffer, Kind::kBuffer) == nullptr) return false;
    const Place place = call->state().blocks.Find(buffer->block);
    if (place.kind != Place::Kind::kLive) {
      call->Complain(place.Name() + " lies behind " + buffer->Name());
      return false;
    }
    areas->push_back(
        {buffer->size, static_cast<unsigned char*>(buffer->block), place.size - place.offset});
  }
  return true;
}

vorn_status RunModel(Call* call, const vorn_mdl_dataset* input, const vorn_mdl_dataset* output) {
  auto& state = call->state();
  const uint64_t execution = ++state.executions;
  std::vector<Area> inputs;
  std::vector<Area> outputs;
  if (!Collect(call, input, state.script.inputs.size(), &inputs) ||
      !Collect(call, output, state.script.outputs.size(), &outputs)) {
    return VORN_ERROR_INVALID_HANDLE;
  }
  for (const auto& line : Observe(state.script, execution, inputs, outputs)) call->Tell(line);
  for (const auto& line : WriteOutputs(state.script, execution, inputs, outputs)) call->Note(line);
  return VORN_SUCCESS;
}

}  // namespace

extern "C" {

// ---- The runtime as a whole ---------------------------------------------------------------------

vorn_status vorn_init(const char* configPath) {
  Call call(__func__);
  return call.Text(configPath).Status([&] {
    call.state().initialised = true;
    return VORN_SUCCESS;
  });
}

vorn_status vorn_finalize(void) {
  Call call(__func__);
  const vorn_status status = call.Status([&]() -> vorn_status {
    if (!call.state().initialised) return VORN_ERROR_NOT_INITIALIZED;
    call.state().initialised = false;
    return VORN_SUCCESS;
  });
  call.state().WriteLive("finalize");
  return status;
}

// ---- Device, context, stream --------------------------------------------------------------------

vorn_status vorn_rt_set_device(int32_t deviceId) {
  Call call(__func__);
  return call.Signed(deviceId).Status([&] {
    call.state().deviceSet = true;
    return VORN_SUCCESS;
  });
}

vorn_status vorn_rt_reset_device(int32_t deviceId) {
  Call call(__func__);
  return call.Signed(deviceId).Status([&]() -> vorn_status {
    if (!call.state().deviceSet) return VORN_ERROR_NOT_INITIALIZED;
    call.state().deviceSet = false;
    return VORN_SUCCESS;
  });
}

vorn_status vorn_rt_set_op_wait_timeout(uint32_t timeoutSeconds) {
  Call call(__func__);
  return call.Number(timeoutSeconds).Status([] { return VORN_SUCCESS; });
}

vorn_status vorn_rt_create_context(vorn_rt_context** context, int32_t deviceId) {
  Call call(__func__);
  return call.Signed(deviceId).Status([&]() -> vorn_status {
    if (!call.HasPlace(context)) return VORN_ERROR_INVALID_ARGUMENT;
    Handle* handle = call.state().handles.Create(Kind::kContext);
    call.state().contexts[handle] = std::this_thread::get_id();
    call.Show(handle->Name());
    *context = reinterpret_cast<vorn_rt_context*>(handle);
    return VORN_SUCCESS;
  });
}

vorn_status vorn_rt_destroy_context(vorn_rt_context* context) {
  Call call(__func__);
  return Destroy(&call, context, Kind::kContext);
}

vorn_status vorn_rt_create_stream(vorn_rt_stream** stream) {
  Call call(__func__);
  return call.Status([&]() -> vorn_status {
    if (!call.HasPlace(stream)) return VORN_ERROR_INVALID_ARGUMENT;
    Handle* handle = call.state().handles.Create(Kind::kStream);
    call.Show(handle->Name());
    *stream = reinterpret_cast<vorn_rt_stream*>(handle);
    return VORN_SUCCESS;
  });
}

vorn_status vorn_rt_destroy_stream(vorn_rt_stream* stream) {
  Call call(__func__);
  return Destroy(&call, stream, Kind::kStream);
}

vorn_status vorn_rt_get_run_mode(vorn_rt_run_mode* runMode) {
  Call call(__func__);
  return call.Status([&]() -> vorn_status {
    if (!call.HasPlace(runMode)) return VORN_ERROR_INVALID_ARGUMENT;
    *runMode = call.state().script.runMode;
    call.Show(std::to_string(*runMode));
    return VORN_SUCCESS;
  });
}

// ---- Runtime memory -----------------------------------------------------------------------------

vorn_status vorn_rt_malloc(void** block, uint64_t size, vorn_rt_mem_policy policy) {
  Call call(__func__);
  return call.Number(size).Number(policy).Status([&]() -> vorn_status {
    auto& state = call.state();
    if (!call.HasPlace(block)) return VORN_ERROR_INVALID_ARGUMENT;
    if (size > state.script.limitBytes) return VORN_ERROR_OUT_OF_MEMORY;
    void* fresh = state.blocks.Allocate(size, state.script.fill);
    if (fresh == nullptr) return VORN_ERROR_OUT_OF_MEMORY;
    call.Show(state.blocks.Find(fresh).Name());
    *block = fresh;
    return VORN_SUCCESS;
  });
}

vorn_status vorn_rt_free(void* block) {
  Call call(__func__);
  return call.Address(block).Status([&]() -> vorn_status {
    auto& state = call.state();
    const Place place = state.blocks.Find(block);
    if (place.kind == Place::Kind::kNull) return VORN_SUCCESS;
    if (place.kind != Place::Kind::kLive || place.offset != 0) {
      call.Complain(place.Name() + " cannot be released");
      return VORN_ERROR_INVALID_ARGUMENT;
    }
    for (const auto& [id, model] : state.models) {
      if (model.imageBlock == place.number) {
        call.Complain(place.Name() + " is the image of model " + std::to_string(id));
      }
    }
    const std::string complaint = state.blocks.Release(block);
    if (!complaint.empty()) call.Complain(complaint);
    return VORN_SUCCESS;
  });
}

// ---- Models -------------------------------------------------------------------------------------

vorn_status vorn_mdl_load_from_mem(const void* image, uint64_t size, uint32_t* modelId) {
  Call call(__func__);
  return call.Address(image).Number(size).Status([&]() -> vorn_status {
    auto& state = call.state();
    const Place place = state.blocks.Find(image);
    if (!call.HasPlace(modelId)) return VORN_ERROR_INVALID_ARGUMENT;
    if (place.kind == Place::Kind::kReleased) call.Complain(place.Name() + " is loaded");
    if (place.kind == Place::Kind::kLive && size > place.size - place.offset) {
      call.Complain("the image is longer than " + place.Name());
    }
    if (!call.MustSucceed() && (image == nullptr || size == 0)) return VORN_ERROR_INVALID_ARGUMENT;
    *modelId = state.nextModelId++;
    state.models[*modelId].imageBlock = place.number;
    scripted::DumpImage(state.script, image, size);
    call.Show("model#" + std::to_string(*modelId));
    return VORN_SUCCESS;
  });
}

vorn_status vorn_mdl_unload(uint32_t modelId) {
  Call call(__func__);
  return call.Number(modelId).Status([&]() -> vorn_status {
    return call.state().models.erase(modelId) == 1 ? VORN_SUCCESS : VORN_ERROR_INVALID_HANDLE;
  });
}

vorn_status vorn_ext_get_mdl_net_type(uint32_t modelId, vorn_net_type* netType) {
  Call call(__func__);
  return call.Number(modelId).Status([&]() -> vorn_status {
    if (!call.HasPlace(netType)) return VORN_ERROR_INVALID_ARGUMENT;
    if (!IsLoaded(call, modelId) && !call.MustSucceed()) return VORN_ERROR_INVALID_HANDLE;
    *netType = call.state().script.netType;
    call.Show(std::to_string(*netType));
    return VORN_SUCCESS;
  });
}

// ---- Descriptions -------------------------------------------------------------------------------

vorn_mdl_desc* vorn_mdl_create_desc(void) {
  Call call(__func__);
  return As<vorn_mdl_desc>(call.Pointer([&] { return call.state().handles.Create(Kind::kDesc); }));
}

vorn_status vorn_mdl_destroy_desc(vorn_mdl_desc* desc) {
  Call call(__func__);
  return Destroy(&call, desc, Kind::kDesc);
}

vorn_status vorn_mdl_get_desc(vorn_mdl_desc* desc, uint32_t modelId) {
  Call call(__func__);
  return call.AnyHandle(desc).Number(modelId).Status([&]() -> vorn_status {
    Handle* handle = call.Want(desc, Kind::kDesc);
    if (handle == nullptr) return VORN_ERROR_INVALID_HANDLE;
    if (!IsLoaded(call, modelId) && !call.MustSucceed()) return VORN_ERROR_INVALID_HANDLE;
    handle->filled = true;
    return VORN_SUCCESS;
  });
}

uint64_t vorn_mdl_get_num_inputs(const vorn_mdl_desc* desc) {
  Call call(__func__);
  call.AnyHandle(desc);
  return call.Count(Filled(&call, desc) == nullptr ? 0 : call.state().script.inputs.size());
}

uint64_t vorn_mdl_get_num_outputs(const vorn_mdl_desc* desc) {
  Call call(__func__);
  call.AnyHandle(desc);
  return call.Count(Filled(&call, desc) == nullptr ? 0 : call.state().script.outputs.size());
}

vorn_status vorn_mdl_get_input_dims(const vorn_mdl_desc* desc, uint64_t index,
                                    vorn_mdl_io_dims* dims) {
  Call call(__func__, index);
  return GetDims(&call, desc, index, true, dims);
}

vorn_status vorn_mdl_get_output_dims(const vorn_mdl_desc* desc, uint64_t index,
                                     vorn_mdl_io_dims* dims) {
  Call call(__func__, index);
  return GetDims(&call, desc, index, false, dims);
}

const char* vorn_mdl_get_output_name_by_index(const vorn_mdl_desc* desc, uint64_t index) {
  Call call(__func__, index);
  const Tensor* tensor = Queried(&call, desc, index, false);
  const std::string* name = nullptr;
  if (tensor != nullptr) name = tensor->fullName ? &*tensor->fullName : &tensor->name;
  return call.NameText(call.state().handles.Find(desc), index, name);
}

vorn_data_type vorn_mdl_get_input_data_type(const vorn_mdl_desc* desc, uint64_t index) {
  Call call(__func__, index);
  const Tensor* tensor = Queried(&call, desc, index, true);
  return static_cast<vorn_data_type>(call.Code(tensor == nullptr ? 0 : tensor->type));
}

vorn_data_type vorn_mdl_get_output_data_type(const vorn_mdl_desc* desc, uint64_t index) {
  Call call(__func__, index);
  const Tensor* tensor = Queried(&call, desc, index, false);
  return static_cast<vorn_data_type>(call.Code(tensor == nullptr ? 0 : tensor->type));
}

uint64_t vorn_mdl_get_input_size_by_index(const vorn_mdl_desc* desc, uint64_t index) {
  Call call(__func__, index);
  const Tensor* tensor = Queried(&call, desc, index, true);
  return call.Count(tensor == nullptr ? 0 : tensor->size);
}

uint64_t vorn_mdl_get_output_size_by_index(const vorn_mdl_desc* desc, uint64_t index) {
  Call call(__func__, index);
  const Tensor* tensor = Queried(&call, desc, index, false);
  return call.Count(tensor == nullptr ? 0 : tensor->size);
}

uint64_t vorn_mdl_get_input_default_stride(const vorn_mdl_desc* desc, uint64_t index) {
  Call call(__func__, index);
  const Tensor* tensor = Queried(&call, desc, index, true);
  return call.Count(tensor == nullptr ? 0 : tensor->stride);
}

uint64_t vorn_mdl_get_output_default_stride(const vorn_mdl_desc* desc, uint64_t index) {
  Call call(__func__, index);
  const Tensor* tensor = Queried(&call, desc, index, false);
  return call.Count(tensor == nullptr ? 0 : tensor->stride);
}

vorn_format vorn_mdl_get_input_format(const vorn_mdl_desc* desc, uint64_t index) {
  Call call(__func__, index);
  const Tensor* tensor = Queried(&call, desc, index, true);
  const int64_t format = tensor == nullptr ? 0 : tensor->format;
  return static_cast<vorn_format>(call.Code(static_cast<uint64_t>(format), true));
}

vorn_format vorn_mdl_get_output_format(const vorn_mdl_desc* desc, uint64_t index) {
  Call call(__func__, index);
  const Tensor* tensor = Queried(&call, desc, index, false);
  const int64_t format = tensor == nullptr ? 0 : tensor->format;
  return static_cast<vorn_format>(call.Code(static_cast<uint64_t>(format), true));
}

uint64_t vorn_data_type_size(vorn_data_type type) {
  Call call(__func__, type);
  return call.Number(type).Count(call.state().script.BitsOf(type));
}

// ---- Data buffers and datasets ------------------------------------------------------------------

vorn_data_buffer* vorn_create_data_buffer(void* block, uint64_t size, uint64_t stride) {
  Call call(__func__);
  call.Address(block).Number(size).Number(stride);
  return As<vorn_data_buffer>(call.Pointer([&] {
    const Place place = call.state().blocks.Find(block);
    if (place.kind != Place::Kind::kLive) {
      call.Complain(place.Name() + " is no block");
    } else if (size > place.size - place.offset) {
      call.Complain("the buffer is larger than " + place.Name() + " of " +
                    std::to_string(place.size) + " bytes");
    }
    Handle* buffer = call.state().handles.Create(Kind::kBuffer);
    buffer->block = block;
    buffer->size = size;
    buffer->stride = stride;
    return buffer;
  }));
}

vorn_status vorn_destroy_data_buffer(vorn_data_buffer* buffer) {
  Call call(__func__);
  return Destroy(&call, buffer, Kind::kBuffer);
}

void* vorn_get_data_buffer_addr(const vorn_data_buffer* buffer) {
  Call call(__func__);
  call.AnyHandle(buffer);
  return call.Pointer([&]() -> void* {
    const Handle* handle = call.Want(buffer, Kind::kBuffer);
    return handle == nullptr ? nullptr : handle->block;
  });
}

uint64_t vorn_get_data_buffer_size(const vorn_data_buffer* buffer) {
  Call call(__func__);
  call.AnyHandle(buffer);
  const Handle* handle = call.Want(buffer, Kind::kBuffer);
  return call.Count(handle == nullptr ? 0 : handle->size);
}

vorn_mdl_dataset* vorn_mdl_create_dataset(void) {
  Call call(__func__);
  return As<vorn_mdl_dataset>(
      call.Pointer([&] { return call.state().handles.Create(Kind::kDataset); }));
}

vorn_status vorn_mdl_destroy_dataset(vorn_mdl_dataset* dataset) {
  Call call(__func__);
  return Destroy(&call, dataset, Kind::kDataset);
}

vorn_status vorn_mdl_add_dataset_buffer(vorn_mdl_dataset* dataset, vorn_data_buffer* buffer) {
  Call call(__func__);
  return call.AnyHandle(dataset).AnyHandle(buffer).Status([&]() -> vorn_status {
    Handle* handle = call.Want(dataset, Kind::kDataset);
    Handle* member = call.Want(buffer, Kind::kBuffer);
    if (handle == nullptr || member == nullptr) return VORN_ERROR_INVALID_HANDLE;
    handle->buffers.push_back(member);
    return VORN_SUCCESS;
  });
}

uint64_t vorn_mdl_get_dataset_num_buffers(const vorn_mdl_dataset* dataset) {
  Call call(__func__);
  call.AnyHandle(dataset);
  const Handle* handle = call.Want(dataset, Kind::kDataset);
  return call.Count(handle == nullptr ? 0 : handle->buffers.size());
}

vorn_data_buffer* vorn_mdl_get_dataset_buffer(const vorn_mdl_dataset* dataset, uint64_t index) {
  Call call(__func__, index);
  call.AnyHandle(dataset).Number(index);
  return As<vorn_data_buffer>(call.Pointer([&]() -> Handle* {
    const Handle* handle = call.Want(dataset, Kind::kDataset);
    if (handle == nullptr || index >= handle->buffers.size()) return nullptr;
    return handle->buffers[index];
  }));
}

// ---- Settings of one input dataset, and execution -----------------------------------------------

vorn_status vorn_mdl_set_dynamic_batch_size(uint32_t modelId, vorn_mdl_dataset* dataset,
                                            uint64_t index, uint64_t batchSize) {
  Call call(__func__);
  call.Number(modelId).AnyHandle(dataset).Number(index).Number(batchSize);
  return call.Status([&]() -> vorn_status {
    return call.Want(dataset, Kind::kDataset) == nullptr ? VORN_ERROR_INVALID_HANDLE : VORN_SUCCESS;
  });
}

vorn_status vorn_mdl_set_total_t(uint32_t modelId, vorn_mdl_dataset* dataset, uint64_t totalT) {
  Call call(__func__);
  return call.Number(modelId).AnyHandle(dataset).Number(totalT).Status([&]() -> vorn_status {
    return call.Want(dataset, Kind::kDataset) == nullptr ? VORN_ERROR_INVALID_HANDLE : VORN_SUCCESS;
  });
}

vorn_status vorn_mdl_execute(uint32_t modelId, const vorn_mdl_dataset* input,
                             vorn_mdl_dataset* output) {
  Call call(__func__);
  call.Number(modelId).AnyHandle(input).AnyHandle(output);
  return call.Status([&]() -> vorn_status {
    if (!IsLoaded(call, modelId))
      call.Complain("model " + std::to_string(modelId) + " is not loaded");
    return RunModel(&call, input, output);
  });
}

void vorn_scripted_restart(void) { scripted::Restart(); }
}
