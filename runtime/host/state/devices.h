// Devices, and the contexts and streams on them.
#ifndef VORN_RUNTIME_HOST_STATE_DEVICES_H_
#define VORN_RUNTIME_HOST_STATE_DEVICES_H_

#include <cstdint>
#include <memory>
#include <vector>

#include "host/config/config.h"
#include "host/memory/memory_budget.h"
#include "host/state/handle.h"
#include "vorn/vorn.h"

namespace vorn::host {

/// This machine, in the role of one of the devices that the configuration speaks of.
struct Device {
  std::shared_ptr<MemoryBudget> memory;
  bool isSet = false;
};

struct Context {
  int32_t deviceId;
};

struct Stream {
  const vorn_rt_context* context;  ///< in which it was created
};

/// None while the runtime is down: whatever makes something fails with VORN_ERROR_NOT_INITIALIZED
/// then, and the number of no device with VORN_ERROR_INVALID_ARGUMENT. A handle is refused as it is
/// by `Registry`. Not synchronised.
class Devices {
 public:
  /// As many as the configuration says, none of them set. Without a limit they share what memory
  /// the machine has.
  void BringUp(const Config& config);
  /// Ends them all, and whatever is on them.
  void TakeDown();
  void RequireUp() const;

  void Set(int32_t deviceId);
  /// Ends the contexts and streams on it. One that is not set is refused.
  void Reset(int32_t deviceId);

  /// On a device that is set; current on the calling thread from here on.
  vorn_rt_context* CreateContext(int32_t deviceId);
  void DestroyContext(vorn_rt_context* context);
  /// Fails with VORN_ERROR_NOT_INITIALIZED where no context is current on the calling thread.
  const Context& RequireContext() const;
  /// Of the device that this context is on.
  const std::shared_ptr<MemoryBudget>& CurrentMemory() const;

  /// In the context that is current.
  vorn_rt_stream* CreateStream();
  void DestroyStream(vorn_rt_stream* stream);

  /// The numbers of those that are set.
  std::vector<int32_t> SetDevices() const;
  std::vector<const vorn_rt_context*> Contexts() const { return contexts_.Keys(); }
  std::vector<const vorn_rt_stream*> Streams() const { return streams_.Keys(); }

 private:
  const Device& At(int32_t deviceId) const;
  Device& At(int32_t deviceId);
  void EndContextsOf(int32_t deviceId);

  std::vector<Device> devices_;  // by number; empty while the runtime is down
  Registry<const vorn_rt_context*, Context> contexts_{"context"};
  Registry<const vorn_rt_stream*, Stream> streams_{"stream"};
};

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_STATE_DEVICES_H_
