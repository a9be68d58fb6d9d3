// Loading, describing, executing, dumping, releasing.
#include "model/model_process.h"

#include "common/log.h"
#include "common/model_io.h"
#include "common/perf_info.h"
#include "common/runtime_memory.h"
#include "common/wall_clock.h"
#include "model/model_file.h"
#include "model/model_info.h"
#include "output/dump.h"
#include "output/output_dataset.h"

namespace vorn::run {
namespace {

// The same queries for inputs and for outputs.
struct TensorQueries {
  decltype(&vorn_mdl_get_input_data_type) dataType;
  decltype(&vorn_mdl_get_input_size_by_index) size;
  decltype(&vorn_mdl_get_input_default_stride) stride;
  decltype(&vorn_mdl_get_input_format) format;
};

constexpr TensorQueries kInputQueries{vorn_mdl_get_input_data_type,
                                      vorn_mdl_get_input_size_by_index,
                                      vorn_mdl_get_input_default_stride, vorn_mdl_get_input_format};
constexpr TensorQueries kOutputQueries{
    vorn_mdl_get_output_data_type, vorn_mdl_get_output_size_by_index,
    vorn_mdl_get_output_default_stride, vorn_mdl_get_output_format};

// The queries come one by one between the lines: should one of them end the process, the lines
// before it tell which.
void PrintLayout(const vorn_mdl_desc* modelDesc, uint64_t index, uint32_t batchSize,
                 const TensorQueries& query) {
  const vorn_data_type dataType = query.dataType(modelDesc, index);
  const uint64_t size = batchSize * query.size(modelDesc, index);
  const uint64_t stride = query.stride(modelDesc, index);
  const vorn_format format = query.format(modelDesc, index);
  PrintLine("[INFO]  DataType: %d, stride: %zu, format: %d, dataSizeWithStride: %zu\n",
            static_cast<int>(dataType), stride, format, size);
}

void PrintModelInfo(const vorn_mdl_desc* modelDesc, uint32_t batchSize,
                    std::vector<std::string>& inputNames) {
  vorn_mdl_io_dims dims{};
  PrintLine("[INFO]  ------------------ Input Info ------------------\n");
  const uint64_t inputs = vorn_mdl_get_num_inputs(modelDesc);
  for (uint64_t i = 0; i < inputs; ++i) {
    if (vorn_mdl_get_input_dims(modelDesc, i, &dims) != VORN_SUCCESS) {
      PrintLine("[ERROR] get input dims failed\n");
      return;
    }
    const std::string name = NameToString(dims);
    // No list entry names the task buffer or the work buffer. With fewer than two inputs the bound
    // wraps, and every input can be named.
    if (i < inputs - kScratchInputs) inputNames.push_back(name);
    PrintLine("[INFO]  Input index: %zu, name: %s\n", i, name.c_str());
    PrintLine("[INFO]  Shape: %s\n", ShapeToString(dims).c_str());
    PrintLayout(modelDesc, i, batchSize, kInputQueries);
  }
  PrintLine("[INFO]  ------------------ Output Info ------------------\n");
  const uint64_t outputs = vorn_mdl_get_num_outputs(modelDesc);
  for (uint64_t i = 0; i < outputs; ++i) {
    if (vorn_mdl_get_output_dims(modelDesc, i, &dims) != VORN_SUCCESS) {
      PrintLine("[ERROR] get output dims failed\n");
      return;
    }
    PrintLine("[INFO]  Output index: %zu, name: %s\n", i, NameToString(dims).c_str());
    PrintLine("[INFO]  Shape: %s\n", ShapeToString(dims).c_str());
    PrintLayout(modelDesc, i, batchSize, kOutputQueries);
  }
}

}  // namespace

int ModelProcess::LoadModelFromFileWithMem(const std::string& modelFile) {
  uint32_t size = 0;
  const double readStart = GetCurrentTimeMs();
  modelMemPtr_ = ReadBinFile(modelFile, size);
  g_perfInfo.readModelFileTime = GetCurrentTimeMs() - readStart;
  modelMemSize_ = size;

  // Tried without an image, too, and its status is ignored: an image that the runtime rejects shows
  // in `CreateDesc`.
  const double loadStart = GetCurrentTimeMs();
  vorn_mdl_load_from_mem(modelMemPtr_, modelMemSize_, &model_.modelId);
  g_perfInfo.modelLoadTime = GetCurrentTimeMs() - loadStart;

  if (GetFileSize(modelFile, g_perfInfo.omSize) != 0) {
    vorn_rt_free(modelMemPtr_);
    PrintLine("[ERROR] load model from file failed, model file is %s\n", modelFile.c_str());
    return 1;
  }
  loadFlag_ = true;
  PrintLine("[INFO]  load model %s success\n", modelFile.c_str());
  return 0;
}

int ModelProcess::CreateDesc(std::vector<std::string>& inputNames) {
  model_.modelDesc = vorn_mdl_create_desc();
  if (model_.modelDesc == nullptr) {
    PrintLine("[ERROR] create model description failed\n");
    return 1;
  }
  if (vorn_mdl_get_desc(model_.modelDesc, model_.modelId) != VORN_SUCCESS) {
    PrintLine("[ERROR] get model description failed\n");
    return 1;
  }
  PrintLine("[INFO]  create model description success\n");
  PrintModelInfo(model_.modelDesc, inputs_.BatchSize(), inputNames);
  CollectModelSizes(g_perfInfo, model_.modelDesc);
  return 0;
}

int ModelProcess::CreateOutput() {
  return CreateOutputDataset(model_.modelDesc, inputs_.BatchSize(), outputDataset_);
}

int ModelProcess::Execute() {
  if (inputs_.SetNlpTotalT() != 0) {
    PrintLine("[ERROR] Set nlpTotalt failed\n");
    return 1;
  }
  if (profile_ != 1) g_perfInfo.executeCount = 1;
  vorn_rt_set_op_wait_timeout(0);

  // Of several executions the last one decides.
  vorn_status status = VORN_SUCCESS;
  const double start = GetCurrentTimeMs();
  for (uint32_t i = 0; i < g_perfInfo.executeCount; ++i) {
    status = vorn_mdl_execute(model_.modelId, inputs_.Handle(), outputDataset_);
  }
  g_perfInfo.executeTime = GetCurrentTimeMs() - start;
  if (status != VORN_SUCCESS) {
    PrintLine("[ERROR] execute model failed, modelId is %u\n", model_.modelId);
    return 1;
  }
  ++execCounter_;
  PrintLine("[INFO]  model execute success\n");
  return 0;
}

void ModelProcess::DumpOutputData(const std::string& outputPath) {
  DumpOutputs({model_.modelDesc, outputDataset_, inputs_.BatchSize()}, outputPath, execCounter_ - 1,
              outputValues_);
}

ModelProcess::~ModelProcess() {
  UnloadModel();
  inputs_.DestroyInput();
  DestroyOutput();
}

void ModelProcess::UnloadModel() {
  if (!loadFlag_) {
    PrintLine("[WARN]  no model had been loaded, unload failed\n");
    return;
  }
  if (vorn_mdl_unload(model_.modelId) != VORN_SUCCESS) {
    PrintLine("[ERROR] unload model failed, modelId is %u\n", model_.modelId);
  }
  DestroyDesc();
  if (modelMemPtr_ != nullptr) vorn_rt_free(modelMemPtr_);
  PrintLine("[INFO]  unload model success, modelId is %u\n", model_.modelId);
}

void ModelProcess::DestroyDesc() {
  if (model_.modelDesc != nullptr) vorn_mdl_destroy_desc(model_.modelDesc);
}

void ModelProcess::DestroyOutput() { DestroyDataset(outputDataset_); }

}  // namespace vorn::run
