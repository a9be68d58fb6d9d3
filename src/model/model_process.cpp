// The life of the model and of what belongs to it.
#include "model/model_process.h"

#include <utility>

#include "common/log.h"
#include "common/model_inputs.h"
#include "model/dataset.h"
#include "output/dump.h"
#include "output/output_dataset.h"

ModelProcess::ModelProcess(std::vector<std::string> rpnFileList, uint32_t batch, int32_t totalT,
                           uint32_t profiling)
    : batchSize(batch), nlpTotalT(totalT), rpnFiles(std::move(rpnFileList)), profile(profiling) {}

ModelProcess::~ModelProcess() {
  UnloadModel();
  DestroyInput();
  DestroyOutput();
}

void ModelProcess::UnloadModel() {
  if (!loadFlag) {
    PrintLine("[WARN]  no model had been loaded, unload failed\n");
    return;
  }
  if (vorn_mdl_unload(modelId) != VORN_SUCCESS) {
    PrintLine("[ERROR] unload model failed, modelId is %u\n", modelId);
  }
  DestroyDesc();
  if (modelMemPtr != nullptr) vorn_rt_free(modelMemPtr);
  PrintLine("[INFO]  unload model success, modelId is %u\n", modelId);
}

void ModelProcess::DestroyDesc() {
  if (modelDesc != nullptr) vorn_mdl_destroy_desc(modelDesc);
}

uint64_t ModelProcess::GetInputNum() const {
  return vorn_mdl_get_num_inputs(modelDesc) - kScratchInputs;
}

int ModelProcess::CreateOutput() {
  return CreateOutputDataset(modelDesc, batchSize, outputDataset);
}

void ModelProcess::DestroyOutput() { DestroyDataset(outputDataset); }

void ModelProcess::DestroyInput() { DestroyDataset(inputDataset); }

void ModelProcess::DumpOutputData(const std::string& outputPath) {
  DumpOutputs({modelDesc, outputDataset, batchSize}, outputPath, execCounter - 1, outputValues);
}
