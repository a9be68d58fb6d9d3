// vorn.h: the runtime as a whole, device, context, stream, memory, element types.
#include "host/interface/entry.h"
#include "host/state/handle.h"
#include "host/state/lifecycle.h"
#include "host/state/tables.h"
#include "host/tensor/element_type.h"
#include "vorn/vorn.h"

using vorn::host::Answer;
using vorn::host::Change;
using vorn::host::Look;
using vorn::host::Needs;
using vorn::host::NumberedBits;
using vorn::host::RefuseHandle;
using vorn::host::RequirePlace;
using vorn::host::StartRuntime;
using vorn::host::StopRuntime;

vorn_status vorn_init(const char* configPath) {
  return Answer(__func__, [&] { StartRuntime(configPath); });
}

vorn_status vorn_finalize(void) {
  return Answer(__func__, [&] { StopRuntime(); });
}

vorn_status vorn_rt_set_device(int32_t deviceId) {
  return Answer(__func__, [&] { Change()->devices.Set(deviceId); });
}

vorn_status vorn_rt_reset_device(int32_t deviceId) {
  return Answer(__func__, [&] { Change()->devices.Reset(deviceId); });
}

vorn_status vorn_rt_set_op_wait_timeout(uint32_t timeoutSeconds) {
  return Answer(__func__, [&] { Change(Needs::kRuntime)->timeout.seconds = timeoutSeconds; });
}

vorn_status vorn_rt_create_context(vorn_rt_context** context, int32_t deviceId) {
  return Answer(__func__, [&] {
    RequirePlace(context);
    *context = Change()->devices.CreateContext(deviceId);
  });
}

vorn_status vorn_rt_destroy_context(vorn_rt_context* context) {
  return Answer(__func__, [&] { Change()->devices.DestroyContext(context); });
}

vorn_status vorn_rt_create_stream(vorn_rt_stream** stream) {
  return Answer(__func__, [&] {
    RequirePlace(stream);
    *stream = Change()->devices.CreateStream();
  });
}

vorn_status vorn_rt_destroy_stream(vorn_rt_stream* stream) {
  return Answer(__func__, [&] { Change()->devices.DestroyStream(stream); });
}

vorn_status vorn_rt_get_run_mode(vorn_rt_run_mode* runMode) {
  return Answer(__func__, [&] {
    RequirePlace(runMode);
    const Look tables(Needs::kRuntime);
    *runMode = VORN_RUN_MODE_DEVICE;
  });
}

// There is one kind of memory here, so every policy means it.
vorn_status vorn_rt_malloc(void** block, uint64_t size, vorn_rt_mem_policy) {
  return Answer(__func__, [&] {
    RequirePlace(block);
    const Change tables(Needs::kContext);
    *block = tables->blocks.Allocate(size, tables->devices.CurrentMemory());
  });
}

vorn_status vorn_rt_free(void* block) {
  return Answer(__func__, [&] {
    if (block == nullptr) return;
    const Change tables;
    if (!tables->blocks.Free(block)) RefuseHandle("block", block);
    if (tables->engine == nullptr) tables->blocks.ReleaseKept();  // nobody will allocate again
  });
}

uint64_t vorn_data_type_size(vorn_data_type type) { return NumberedBits(type); }
