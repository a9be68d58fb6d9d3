// Bookkeeping of everything that lives in the process.
#include "host/state/runtime.h"

#include <algorithm>

#include "host/common/failure.h"

namespace vorn::host {
namespace {

constexpr int32_t kDeviceId = 0;  // the only one

/// The context that is current on this thread; a destroyed one stays here and is not found.
thread_local const vorn_rt_context* currentContext = nullptr;

void RequireDevice(int32_t deviceId) {
  if (deviceId == kDeviceId) return;
  throw Failure(VORN_ERROR_INVALID_ARGUMENT, "device ", deviceId,
                " does not exist; the only device is ", kDeviceId);
}

[[noreturn]] void RefuseHandle(const char* kind, const void* handle) {
  if (handle == nullptr) throw Failure(VORN_ERROR_INVALID_ARGUMENT, "the ", kind, " is null");
  throw Failure(VORN_ERROR_INVALID_HANDLE, handle, " is no ", kind,
                "; it was destroyed, or is something else");
}

template <typename Key, typename Object>
void RemoveLive(Registry<Key, Object>& registry, Key key, const char* kind) {
  if (!registry.Remove(key)) RefuseHandle(kind, key);
}

}  // namespace

Runtime& Runtime::OfProcess() {
  static Runtime& runtime = *new Runtime;
  return runtime;
}

// ---- The whole, device, context, stream ---------------------------------------------------------

void Runtime::Start(const char* configPath) {
  if (configPath == nullptr) {
    throw Failure(VORN_ERROR_INVALID_ARGUMENT, "the path is null; give that of a JSON file");
  }
  const Change change(*this);
  if (engine_ != nullptr) {
    throw Failure(VORN_ERROR_UNSUPPORTED, "the runtime is up already; finalize it first");
  }
  Config config = ReadConfigFile(configPath);
  engine_ = CreateEngine();
  config_ = std::move(config);
}

void Runtime::Stop() {
  const Change change(*this);
  RequireStarted();
  // Blocks, datasets and descriptions are the caller's memory and can be given back later on.
  models_.Clear();
  EndContexts();
  isDeviceSet_ = false;
  blocks_.ReleaseKept();
  engine_.reset();
}

void Runtime::SetDevice(int32_t deviceId) {
  const Change change(*this);
  RequireStarted();
  RequireDevice(deviceId);
  isDeviceSet_ = true;
}

void Runtime::ResetDevice(int32_t deviceId) {
  const Change change(*this);
  RequireStarted();
  RequireDevice(deviceId);
  if (!isDeviceSet_) {
    throw Failure(VORN_ERROR_NOT_INITIALIZED, "device ", deviceId, " is not set");
  }
  EndContexts();
  isDeviceSet_ = false;
}

void Runtime::SetOperatorTimeout(uint32_t seconds) {
  const std::lock_guard lock(mutex_);
  RequireStarted();
  if (seconds != 0) {
    throw Failure(VORN_ERROR_UNSUPPORTED, "a time-out of ", seconds,
                  " s for one operator is not kept here; give 0");
  }
}

vorn_rt_context* Runtime::CreateContext(int32_t deviceId) {
  const Change change(*this);
  RequireStarted();
  RequireDevice(deviceId);
  if (!isDeviceSet_) {
    throw Failure(VORN_ERROR_NOT_INITIALIZED, "device ", deviceId, " is not set; set it first");
  }
  auto* context = NewHandle<vorn_rt_context>();
  contexts_.Add(context, std::make_shared<Context>());
  currentContext = context;
  return context;
}

void Runtime::DestroyContext(vorn_rt_context* context) {
  const Change change(*this);
  RemoveLive<const vorn_rt_context*>(contexts_, context, "context");
}

vorn_rt_stream* Runtime::CreateStream() {
  const Change change(*this);
  RequireContext();
  auto* stream = NewHandle<vorn_rt_stream>();
  streams_.Add(stream, std::make_shared<Stream>());
  return stream;
}

void Runtime::DestroyStream(vorn_rt_stream* stream) {
  const Change change(*this);
  RemoveLive<const vorn_rt_stream*>(streams_, stream, "stream");
}

vorn_rt_run_mode Runtime::RunMode() {
  const std::lock_guard lock(mutex_);
  RequireStarted();
  return VORN_RUN_MODE_DEVICE;
}

// ---- Memory -------------------------------------------------------------------------------------

void* Runtime::Allocate(uint64_t size) {
  const Change change(*this);
  RequireContext();
  return blocks_.Allocate(size);
}

void Runtime::Free(void* block) {
  if (block == nullptr) return;
  const Change change(*this);
  if (!blocks_.Free(block)) RefuseHandle("block", block);
  if (engine_ == nullptr) blocks_.ReleaseKept();  // nobody will allocate again
}

// ---- Models -------------------------------------------------------------------------------------

uint32_t Runtime::Load(const void* image, uint64_t size) {
  std::shared_ptr<Engine> engine;
  Config config;
  {
    const std::lock_guard lock(mutex_);
    RequireContext();
    if (image == nullptr || size == 0) {
      throw Failure(VORN_ERROR_INVALID_ARGUMENT, "the image is ", image, " of ", size,
                    " bytes; give the bytes of an ONNX file");
    }
    if (blocks_.BytesFrom(image).value_or(size) < size) {
      throw Failure(VORN_ERROR_INVALID_ARGUMENT, "the image has ", size,
                    " bytes; its block ends after ", *blocks_.BytesFrom(image));
    }
    blocks_.DoNotKeep(image);
    engine = engine_;
    config = config_;
  }
  const auto* bytes = static_cast<const std::byte*>(image);
  auto model = std::make_shared<Model>(*engine, std::span(bytes, size), config);

  const Change change(*this);
  RequireStarted();
  do {
    ++lastModelId_;  // 0 is what callers preset an id with, so no model has it
  } while (lastModelId_ == 0 || models_.Look(lastModelId_) != nullptr);
  models_.Add(lastModelId_, std::move(model));
  return lastModelId_;
}

void Runtime::Unload(uint32_t modelId) {
  const Change change(*this);
  static_cast<void>(LiveModel(modelId));
  models_.Remove(modelId);
  blocks_.ReleaseKept();  // of the sizes of this model's inputs and outputs, for the most part
}

vorn_net_type Runtime::NetType(uint32_t modelId) {
  const std::lock_guard lock(mutex_);
  RequireContext();
  return LiveModel(modelId)->netType();
}

void Runtime::SetTotalT(uint32_t modelId, vorn_mdl_dataset* dataset, uint64_t totalT) {
  const Change change(*this);
  RequireContext();
  const std::shared_ptr<Model> model = LiveModel(modelId);
  Dataset& live = LiveDataset(dataset);
  model->CheckFrames(totalT);
  live.frames = totalT;
}

void Runtime::SetBatch(uint32_t modelId, vorn_mdl_dataset* dataset, uint64_t index,
                       uint64_t batch) {
  const Change change(*this);
  RequireContext();
  static_cast<void>(LiveModel(modelId));
  Dataset& live = LiveDataset(dataset);
  if (index != 0) {
    throw Failure(VORN_ERROR_INVALID_ARGUMENT, "index is ", index, "; it has to be 0");
  }
  if (batch == 0) {
    throw Failure(VORN_ERROR_INVALID_ARGUMENT, "the batch size is 0; it has to be at least 1");
  }
  live.batch = batch;
}

void Runtime::Execute(uint32_t modelId, const vorn_mdl_dataset* input, vorn_mdl_dataset* output) {
  // Kept by the thread, so that executing again allocates nothing and looks little up.
  thread_local ResolvedCall call;
  std::shared_ptr<Model> model;
  {
    const std::lock_guard lock(mutex_);
    if (call.changes != changes_ || call.input != input || call.output != output) {
      Resolve(call, input, output);
    }
    model = LiveModel(modelId);
  }
  model->Execute(
      {.inputs = call.inputs, .outputs = call.outputs, .batch = call.batch, .frames = call.frames});
}

// ---- Descriptions -------------------------------------------------------------------------------

vorn_mdl_desc* Runtime::CreateDesc() {
  const Change change(*this);
  RequireContext();
  auto* desc = NewHandle<vorn_mdl_desc>();
  descs_.Add(desc, std::make_shared<Desc>());
  return desc;
}

void Runtime::DestroyDesc(vorn_mdl_desc* desc) {
  const Change change(*this);
  RemoveLive<const vorn_mdl_desc*>(descs_, desc, "description");
}

void Runtime::FillDesc(vorn_mdl_desc* desc, uint32_t modelId) {
  const Change change(*this);
  RequireContext();
  Desc* live = descs_.Look(desc);
  if (live == nullptr) RefuseHandle("description", desc);
  live->filled.push_back(LiveModel(modelId)->description());
}

std::shared_ptr<const ModelDescription> Runtime::Description(const vorn_mdl_desc* desc) {
  const std::lock_guard lock(mutex_);
  Desc* live = descs_.Look(desc);
  if (live == nullptr) RefuseHandle("description", desc);
  if (live->filled.empty()) {
    throw Failure(VORN_ERROR_INVALID_ARGUMENT, "the description is empty; get one of a model");
  }
  return live->filled.back();
}

// ---- Data buffers and datasets ------------------------------------------------------------------

vorn_data_buffer* Runtime::CreateDataBuffer(void* block, uint64_t size, uint64_t stride) {
  const Change change(*this);
  RequireContext();
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

void Runtime::DestroyDataBuffer(vorn_data_buffer* buffer) {
  const Change change(*this);
  RemoveLive<const vorn_data_buffer*>(buffers_, buffer, "data buffer");
}

DataBuffer Runtime::Registered(const vorn_data_buffer* buffer) {
  const std::lock_guard lock(mutex_);
  return LiveBuffer(buffer);
}

vorn_mdl_dataset* Runtime::CreateDataset() {
  const Change change(*this);
  RequireContext();
  auto* dataset = NewHandle<vorn_mdl_dataset>();
  datasets_.Add(dataset, std::make_shared<Dataset>());
  return dataset;
}

void Runtime::DestroyDataset(vorn_mdl_dataset* dataset) {
  const Change change(*this);
  RemoveLive<const vorn_mdl_dataset*>(datasets_, dataset, "dataset");
}

void Runtime::AddBuffer(vorn_mdl_dataset* dataset, vorn_data_buffer* buffer) {
  const Change change(*this);
  RequireContext();
  LiveBuffer(buffer);
  LiveDataset(dataset).buffers.push_back(buffer);
}

uint64_t Runtime::BufferCount(const vorn_mdl_dataset* dataset) {
  const std::lock_guard lock(mutex_);
  return LiveDataset(dataset).buffers.size();
}

vorn_data_buffer* Runtime::BufferAt(const vorn_mdl_dataset* dataset, uint64_t index) {
  const std::lock_guard lock(mutex_);
  const std::vector<vorn_data_buffer*>& buffers = LiveDataset(dataset).buffers;
  if (index >= buffers.size()) {
    throw Failure(VORN_ERROR_INVALID_ARGUMENT, "index is ", index, "; the dataset has ",
                  buffers.size(), " buffers");
  }
  return buffers[index];
}

// ---- With the mutex held ------------------------------------------------------------------------

void Runtime::RequireStarted() const {
  if (engine_ == nullptr) {
    throw Failure(VORN_ERROR_NOT_INITIALIZED, "the runtime is not up; call vorn_init first");
  }
}

void Runtime::RequireContext() const {
  RequireStarted();
  if (contexts_.Look(currentContext) == nullptr) {
    throw Failure(VORN_ERROR_NOT_INITIALIZED,
                  "no context is current on this thread; create one on it");
  }
}

Dataset& Runtime::LiveDataset(const vorn_mdl_dataset* dataset) const {
  Dataset* live = datasets_.Look(dataset);
  if (live == nullptr) RefuseHandle("dataset", dataset);
  return *live;
}

DataBuffer& Runtime::LiveBuffer(const vorn_data_buffer* buffer) const {
  DataBuffer* live = buffers_.Look(buffer);
  if (live == nullptr) RefuseHandle("data buffer", buffer);
  return *live;
}

std::shared_ptr<Model> Runtime::LiveModel(uint32_t modelId) const {
  std::shared_ptr<Model> live = models_.Find(modelId);
  if (live == nullptr) {
    throw Failure(VORN_ERROR_INVALID_HANDLE, "no model is loaded under the id ", modelId);
  }
  return live;
}

/// Leaves the call unresolved if it fails.
void Runtime::Resolve(ResolvedCall& call, const vorn_mdl_dataset* input,
                      const vorn_mdl_dataset* output) const {
  call.changes = kUnresolved;
  RequireContext();
  const Dataset& from = LiveDataset(input);
  ViewsOf(from, "input", call.inputs);
  ViewsOf(LiveDataset(output), "output", call.outputs);
  call.batch = from.batch;
  call.frames = from.frames;
  call.input = input;
  call.output = output;
  call.changes = changes_;
}

void Runtime::EndContexts() {
  contexts_.Clear();
  streams_.Clear();
}

/// How far a block reaches is what was registered, unless it is one of ours: then it is known.
/// A caller may grow an input block after it took the size to register, so an input may reach
/// further than registered. An output is bounded by both.
BlockView Runtime::ViewOf(const vorn_data_buffer* buffer, const char* kind, size_t index) const {
  const DataBuffer& live = LiveBuffer(buffer);
  const std::optional<uint64_t> real = blocks_.BytesFrom(live.address);
  if (live.isOurs && !real) {
    throw Failure(VORN_ERROR_INVALID_ARGUMENT, "the block of ", kind, " ", index,
                  " was freed; register a live one");
  }
  const uint64_t known = real.value_or(live.size);
  const bool isInput = kind[0] == 'i';
  return {.address = static_cast<std::byte*>(live.address),
          .capacity = isInput ? known : std::min(known, live.size),
          .stride = live.stride};
}

void Runtime::ViewsOf(const Dataset& dataset, const char* kind,
                      std::vector<BlockView>& views) const {
  views.clear();
  for (size_t i = 0; i < dataset.buffers.size(); ++i) {
    views.push_back(ViewOf(dataset.buffers[i], kind, i));
  }
}

}  // namespace vorn::host
