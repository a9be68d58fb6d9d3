// The state of the runtime in this process: whether it is up, and everything that lives in it.
//
// Its operations are those of vorn.h as seen from inside: typed, and with a `Failure` instead of a
// status. What gives something back (destroy, free, unload) works on any thread and asks for no
// context, so that a teardown can always finish; what makes or uses something asks for one.
#ifndef VORN_RUNTIME_HOST_STATE_RUNTIME_H_
#define VORN_RUNTIME_HOST_STATE_RUNTIME_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <vector>

#include "host/config/config.h"
#include "host/engine/engine.h"
#include "host/memory/block_store.h"
#include "host/memory/memory_budget.h"
#include "host/state/datasets.h"
#include "host/state/handle.h"
#include "host/state/model.h"
#include "host/tensor/description.h"
#include "vorn/vorn.h"

namespace vorn::host {

struct Context {
  int32_t deviceId = 0;
};

struct Stream {
  const vorn_rt_context* context = nullptr;  ///< in which it was created
};

/// This machine, in the role of one of the devices that the configuration speaks of.
struct Device {
  std::shared_ptr<MemoryBudget> memory;
  bool isSet = false;
};

/// Descriptions that were filled stay, so that names handed out stay valid; the last one counts.
struct Desc {
  std::vector<std::shared_ptr<const ModelDescription>> filled;
};

/// Any thread may call any operation.
class Runtime {
 public:
  /// The one of the process. Never destroyed: the execution library's own statics, younger than
  /// this object, would be gone by then.
  static Runtime& OfProcess();

  // The whole, device, context, stream.
  void Start(const char* configPath);
  void Stop();
  void SetDevice(int32_t deviceId);
  void ResetDevice(int32_t deviceId);
  void SetOperatorTimeout(uint32_t seconds);
  vorn_rt_context* CreateContext(int32_t deviceId);
  void DestroyContext(vorn_rt_context* context);
  vorn_rt_stream* CreateStream();
  void DestroyStream(vorn_rt_stream* stream);
  vorn_rt_run_mode RunMode();

  // Memory.
  void* Allocate(uint64_t size);
  void Free(void* block);

  // Models.
  uint32_t Load(const void* image, uint64_t size);
  void Unload(uint32_t modelId);
  vorn_net_type NetType(uint32_t modelId);
  void SetTotalT(uint32_t modelId, vorn_mdl_dataset* dataset, uint64_t totalT);
  void SetBatch(uint32_t modelId, vorn_mdl_dataset* dataset, uint64_t index, uint64_t batch);
  void Execute(uint32_t modelId, const vorn_mdl_dataset* input, vorn_mdl_dataset* output);

  // Descriptions.
  vorn_mdl_desc* CreateDesc();
  void DestroyDesc(vorn_mdl_desc* desc);
  void FillDesc(vorn_mdl_desc* desc, uint32_t modelId);
  /// What the description was last filled with. Fails for one that was not filled yet.
  std::shared_ptr<const ModelDescription> Description(const vorn_mdl_desc* desc);

  // Data buffers and datasets.
  vorn_data_buffer* CreateDataBuffer(void* block, uint64_t size, uint64_t stride);
  void DestroyDataBuffer(vorn_data_buffer* buffer);
  DataBuffer Registered(const vorn_data_buffer* buffer);
  vorn_mdl_dataset* CreateDataset();
  void DestroyDataset(vorn_mdl_dataset* dataset);
  void AddBuffer(vorn_mdl_dataset* dataset, vorn_data_buffer* buffer);
  uint64_t BufferCount(const vorn_mdl_dataset* dataset);
  vorn_data_buffer* BufferAt(const vorn_mdl_dataset* dataset, uint64_t index);

 private:
  Runtime() = default;

  /// Holds the mutex for an operation that changes anything here. What an execution remembers of
  /// the things that it found counts until the next change.
  class Change {
   public:
    explicit Change(Runtime& runtime) : lock_(runtime.mutex_) { ++runtime.changes_; }

   private:
    std::lock_guard<std::mutex> lock_;
  };

  static constexpr uint64_t kUnresolved = 0;  // instead of a count of changes

  /// What the datasets of an execution came to on this thread, after so many changes.
  struct ResolvedCall {
    uint64_t changes = kUnresolved;
    const vorn_mdl_dataset* input = nullptr;
    const vorn_mdl_dataset* output = nullptr;
    std::vector<BlockView> inputs;
    std::vector<BlockView> outputs;
    uint64_t batch = 1;
    uint64_t frames = 0;
  };

  // All below with mutex_ held.
  void ReportLeaks() const;
  void RequireStarted() const;
  Device& DeviceAt(int32_t deviceId);
  const Context& RequireContext() const;
  std::shared_ptr<Model> LiveModel(uint32_t modelId) const;
  void Resolve(ResolvedCall& call, const vorn_mdl_dataset* input,
               const vorn_mdl_dataset* output) const;
  void EndContextsOf(int32_t deviceId);

  // Held for bookkeeping only, never while a model is loaded or executed.
  std::mutex mutex_;
  uint64_t changes_ = 1;
  std::shared_ptr<Engine> engine_;  // null while the runtime is down
  Config config_;
  std::vector<Device> devices_;
  uint32_t operatorTimeoutSeconds_ = 0;
  uint32_t lastModelId_ = 0;
  BlockStore blocks_;
  Registry<const vorn_rt_context*, Context> contexts_{"context"};
  Registry<const vorn_rt_stream*, Stream> streams_{"stream"};
  Registry<const vorn_mdl_desc*, Desc> descs_{"description"};
  Datasets datasets_{blocks_};
  Registry<uint32_t, Model> models_{"model"};
};

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_STATE_RUNTIME_H_
