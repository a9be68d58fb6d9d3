// vorn.h: the runtime as a whole, device, context, stream, memory, element types.
#include "host/interface/entry.h"
#include "host/state/runtime.h"
#include "host/tensor/element_type.h"
#include "vorn/vorn.h"

using vorn::host::Answer;
using vorn::host::ElementBits;
using vorn::host::RequirePlace;
using vorn::host::Runtime;

vorn_status vorn_init(const char* configPath) {
  return Answer(__func__, [&] { Runtime::OfProcess().Start(configPath); });
}

vorn_status vorn_finalize(void) {
  return Answer(__func__, [&] { Runtime::OfProcess().Stop(); });
}

vorn_status vorn_rt_set_device(int32_t deviceId) {
  return Answer(__func__, [&] { Runtime::OfProcess().SetDevice(deviceId); });
}

vorn_status vorn_rt_reset_device(int32_t deviceId) {
  return Answer(__func__, [&] { Runtime::OfProcess().ResetDevice(deviceId); });
}

vorn_status vorn_rt_set_op_wait_timeout(uint32_t timeoutSeconds) {
  return Answer(__func__, [&] { Runtime::OfProcess().SetOperatorTimeout(timeoutSeconds); });
}

vorn_status vorn_rt_create_context(vorn_rt_context** context, int32_t deviceId) {
  return Answer(__func__, [&] {
    RequirePlace(context);
    *context = Runtime::OfProcess().CreateContext(deviceId);
  });
}

vorn_status vorn_rt_destroy_context(vorn_rt_context* context) {
  return Answer(__func__, [&] { Runtime::OfProcess().DestroyContext(context); });
}

vorn_status vorn_rt_create_stream(vorn_rt_stream** stream) {
  return Answer(__func__, [&] {
    RequirePlace(stream);
    *stream = Runtime::OfProcess().CreateStream();
  });
}

vorn_status vorn_rt_destroy_stream(vorn_rt_stream* stream) {
  return Answer(__func__, [&] { Runtime::OfProcess().DestroyStream(stream); });
}

vorn_status vorn_rt_get_run_mode(vorn_rt_run_mode* runMode) {
  return Answer(__func__, [&] {
    RequirePlace(runMode);
    *runMode = Runtime::OfProcess().RunMode();
  });
}

// There is one kind of memory here, so every policy means it.
vorn_status vorn_rt_malloc(void** block, uint64_t size, vorn_rt_mem_policy) {
  return Answer(__func__, [&] {
    RequirePlace(block);
    *block = Runtime::OfProcess().Allocate(size);
  });
}

vorn_status vorn_rt_free(void* block) {
  return Answer(__func__, [&] { Runtime::OfProcess().Free(block); });
}

uint64_t vorn_data_type_size(vorn_data_type type) { return ElementBits(type); }
