// vorn.h: models, their settings, execution.
#include "host/interface/entry.h"
#include "host/state/runtime.h"
#include "vorn/vorn.h"

using vorn::host::Answer;
using vorn::host::RequirePlace;
using vorn::host::Runtime;

vorn_status vorn_mdl_load_from_mem(const void* image, uint64_t size, uint32_t* modelId) {
  return Answer(__func__, [&] {
    RequirePlace(modelId);
    *modelId = Runtime::OfProcess().Load(image, size);
  });
}

vorn_status vorn_mdl_unload(uint32_t modelId) {
  return Answer(__func__, [&] { Runtime::OfProcess().Unload(modelId); });
}

vorn_status vorn_ext_get_mdl_net_type(uint32_t modelId, vorn_net_type* netType) {
  return Answer(__func__, [&] {
    RequirePlace(netType);
    *netType = Runtime::OfProcess().NetType(modelId);
  });
}

vorn_status vorn_mdl_set_dynamic_batch_size(uint32_t modelId, vorn_mdl_dataset* dataset,
                                            uint64_t index, uint64_t batchSize) {
  return Answer(__func__,
                [&] { Runtime::OfProcess().SetBatch(modelId, dataset, index, batchSize); });
}

vorn_status vorn_mdl_set_total_t(uint32_t modelId, vorn_mdl_dataset* dataset, uint64_t totalT) {
  return Answer(__func__, [&] { Runtime::OfProcess().SetTotalT(modelId, dataset, totalT); });
}

vorn_status vorn_mdl_execute(uint32_t modelId, const vorn_mdl_dataset* input,
                             vorn_mdl_dataset* output) {
  return Answer(__func__, [&] { Runtime::OfProcess().Execute(modelId, input, output); });
}
