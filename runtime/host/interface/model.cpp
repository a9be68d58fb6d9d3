// vorn.h: models, their settings, execution.
#include <memory>

#include "host/interface/entry.h"
#include "host/state/execution.h"
#include "host/state/loading.h"
#include "host/state/tables.h"
#include "vorn/vorn.h"

using vorn::host::Answer;
using vorn::host::Change;
using vorn::host::Dataset;
using vorn::host::ExecuteModel;
using vorn::host::LoadModel;
using vorn::host::Look;
using vorn::host::Model;
using vorn::host::Needs;
using vorn::host::RequirePlace;

vorn_status vorn_mdl_load_from_mem(const void* image, uint64_t size, uint32_t* modelId) {
  return Answer(__func__, [&] {
    RequirePlace(modelId);
    *modelId = LoadModel(image, size);
  });
}

vorn_status vorn_mdl_unload(uint32_t modelId) {
  return Answer(__func__, [&] {
    const Change tables;
    tables->models.Remove(modelId);
    // Of the sizes of this model's inputs and outputs, for the most part.
    tables->blocks.ReleaseKept();
  });
}

vorn_status vorn_ext_get_mdl_net_type(uint32_t modelId, vorn_net_type* netType) {
  return Answer(__func__, [&] {
    RequirePlace(netType);
    *netType = Look(Needs::kContext)->models.At(modelId)->netType();
  });
}

vorn_status vorn_mdl_set_dynamic_batch_size(uint32_t modelId, vorn_mdl_dataset* dataset,
                                            uint64_t index, uint64_t batchSize) {
  return Answer(__func__, [&] {
    const Change tables(Needs::kContext);
    static_cast<void>(tables->models.At(modelId));
    tables->datasets.SetBatch(dataset, index, batchSize);
  });
}

vorn_status vorn_mdl_set_total_t(uint32_t modelId, vorn_mdl_dataset* dataset, uint64_t totalT) {
  return Answer(__func__, [&] {
    const Change tables(Needs::kContext);
    const std::shared_ptr<Model> model = tables->models.At(modelId);
    Dataset& live = tables->datasets.At(dataset);
    model->CheckFrames(totalT);
    live.frames = totalT;
  });
}

vorn_status vorn_mdl_execute(uint32_t modelId, const vorn_mdl_dataset* input,
                             vorn_mdl_dataset* output) {
  return Answer(__func__, [&] { ExecuteModel(modelId, input, output); });
}
