// Bookkeeping of everything that lives in the process.
#include "host/state/runtime.h"

#include <algorithm>
#include <string>
#include <utility>

#include "host/common/failure.h"
#include "host/common/log.h"
#include "host/state/probe.h"

namespace vorn::host {
namespace {

constexpr size_t kMostNames = 8;  // in a line of the log

/// The context that is current on this thread; a destroyed one stays here and is not found.
thread_local const vorn_rt_context* currentContext = nullptr;

/// Without a limit they share what the machine has.
std::vector<Device> DevicesOf(const Config& config) {
  const auto machine = std::make_shared<MemoryBudget>();
  std::vector<Device> devices(static_cast<size_t>(config.devices));
  for (Device& device : devices) {
    device.memory =
        config.memoryLimit ? std::make_shared<MemoryBudget>(*config.memoryLimit) : machine;
  }
  return devices;
}

/// What a model did to the process that it was tried in decides whether this one takes it.
void RequireGoodEnd(uint32_t seconds, const ProbeResult& result) {
  if (result.end == ProbeEnd::kEnded) {
    throw Failure(VORN_ERROR_MODEL, "the model ended the process in which it was tried (",
                  result.how, "); the execution library does not stand it");
  }
  if (result.end == ProbeEnd::kTimeout) {
    throw Failure(VORN_ERROR_TIMEOUT, "loading and executing the model once takes longer than ",
                  seconds, " s; give 'probe' more");
  }
}

template <typename Thing>
std::string NameOf(const Thing& thing) {
  return Join(thing);
}

std::string NameOf(const BlockStore::Block& block) {
  return Join(block.address, " of ", block.size, " bytes");
}

/// "2 block(s) were not freed: ..."
template <typename Thing>
void ReportLeft(const std::vector<Thing>& left, const char* what) {
  if (left.empty()) return;
  std::string names;
  for (size_t i = 0; i < std::min(left.size(), kMostNames); ++i) {
    names += (i == 0 ? "" : ", ") + NameOf(left[i]);
  }
  if (left.size() > kMostNames) names += ", ...";
  Log(LogLevel::kError, "vorn_finalize", Join(left.size(), " ", what, ": ", names));
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
  std::vector<Device> devices = DevicesOf(config);
  engine_ = CreateEngine();
  config_ = std::move(config);
  devices_ = std::move(devices);
  operatorTimeoutSeconds_ = 0;
}

void Runtime::Stop() {
  const Change change(*this);
  RequireStarted();
  ReportLeaks();
  // Blocks, datasets and descriptions are the caller's memory and can be given back later on.
  models_.Clear();
  contexts_.Clear();
  streams_.Clear();
  devices_.clear();
  blocks_.ReleaseKept();
  engine_.reset();
}

void Runtime::SetDevice(int32_t deviceId) {
  const Change change(*this);
  DeviceAt(deviceId).isSet = true;
}

void Runtime::ResetDevice(int32_t deviceId) {
  const Change change(*this);
  Device& device = DeviceAt(deviceId);
  if (!device.isSet) {
    throw Failure(VORN_ERROR_NOT_INITIALIZED, "device ", deviceId, " is not set");
  }
  EndContextsOf(deviceId);
  device.isSet = false;
}

void Runtime::SetOperatorTimeout(uint32_t seconds) {
  const std::lock_guard lock(mutex_);
  RequireStarted();
  operatorTimeoutSeconds_ = seconds;
}

vorn_rt_context* Runtime::CreateContext(int32_t deviceId) {
  const Change change(*this);
  if (!DeviceAt(deviceId).isSet) {
    throw Failure(VORN_ERROR_NOT_INITIALIZED, "device ", deviceId, " is not set; set it first");
  }
  auto* context = NewHandle<vorn_rt_context>();
  contexts_.Add(context, std::make_shared<Context>(Context{.deviceId = deviceId}));
  currentContext = context;
  return context;
}

void Runtime::DestroyContext(vorn_rt_context* context) {
  const Change change(*this);
  contexts_.RequireRemoved(context);
}

vorn_rt_stream* Runtime::CreateStream() {
  const Change change(*this);
  RequireContext();
  auto* stream = NewHandle<vorn_rt_stream>();
  streams_.Add(stream, std::make_shared<Stream>(Stream{.context = currentContext}));
  return stream;
}

void Runtime::DestroyStream(vorn_rt_stream* stream) {
  const Change change(*this);
  streams_.RequireRemoved(stream);
}

vorn_rt_run_mode Runtime::RunMode() {
  const std::lock_guard lock(mutex_);
  RequireStarted();
  return VORN_RUN_MODE_DEVICE;
}

// ---- Memory -------------------------------------------------------------------------------------

void* Runtime::Allocate(uint64_t size) {
  const Change change(*this);
  return blocks_.Allocate(size, DeviceAt(RequireContext().deviceId).memory);
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
  std::shared_ptr<MemoryBudget> budget;
  Timeout timeout;
  {
    const std::lock_guard lock(mutex_);
    const Context& context = RequireContext();
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
    if (config.memoryLimit) budget = DeviceAt(context.deviceId).memory;
    timeout.seconds = operatorTimeoutSeconds_;
  }
  const auto* bytes = static_cast<const std::byte*>(image);
  if (config.probeSeconds != 0) {
    RequireGoodEnd(
        config.probeSeconds, Probe(config.probeSeconds, [&] {
          Model(*engine, std::span(bytes, size), config, budget, timeout).Rehearse(timeout);
        }));
  }
  auto model =
      std::make_shared<Model>(*engine, std::span(bytes, size), config, std::move(budget), timeout);

  const Change change(*this);
  if (engine_ != engine) {
    throw Failure(VORN_ERROR_NOT_INITIALIZED, "the runtime went down while the model was loaded");
  }
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
  Dataset& live = datasets_.At(dataset);
  model->CheckFrames(totalT);
  live.frames = totalT;
}

void Runtime::SetBatch(uint32_t modelId, vorn_mdl_dataset* dataset, uint64_t index,
                       uint64_t batch) {
  const Change change(*this);
  RequireContext();
  static_cast<void>(LiveModel(modelId));
  Dataset& live = datasets_.At(dataset);
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
  Timeout timeout;
  {
    const std::lock_guard lock(mutex_);
    if (call.changes != changes_ || call.input != input || call.output != output) {
      Resolve(call, input, output);
    }
    model = LiveModel(modelId);
    timeout.seconds = operatorTimeoutSeconds_;
  }
  model->Execute(
      {.inputs = call.inputs, .outputs = call.outputs, .batch = call.batch, .frames = call.frames},
      timeout);
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
  descs_.RequireRemoved(desc);
}

void Runtime::FillDesc(vorn_mdl_desc* desc, uint32_t modelId) {
  const Change change(*this);
  RequireContext();
  Desc& live = descs_.Require(desc);
  live.filled.push_back(LiveModel(modelId)->description());
}

std::shared_ptr<const ModelDescription> Runtime::Description(const vorn_mdl_desc* desc) {
  const std::lock_guard lock(mutex_);
  const Desc& live = descs_.Require(desc);
  if (live.filled.empty()) {
    throw Failure(VORN_ERROR_INVALID_ARGUMENT, "the description is empty; get one of a model");
  }
  return live.filled.back();
}

// ---- Data buffers and datasets ------------------------------------------------------------------

vorn_data_buffer* Runtime::CreateDataBuffer(void* block, uint64_t size, uint64_t stride) {
  const Change change(*this);
  RequireContext();
  return datasets_.CreateBuffer(block, size, stride);
}

void Runtime::DestroyDataBuffer(vorn_data_buffer* buffer) {
  const Change change(*this);
  datasets_.DestroyBuffer(buffer);
}

DataBuffer Runtime::Registered(const vorn_data_buffer* buffer) {
  const std::lock_guard lock(mutex_);
  return datasets_.Buffer(buffer);
}

vorn_mdl_dataset* Runtime::CreateDataset() {
  const Change change(*this);
  RequireContext();
  return datasets_.Create();
}

void Runtime::DestroyDataset(vorn_mdl_dataset* dataset) {
  const Change change(*this);
  datasets_.Destroy(dataset);
}

void Runtime::AddBuffer(vorn_mdl_dataset* dataset, vorn_data_buffer* buffer) {
  const Change change(*this);
  RequireContext();
  datasets_.Add(dataset, buffer);
}

uint64_t Runtime::BufferCount(const vorn_mdl_dataset* dataset) {
  const std::lock_guard lock(mutex_);
  return datasets_.At(dataset).buffers.size();
}

vorn_data_buffer* Runtime::BufferAt(const vorn_mdl_dataset* dataset, uint64_t index) {
  const std::lock_guard lock(mutex_);
  return datasets_.BufferAt(dataset, index);
}

// ---- With the mutex held ------------------------------------------------------------------------

/// A line of the log for each kind of thing that was handed out and not given back.
void Runtime::ReportLeaks() const {
  if (!IsLogged(LogLevel::kError)) return;
  std::vector<int32_t> setDevices;
  for (size_t i = 0; i < devices_.size(); ++i) {
    if (devices_[i].isSet) setDevices.push_back(static_cast<int32_t>(i));
  }
  ReportLeft(models_.Keys(), "model(s) were not unloaded");
  ReportLeft(blocks_.Blocks(), "block(s) were not freed");
  ReportLeft(descs_.Keys(), "description(s) were not destroyed");
  ReportLeft(datasets_.Handles(), "dataset(s) were not destroyed");
  ReportLeft(datasets_.BufferHandles(), "data buffer(s) were not destroyed");
  ReportLeft(streams_.Keys(), "stream(s) were not destroyed");
  ReportLeft(contexts_.Keys(), "context(s) were not destroyed");
  ReportLeft(setDevices, "device(s) were not reset");
}

void Runtime::RequireStarted() const {
  if (engine_ == nullptr) {
    throw Failure(VORN_ERROR_NOT_INITIALIZED, "the runtime is not up; call vorn_init first");
  }
}

Device& Runtime::DeviceAt(int32_t deviceId) {
  RequireStarted();
  if (deviceId < 0 || static_cast<size_t>(deviceId) >= devices_.size()) {
    throw Failure(VORN_ERROR_INVALID_ARGUMENT, "device ", deviceId, " does not exist; there are ",
                  devices_.size(), ", from 0 on ('devices' of the configuration)");
  }
  return devices_[static_cast<size_t>(deviceId)];
}

const Context& Runtime::RequireContext() const {
  RequireStarted();
  const Context* context = contexts_.Look(currentContext);
  if (context == nullptr) {
    throw Failure(VORN_ERROR_NOT_INITIALIZED,
                  "no context is current on this thread; create one on it");
  }
  return *context;
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
  const Dataset& from = datasets_.At(input);
  datasets_.ViewsOf(from, Side::kInput, call.inputs);
  datasets_.ViewsOf(datasets_.At(output), Side::kOutput, call.outputs);
  call.batch = from.batch;
  call.frames = from.frames;
  call.input = input;
  call.output = output;
  call.changes = changes_;
}

void Runtime::EndContextsOf(int32_t deviceId) {
  contexts_.RemoveIf([&](const Context& context) { return context.deviceId == deviceId; });
  streams_.RemoveIf(
      [&](const Stream& stream) { return contexts_.Look(stream.context) == nullptr; });
}

}  // namespace vorn::host
