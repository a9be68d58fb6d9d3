// What is on which device.
#include "host/state/devices.h"

#include <cstddef>
#include <utility>

#include "host/common/failure.h"

namespace vorn::host {
namespace {

/// The context that is current on this thread; a destroyed one stays here and is not found.
thread_local const vorn_rt_context* currentContext = nullptr;

}  // namespace

void Devices::BringUp(const Config& config) {
  const auto machine = std::make_shared<MemoryBudget>();
  std::vector<Device> devices(static_cast<size_t>(config.devices));
  for (Device& device : devices) {
    device.memory =
        config.memoryLimit ? std::make_shared<MemoryBudget>(*config.memoryLimit) : machine;
  }
  devices_ = std::move(devices);
}

void Devices::TakeDown() {
  contexts_.Clear();
  streams_.Clear();
  devices_.clear();
}

void Devices::RequireUp() const {
  if (devices_.empty()) {
    throw Failure(VORN_ERROR_NOT_INITIALIZED, "the runtime is not up; call vorn_init first");
  }
}

void Devices::Set(int32_t deviceId) { At(deviceId).isSet = true; }

void Devices::Reset(int32_t deviceId) {
  Device& device = At(deviceId);
  if (!device.isSet) {
    throw Failure(VORN_ERROR_NOT_INITIALIZED, "device ", deviceId, " is not set");
  }
  EndContextsOf(deviceId);
  device.isSet = false;
}

vorn_rt_context* Devices::CreateContext(int32_t deviceId) {
  if (!At(deviceId).isSet) {
    throw Failure(VORN_ERROR_NOT_INITIALIZED, "device ", deviceId, " is not set; set it first");
  }
  auto* context = NewHandle<vorn_rt_context>();
  contexts_.Add(context, std::make_shared<Context>(Context{.deviceId = deviceId}));
  currentContext = context;
  return context;
}

void Devices::DestroyContext(vorn_rt_context* context) { contexts_.RequireRemoved(context); }

const Context& Devices::RequireContext() const {
  RequireUp();
  const Context* context = contexts_.Look(currentContext);
  if (context == nullptr) {
    throw Failure(VORN_ERROR_NOT_INITIALIZED,
                  "no context is current on this thread; create one on it");
  }
  return *context;
}

const std::shared_ptr<MemoryBudget>& Devices::CurrentMemory() const {
  return At(RequireContext().deviceId).memory;
}

vorn_rt_stream* Devices::CreateStream() {
  RequireContext();
  auto* stream = NewHandle<vorn_rt_stream>();
  streams_.Add(stream, std::make_shared<Stream>(Stream{.context = currentContext}));
  return stream;
}

void Devices::DestroyStream(vorn_rt_stream* stream) { streams_.RequireRemoved(stream); }

std::vector<int32_t> Devices::SetDevices() const {
  std::vector<int32_t> numbers;
  for (size_t i = 0; i < devices_.size(); ++i) {
    if (devices_[i].isSet) numbers.push_back(static_cast<int32_t>(i));
  }
  return numbers;
}

const Device& Devices::At(int32_t deviceId) const {
  RequireUp();
  if (deviceId < 0 || static_cast<size_t>(deviceId) >= devices_.size()) {
    throw Failure(VORN_ERROR_INVALID_ARGUMENT, "device ", deviceId, " does not exist; there are ",
                  devices_.size(), ", from 0 on ('devices' of the configuration)");
  }
  return devices_[static_cast<size_t>(deviceId)];
}

Device& Devices::At(int32_t deviceId) {
  return const_cast<Device&>(std::as_const(*this).At(deviceId));
}

void Devices::EndContextsOf(int32_t deviceId) {
  contexts_.RemoveIf([&](const Context& context) { return context.deviceId == deviceId; });
  streams_.RemoveIf(
      [&](const Stream& stream) { return contexts_.Look(stream.context) == nullptr; });
}

}  // namespace vorn::host
