// The life of the model and of what belongs to it.
#include "model/model_process.h"

#include <utility>

#include "common/log.h"
#include "common/model_inputs.h"
#include "model/dataset.h"
#include "output/dump.h"
#include "output/output_dataset.h"

namespace vorn::run {

ModelProcess::ModelProcess(std::vector<std::string> rpnFileList, uint32_t batch, int32_t totalT,
                           uint32_t profiling)
    : batchSize_(batch),
      nlpTotalT_(totalT),
      rpnFiles_(std::move(rpnFileList)),
      profile_(profiling) {}

ModelProcess::~ModelProcess() {
  UnloadModel();
  DestroyInput();
  DestroyOutput();
}

void ModelProcess::UnloadModel() {
  if (!loadFlag_) {
    PrintLine("[WARN]  no model had been loaded, unload failed\n");
    return;
  }
  if (vorn_mdl_unload(modelId_) != VORN_SUCCESS) {
    PrintLine("[ERROR] unload model failed, modelId is %u\n", modelId_);
  }
  DestroyDesc();
  if (modelMemPtr_ != nullptr) vorn_rt_free(modelMemPtr_);
  PrintLine("[INFO]  unload model success, modelId is %u\n", modelId_);
}

void ModelProcess::DestroyDesc() {
  if (modelDesc_ != nullptr) vorn_mdl_destroy_desc(modelDesc_);
}

uint64_t ModelProcess::GetInputNum() const {
  return vorn_mdl_get_num_inputs(modelDesc_) - kScratchInputs;
}

int ModelProcess::CreateOutput() {
  return CreateOutputDataset(modelDesc_, batchSize_, outputDataset_);
}

void ModelProcess::DestroyOutput() { DestroyDataset(outputDataset_); }

void ModelProcess::DestroyInput() { DestroyDataset(inputDataset_); }

void ModelProcess::DumpOutputData(const std::string& outputPath) {
  DumpOutputs({modelDesc_, outputDataset_, batchSize_}, outputPath, execCounter_ - 1,
              outputValues_);
}

}  // namespace vorn::run
